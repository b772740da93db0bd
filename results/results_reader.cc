#include "results/results_reader.h"

#include <cstring>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

// How deep the reader follows names; deeper values are skipped (no record
// of the program nests deeper than three levels).
constexpr int kTrackedDepth = 4;

// One scalar of the line, as the parser met it.
struct Scalar {
  enum Type : uint8_t { null, boolean, integer, unsigned_integer, floating, text } type;
  bool flag = false;
  int64_t integer_value = 0;
  uint64_t unsigned_value = 0;
  double float_value = 0;
  const std::string* text_value = nullptr;

  bool is_number() const { return type == integer || type == unsigned_integer || type == floating; }
  double as_double() const {
    if (type == integer) return static_cast<double>(integer_value);
    if (type == unsigned_integer) return static_cast<double>(unsigned_value);
    return float_value;
  }
  // A count: non-negative integers only.
  bool as_count(uint64_t* value) const {
    if (type == unsigned_integer) *value = unsigned_value;
    else if (type == integer && integer_value >= 0) *value = static_cast<uint64_t>(integer_value);
    else return false;
    return true;
  }
};

ResultsRecordKind kind_named(const std::string& name) {
  static const struct {
    const char* name;
    ResultsRecordKind kind;
  } kKinds[] = {{"run", ResultsRecordKind::run},           {"interval", ResultsRecordKind::interval},
                {"iteration", ResultsRecordKind::iteration}, {"health", ResultsRecordKind::health},
                {"result", ResultsRecordKind::result},     {"cartridge", ResultsRecordKind::cartridge},
                {"library", ResultsRecordKind::library},   {"device", ResultsRecordKind::device}};
  for (const auto& k : kKinds) {
    if (name == k.name) return k.kind;
  }
  return ResultsRecordKind::other;
}

// Follows the parser's events with the names of the enclosing objects and
// puts each value it knows into the line's record.
class LineHandler final : public nlohmann::json_sax<Json> {
 public:
  explicit LineHandler(ResultsLine* line) : line_(line) {}

  bool saw_record() const { return saw_record_; }

  bool null() override { return take(Scalar{Scalar::null}); }
  bool boolean(bool value) override {
    Scalar s{Scalar::boolean};
    s.flag = value;
    return take(s);
  }
  bool number_integer(number_integer_t value) override {
    Scalar s{Scalar::integer};
    s.integer_value = value;
    return take(s);
  }
  bool number_unsigned(number_unsigned_t value) override {
    Scalar s{Scalar::unsigned_integer};
    s.unsigned_value = value;
    return take(s);
  }
  bool number_float(number_float_t value, const string_t&) override {
    Scalar s{Scalar::floating};
    s.float_value = value;
    return take(s);
  }
  bool string(string_t& value) override {
    Scalar s{Scalar::text};
    s.text_value = &value;
    return take(s);
  }
  bool binary(binary_t&) override { return take(Scalar{Scalar::null}); }

  bool start_object(std::size_t) override {
    if (depth_ == 0 && started_) return false;  // a second value on the line
    open(false);
    if (depth_ == 3 && in("tapealert", 1)) flag_ = Flag{};
    return true;
  }
  bool end_object() override {
    if (depth_ == 3 && in("tapealert", 1) && flag_.fresh && flag_.number >= 1 && flag_.number <= 64) {
      line_->tapealert_new |= uint64_t{1} << (flag_.number - 1);
    }
    close();
    return true;
  }
  bool start_array(std::size_t) override {
    if (depth_ == 0) return false;  // the line must be an object
    if (depth_ == 1 && names_[1] == "tapealert") line_->tapealert_read = true;
    open(true);
    return true;
  }
  bool end_array() override {
    close();
    return true;
  }
  bool key(string_t& name) override {
    if (depth_ <= kTrackedDepth) names_[depth_] = name;
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  struct Flag {
    uint64_t number = 0;
    bool fresh = false;
  };

  void open(bool array) {
    started_ = true;
    ++depth_;
    if (depth_ <= kTrackedDepth) {
      arrays_[depth_] = array;
      names_[depth_].clear();
    }
  }
  void close() { --depth_; }

  // True when the value at the current depth lies in the object or array
  // named `name` at `level`.
  bool in(const char* name, int level) const { return depth_ > level && names_[level] == name; }
  bool named(const char* name) const { return !arrays_[depth_] && names_[depth_] == name; }

  bool take(const Scalar& value) {
    if (depth_ == 0) return false;  // a bare value is no record
    if (depth_ > kTrackedDepth) return true;
    if (depth_ == 1) {
      top_level(value);
    } else if (depth_ == 2) {
      second_level(value);
    } else if (depth_ == 3 && in("tapealert", 1)) {
      uint64_t number = 0;
      if (named("flag") && value.as_count(&number)) flag_.number = number;
      if (named("new") && value.type == Scalar::boolean) flag_.fresh = value.flag;
    }
    return true;
  }

  static void text(const Scalar& value, std::string* field) {
    if (value.type == Scalar::text) *field = *value.text_value;
  }
  static void count(const Scalar& value, uint64_t* field) { value.as_count(field); }
  static void number(const Scalar& value, double* field, bool* known = nullptr) {
    if (!value.is_number()) return;
    *field = value.as_double();
    if (known != nullptr) *known = true;
  }

  void top_level(const Scalar& value) {
    ResultsLine& l = *line_;
    const std::string& name = names_[1];
    if (name == "record") {
      if (value.type == Scalar::text) {
        l.kind = kind_named(*value.text_value);
        saw_record_ = true;
      }
    } else if (name == "cartridge") {
      text(value, &l.cartridge);
    } else if (name == "host") {
      text(value, &l.host);
    } else if (name == "run_id") {
      text(value, &l.run_id);
    } else if (name == "label") {
      text(value, &l.label);
    } else if (name == "start_time") {
      text(value, &l.start_time);
    } else if (name == "test") {
      l.write_test = value.type == Scalar::text && *value.text_value == "write";
    } else if (name == "actual_bytes") {
      count(value, &l.actual_bytes);
    } else if (name == "seconds") {
      number(value, &l.seconds);
    } else if (name == "exit_code") {
      if (value.type == Scalar::integer || value.type == Scalar::unsigned_integer) {
        l.exit_code_known = true;
        l.exit_code = value.type == Scalar::integer ? value.integer_value
                                                    : static_cast<int64_t>(value.unsigned_value & 0x7FFFFFFF);
      }
    } else if (name == "status") {
      text(value, &l.status);
    } else if (name == "bytes_written") {
      l.totals_known = value.as_count(&l.bytes_written);
    } else if (name == "bytes_verified") {
      count(value, &l.bytes_verified);
    } else if (name == "end_time") {
      text(value, &l.end_time);
    } else if (name == "elapsed_seconds") {
      number(value, &l.elapsed_seconds, &l.elapsed_known);
    } else if (name == "barcode") {
      text(value, &l.barcode);
    } else if (name == "slot") {
      count(value, &l.slot);
    } else if (name == "result") {
      text(value, &l.cartridge_result);
    } else if (name == "reason") {
      text(value, &l.reason);
    }
  }

  void second_level(const Scalar& value) {
    ResultsLine& l = *line_;
    if (in("drive", 1)) {
      if (named("vendor")) text(value, &l.vendor);
      if (named("product")) text(value, &l.product);
      if (named("revision")) text(value, &l.revision);
      if (named("serial")) text(value, &l.serial);
    } else if (in("reasons", 1) && arrays_[2]) {
      if (value.type == Scalar::text) l.reasons.push_back(*value.text_value);
    } else if (in("stalls", 1)) {
      if (named("count") && value.as_count(&l.stall_count)) l.timed = true;
    } else if (in("latency", 1)) {
      if (named("max_ms")) number(value, &l.max_latency_ms, &l.timed);
    } else if (in("end", 1)) {
      if (named("kind")) text(value, &l.end_kind);
    } else if (in("rwr", 1) || in("ecc", 1)) {
      const bool rwr = names_[1] == "rwr";
      if (named("max_percentage")) {
        number(value, rwr ? &l.rwr_max_percentage : &l.ecc_max_percentage, rwr ? &l.rwr_known : &l.ecc_known);
      }
      if (named("verdict") && value.type == Scalar::text) {
        (rwr ? l.rwr_known : l.ecc_known) = true;
        (rwr ? l.rwr_failed : l.ecc_failed) = *value.text_value == "failed";
      }
    }
  }

  ResultsLine* line_;
  int depth_ = 0;
  bool started_ = false;
  bool saw_record_ = false;
  std::string names_[kTrackedDepth + 1];
  bool arrays_[kTrackedDepth + 1] = {};
  Flag flag_;
};

void clear(ResultsLine* line) {
  line->kind = ResultsRecordKind::other;
  for (std::string* text : {&line->cartridge, &line->host, &line->run_id, &line->label, &line->start_time,
                            &line->vendor, &line->product, &line->revision, &line->serial, &line->end_kind,
                            &line->status, &line->end_time, &line->barcode, &line->cartridge_result,
                            &line->reason}) {
    text->clear();
  }
  line->reasons.clear();
  line->write_test = false;
  line->actual_bytes = 0;
  line->seconds = 0;
  line->timed = false;
  line->stall_count = 0;
  line->max_latency_ms = 0;
  line->rwr_known = line->rwr_failed = line->ecc_known = line->ecc_failed = false;
  line->rwr_max_percentage = line->ecc_max_percentage = 0;
  line->tapealert_read = false;
  line->tapealert_new = 0;
  line->exit_code_known = false;
  line->exit_code = 0;
  line->totals_known = false;
  line->bytes_written = line->bytes_verified = 0;
  line->elapsed_known = false;
  line->elapsed_seconds = 0;
  line->slot = 0;
}

// Days from 1970-01-01 to the given date of the proleptic Gregorian calendar.
int64_t days_from_civil(int64_t year, unsigned month, unsigned day) {
  year -= month <= 2 ? 1 : 0;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const unsigned year_of_era = static_cast<unsigned>(year - era * 400);
  const unsigned day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const unsigned day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146097 + static_cast<int64_t>(day_of_era) - 719468;
}

// `count` decimal digits at `at`; false when any is not a digit.
bool digits(const std::string& text, size_t at, size_t count, unsigned* value) {
  *value = 0;
  if (at + count > text.size()) return false;
  for (size_t i = at; i < at + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    *value = *value * 10 + static_cast<unsigned>(text[i] - '0');
  }
  return true;
}

}  // namespace

int parse_results_line(const char* text, size_t length, ResultsLine* line) {
  clear(line);
  LineHandler handler(line);
  const bool parsed = Json::sax_parse(text, text + length, &handler);
  return parsed && handler.saw_record() ? 0 : -1;
}

int parse_results_time(const std::string& text, int64_t* seconds) {
  // YYYY-MM-DDThh:mm:ss followed by Z or +hh:mm / -hh:mm
  unsigned year, month, day, hour, minute, second;
  if (!digits(text, 0, 4, &year) || text.size() < 20 || text[4] != '-' || !digits(text, 5, 2, &month) ||
      text[7] != '-' || !digits(text, 8, 2, &day) || text[10] != 'T' || !digits(text, 11, 2, &hour) ||
      text[13] != ':' || !digits(text, 14, 2, &minute) || text[16] != ':' || !digits(text, 17, 2, &second)) {
    return -1;
  }
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) return -1;
  int64_t offset = 0;
  if (text.size() == 20 && text[19] == 'Z') {
    offset = 0;
  } else {
    unsigned offset_hours, offset_minutes;
    if (text.size() != 25 || (text[19] != '+' && text[19] != '-') || !digits(text, 20, 2, &offset_hours) ||
        text[22] != ':' || !digits(text, 23, 2, &offset_minutes) || offset_minutes > 59) {
      return -1;
    }
    offset = (static_cast<int64_t>(offset_hours) * 60 + offset_minutes) * 60 * (text[19] == '-' ? -1 : 1);
  }
  *seconds = days_from_civil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second - offset;
  return 0;
}
