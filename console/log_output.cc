#include "console/log_output.h"

#include "os/os.h"

namespace {

FILE* screen_override = nullptr;
FILE* error_override = nullptr;
FILE* current_log_file = nullptr;
bool write_failure_seen = false;

}  // namespace

FILE* screen_stream() { return screen_override != nullptr ? screen_override : stdout; }
void set_screen_stream(FILE* stream) { screen_override = stream; }

FILE* error_stream() { return error_override != nullptr ? error_override : stderr; }
void set_error_stream(FILE* stream) { error_override = stream; }

FILE* log_file() { return current_log_file; }
void set_log_file(FILE* stream) { current_log_file = stream; }

void log_vprintf(std::initializer_list<FILE*> streams, const char* format, va_list args) {
  os_lock_output();
  for (FILE* stream : streams) {
    if (stream == nullptr) continue;
    va_list copy;
    va_copy(copy, args);
    std::vfprintf(stream, format, copy);
    va_end(copy);
  }
  os_unlock_output();
}

void log_printf(std::initializer_list<FILE*> streams, const char* format, ...) {
  va_list args;
  va_start(args, format);
  log_vprintf(streams, format, args);
  va_end(args);
}

void report_printf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  log_vprintf({screen_stream(), log_file()}, format, args);
  va_end(args);
}

void screen_printf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  log_vprintf({screen_stream()}, format, args);
  va_end(args);
}

void error_printf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  log_vprintf({error_stream()}, format, args);
  va_end(args);
}

void flush_stream(FILE* stream) {
  if (stream == nullptr) return;
  os_lock_output();
  int failed = std::fflush(stream);
  os_unlock_output();
  if (failed != 0) {
    write_failure_seen = true;
    error_printf("ERROR: unable to flush output stream\r\n");
  }
}

bool report_write_failed() { return write_failure_seen; }
void note_report_write_failure() { write_failure_seen = true; }
void reset_report_write_failure() { write_failure_seen = false; }

void seal_output() { os_lock_output(); }
