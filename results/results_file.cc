#include "results/results_file.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "os/os.h"

namespace {

using json = nlohmann::ordered_json;

FILE* results = nullptr;
bool write_failed = false;
std::chrono::steady_clock::time_point started;

// The record being written: the whole object, and the containers open in it
// (outermost first; only the last one takes fields, so the pointers to the
// others stay valid).
json record;
std::vector<json*> open_containers;

// The context field, as a name and text and as the bytes of the interrupted line.
std::string context_name, context_text;
char context_bytes[256];  // `,"name":"text"` with its escapes
size_t context_length = 0;

// The interrupted result line: built at open, its number and time slots
// rewritten in place by results_note_totals. JSON allows blanks before a
// value, so a right-aligned number in a blank-filled slot stays valid.
constexpr size_t kCountSlot = 20;    // any uint64_t
constexpr size_t kSecondsSlot = 14;  // "%.3f" up to 3 years
constexpr size_t kTimeSlot = 25;     // "2026-11-23T14:05:09+01:00"
char interrupted_line[512 + sizeof context_bytes];
size_t interrupted_length = 0;
size_t reason_at = 0;  // where the break's name goes: the handler writes it between two parts
size_t written_at = 0, verified_at = 0, seconds_at = 0, time_at = 0;
uint64_t noted_written = 0, noted_verified = 0;
std::time_t last_time_noted = 0;

// Local time in ISO 8601 with the offset from UTC, "YYYY-MM-DDThh:mm:ss+hh:mm".
void iso_local_time(std::time_t now, char (&text)[kTimeSlot + 1]) {
  std::tm local{};
  std::tm utc{};
  if (const std::tm* l = std::localtime(&now)) local = *l;
  if (const std::tm* u = std::gmtime(&now)) utc = *u;
  // The UTC fields read as local time give now - offset (same DST rule).
  utc.tm_isdst = local.tm_isdst;
  const long offset = static_cast<long>(std::difftime(now, std::mktime(&utc)));
  const long minutes = (offset < 0 ? -offset : offset) / 60;
  char date[24];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  std::snprintf(text, sizeof text, "%.19s%c%02ld:%02ld", date, offset < 0 ? '-' : '+',
                (minutes / 60) % 100, minutes % 60);
}

double elapsed_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
}

// Texts from the command line or the drive need not be UTF-8: replaced, never thrown.
std::string json_text(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

// One record as one line, written and flushed whole under the output lock.
void write_line(const json& whole) {
  if (results == nullptr) return;
  std::string line = json_text(whole);
  line += '\n';
  os_lock_output();
  if (std::fwrite(line.data(), 1, line.size(), results) != line.size() || std::fflush(results) != 0) {
    write_failed = true;
  }
  os_unlock_output();
}

// Adds a field (or, in an array, an element) to the innermost open container.
json* add(const char* name, json value) {
  if (open_containers.empty()) return nullptr;
  json& into = *open_containers.back();
  if (into.is_array()) {
    into.push_back(std::move(value));
    return &into.back();
  }
  json& field = into[name != nullptr ? name : ""];
  field = std::move(value);
  return &field;
}

void begin_container(const char* name, json empty) {
  if (json* container = add(name, std::move(empty))) open_containers.push_back(container);
}

// Closes the innermost container, never the record itself.
void end_container() {
  if (open_containers.size() > 1) open_containers.pop_back();
}

// Writes `text` right-aligned into the slot at `at` of the interrupted line.
void fill_slot(size_t at, size_t width, const char* text) {
  size_t length = std::strlen(text);
  if (length > width) length = width;
  std::memset(interrupted_line + at, ' ', width - length);
  std::memcpy(interrupted_line + at + width - length, text, length);
}

// Appends `length` bytes to the interrupted line; returns where they start.
size_t append(const char* bytes, size_t length) {
  const size_t at = interrupted_length;
  std::memcpy(interrupted_line + at, bytes, length);
  interrupted_length += length;
  return at;
}

size_t append(const char* text) { return append(text, std::strlen(text)); }

size_t append_slot(size_t width) {
  const size_t at = interrupted_length;
  std::memset(interrupted_line + at, ' ', width);
  interrupted_length += width;
  return at;
}

// The slots of the interrupted line; the caller holds the output lock, or no
// other thread can see the line yet.
void fill_totals(uint64_t bytes_written, uint64_t bytes_verified) {
  noted_written = bytes_written;
  noted_verified = bytes_verified;
  char number[32];
  std::snprintf(number, sizeof number, "%llu", static_cast<unsigned long long>(bytes_written));
  fill_slot(written_at, kCountSlot, number);
  std::snprintf(number, sizeof number, "%llu", static_cast<unsigned long long>(bytes_verified));
  fill_slot(verified_at, kCountSlot, number);
  const std::time_t now = std::time(nullptr);
  if (now != last_time_noted) {  // the clock texts change once a second at most
    last_time_noted = now;
    std::snprintf(number, sizeof number, "%.3f", elapsed_seconds());
    fill_slot(seconds_at, kSecondsSlot, number);
    char time_text[kTimeSlot + 1];
    iso_local_time(now, time_text);
    fill_slot(time_at, kTimeSlot, time_text);
  }
}

// Builds the interrupted line with the context field and the totals noted last.
void prepare_interrupted_line() {
  interrupted_length = 0;
  append("{\"record\":\"result\"");
  append(context_bytes, context_length);
  append(",\"exit_code\":1,\"status\":\"interrupted\",\"reasons\":[\"interrupted by ");
  reason_at = interrupted_length;
  append("\"],\"bytes_written\":");
  written_at = append_slot(kCountSlot);
  append(",\"bytes_verified\":");
  verified_at = append_slot(kCountSlot);
  append(",\"elapsed_seconds\":");
  seconds_at = append_slot(kSecondsSlot);
  append(",\"end_time\":\"");
  time_at = append_slot(kTimeSlot);
  append("\"}\n");
  last_time_noted = 0;
  fill_totals(noted_written, noted_verified);
}

// Closes the file and drops the record and the interrupted line; the context stays.
void close_quietly() {
  if (results != nullptr) std::fclose(results);
  results = nullptr;
  write_failed = false;
  interrupted_length = 0;
  noted_written = noted_verified = 0;
  record = nullptr;
  open_containers.clear();
}

}  // namespace

int results_open(const char* file_name) {
  close_quietly();
  results = std::fopen(file_name, "wb");
  if (results == nullptr) return -1;
  started = std::chrono::steady_clock::now();
  prepare_interrupted_line();
  return 0;
}

bool results_enabled() { return results != nullptr; }

int results_close() {
  if (results == nullptr) return 0;
  record = nullptr;
  open_containers.clear();
  os_lock_output();
  if (std::fclose(results) != 0) write_failed = true;
  results = nullptr;
  os_unlock_output();
  return write_failed ? -1 : 0;
}

void reset_results_file() {
  close_quietly();
  results_clear_context();
}

void results_begin(const char* kind) {
  open_containers.clear();
  record = nullptr;
  if (results == nullptr) return;
  record = json::object();
  record["record"] = kind;
  if (!context_name.empty()) record[context_name] = context_text;
  open_containers.push_back(&record);
}

void results_text(const char* name, const char* text) {
  add(name, text != nullptr ? json(text) : json(nullptr));
}
void results_unsigned(const char* name, uint64_t value) { add(name, value); }
void results_signed(const char* name, int64_t value) { add(name, value); }
void results_double(const char* name, double value) { add(name, value); }
void results_bool(const char* name, bool value) { add(name, value); }
void results_null(const char* name) { add(name, nullptr); }

void results_time_now(const char* name) {
  if (open_containers.empty()) return;
  char text[kTimeSlot + 1];
  iso_local_time(std::time(nullptr), text);
  add(name, text);
}

void results_elapsed_seconds(const char* name) {
  if (!open_containers.empty()) add(name, elapsed_seconds());
}

void results_begin_object(const char* name) { begin_container(name, json::object()); }
void results_end_object() { end_container(); }
void results_begin_array(const char* name) { begin_container(name, json::array()); }
void results_end_array() { end_container(); }

void results_end() {
  if (open_containers.empty()) return;
  write_line(record);
  record = nullptr;
  open_containers.clear();
}

int results_set_context(const char* name, const char* text) {
  std::string bytes(1, ',');
  bytes += json_text(name);
  bytes += ':';
  bytes += json_text(text);
  const bool fits = name[0] != '\0' && bytes.size() <= sizeof context_bytes;
  os_lock_output();
  context_name = fits ? name : "";
  context_text = fits ? text : "";
  context_length = fits ? bytes.size() : 0;
  std::memcpy(context_bytes, bytes.data(), context_length);
  if (interrupted_length > 0) prepare_interrupted_line();
  os_unlock_output();
  return fits ? 0 : -1;
}

void results_clear_context() {
  os_lock_output();
  context_name.clear();
  context_text.clear();
  context_length = 0;
  if (interrupted_length > 0) prepare_interrupted_line();
  os_unlock_output();
}

void results_note_totals(uint64_t bytes_written, uint64_t bytes_verified) {
  if (interrupted_length == 0) return;
  os_lock_output();
  fill_totals(bytes_written, bytes_verified);
  os_unlock_output();
}

// `results` is left as it is: the main thread may still read it, and any
// write it attempts waits for the output lock, which the handler never gives
// back before the process ends.
void results_write_interrupted(BreakKind kind) {
  if (results == nullptr) return;
  if (interrupted_length > 0) {
    // The names are plain constant texts: nothing in them needs a JSON escape.
    std::fwrite(interrupted_line, 1, reason_at, results);
    std::fputs(os_break_name(kind), results);
    std::fwrite(interrupted_line + reason_at, 1, interrupted_length - reason_at, results);
  }
  std::fclose(results);
}
