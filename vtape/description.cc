#include "vtape/description.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "console/log_output.h"
#include "vtape/description_values.h"

void default_vtape_description(VtapeDescription* d) {
  *d = VtapeDescription{};
  d->capacity_mb = 1500000;  // 1.5 TB native
  d->early_warning_mb = 100;
  d->min_block = 1;
  d->max_block = 0xFFFFFF;
  d->densities[0] = 0x58;
  d->densities[1] = 0x46;
  d->densities[2] = 0x44;
  d->density_count = 3;
  std::snprintf(d->vendor, sizeof d->vendor, "%s", "VIRTUAL");
  std::snprintf(d->product, sizeof d->product, "%s", "VTAPE DRIVE");
  std::snprintf(d->revision, sizeof d->revision, "%s", "1.0");
  std::snprintf(d->serial, sizeof d->serial, "%s", "VT00000001");
  d->compression = true;
  d->device_type = 1;
  d->lun_supported = true;
  d->medium_present = true;
  d->load_unload_supported = true;
  d->prevent_allow_supported = true;
}

namespace {

int digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 99;
}

unsigned suffix_base(char c) {
  switch (c) {
    case 'o':
    case 'O':
      return 8;
    case 'h':
    case 'H':
      return 16;
    case 'b':
    case 'B':
      return 2;
    case 'd':
    case 'D':
      return 10;
    default:
      return 0;
  }
}

unsigned prefix_base(const char* text) {
  if (text[0] != '0') return 0;
  switch (text[1]) {
    case 'o':
      return 8;
    case 'x':
      return 16;
    case 'b':
      return 2;
    case 'd':
      return 10;
    default:
      return 0;
  }
}

}  // namespace

// The same reading as the option parser's parse_number, but strict.
int read_description_number(const char* text, uint64_t* value) {
  size_t length = std::strlen(text);
  if (length == 0) return -1;
  unsigned base = 10;
  if (std::strcmp(text, "0b") == 0 || std::strcmp(text, "0d") == 0) {
    base = 16;  // a hexadecimal digit behind a zero, not a prefix
  } else if (unsigned prefixed = prefix_base(text); prefixed != 0) {
    base = prefixed;
    text += 2;
    length -= 2;
  } else if (unsigned suffixed = suffix_base(text[length - 1]); suffixed != 0) {
    base = suffixed;
    length -= 1;
  }
  if (length == 0) return -1;
  uint64_t result = 0;
  for (size_t i = 0; i < length; ++i) {
    int digit = digit_value(text[i]);
    if (digit >= static_cast<int>(base)) return -1;
    if (result > (UINT64_MAX - static_cast<uint64_t>(digit)) / base) return -1;
    result = result * base + static_cast<uint64_t>(digit);
  }
  *value = result;
  return 0;
}

namespace {

// "interrupt", "terminate" or "hangup": CTRL-C, SIGTERM (CTRL-BREAK on
// Windows), SIGHUP (the console closed on Windows).
int break_signal(const LineContext& at, const char* value, BreakKind* out) {
  static const char* const kNames[kBreakKinds] = {"interrupt", "terminate", "hangup"};
  for (unsigned kind = 0; kind < kBreakKinds; ++kind) {
    if (std::strcmp(value, kNames[kind]) == 0) {
      *out = static_cast<BreakKind>(kind);
      return 0;
    }
  }
  return bad_value(at, value, "interrupt, terminate or hangup");
}

int density_list(const LineContext& at, const char* value, VtapeDescription* d) {
  char copy[256];
  std::snprintf(copy, sizeof copy, "%s", value);
  uint8_t count = 0;
  for (char* token = std::strtok(copy, " ,\t"); token != nullptr;
       token = std::strtok(nullptr, " ,\t")) {
    uint64_t code = 0;
    if (count == kMaxDensities || read_description_number(token, &code) != 0 || code == 0 ||
        code > 0xFF) {
      return bad_value(at, value, "a list of up to 8 density codes from 1 to 255");
    }
    d->densities[count++] = static_cast<uint8_t>(code);
  }
  if (count == 0) return bad_value(at, value, "a list of up to 8 density codes from 1 to 255");
  d->density_count = count;
  return 0;
}

// Reads "N:M" into its two numbers. 0, or -1 when it is not of that form.
int read_number_pair(const char* value, uint64_t* first, uint64_t* second) {
  char copy[128];
  std::snprintf(copy, sizeof copy, "%s", value);
  char* colon = std::strchr(copy, ':');
  if (colon == nullptr) return -1;
  *colon = '\0';
  return read_description_number(copy, first) == 0 && read_description_number(colon + 1, second) == 0 ? 0
                                                                                                        : -1;
}

int corrupt_spec(const LineContext& at, const char* value, VtapeDescription* d) {
  uint64_t command = 0;
  uint64_t offset = 0;
  if (read_number_pair(value, &command, &offset) != 0 || offset > 0xFFFFFF) {
    return bad_value(at, value, "N:offset");
  }
  d->corrupt_read_at = command;
  d->corrupt_read_offset = static_cast<uint32_t>(offset);
  return 0;
}

// A percentage from 0 to 100 with at most two decimals, in hundredths.
int percent_value(const LineContext& at, const char* value, uint32_t* out) {
  const char* expected = "a percentage from 0 to 100 with at most two decimals";
  char whole[32];
  const char* dot = std::strchr(value, '.');
  size_t whole_length = dot != nullptr ? static_cast<size_t>(dot - value) : std::strlen(value);
  if (whole_length == 0 || whole_length >= sizeof whole) return bad_value(at, value, expected);
  std::memcpy(whole, value, whole_length);
  whole[whole_length] = '\0';
  uint64_t units = 0;
  if (read_description_number(whole, &units) != 0 || units > 100) return bad_value(at, value, expected);
  uint64_t hundredths = units * 100;
  if (dot != nullptr) {
    const char* decimals = dot + 1;
    size_t count = std::strlen(decimals);
    if (count == 0 || count > 2) return bad_value(at, value, expected);
    for (size_t i = 0; i < count; ++i) {
      if (decimals[i] < '0' || decimals[i] > '9') return bad_value(at, value, expected);
    }
    hundredths += static_cast<uint64_t>(decimals[0] - '0') * 10 + (count == 2 ? static_cast<uint64_t>(decimals[1] - '0') : 0);
  }
  if (hundredths > 10000) return bad_value(at, value, expected);
  *out = static_cast<uint32_t>(hundredths);
  return 0;
}

int tapealert_list(const LineContext& at, const char* value, uint64_t* flags) {
  bool set[64] = {};
  if (number_set(at, value, 1, 64, set) != 0) return -1;
  *flags = 0;
  for (unsigned i = 0; i < 64; ++i) {
    if (set[i]) *flags |= uint64_t{1} << i;
  }
  return 0;
}

int tapealert_write_spec(const LineContext& at, const char* value, VtapeDescription* d) {
  uint64_t command = 0;
  uint64_t flag = 0;
  if (read_number_pair(value, &command, &flag) != 0 || command == 0 || flag < 1 || flag > 64) {
    return bad_value(at, value, "N:flag with a flag from 1 to 64");
  }
  d->tapealert_at_write = command;
  d->tapealert_write_flag = static_cast<uint8_t>(flag);
  return 0;
}

// Applies one of the drive's keys. 0, -1 after its message, or 1 when the
// key is not the drive's.
int apply_drive_key(const LineContext& at, const char* v, VtapeDescription* d) {
  const char* k = at.key;
  uint64_t n = 0;
  if (std::strcmp(k, "capacity_mb") == 0) return number_in(at, v, 1, 1ull << 40, &d->capacity_mb);
  if (std::strcmp(k, "early_warning_mb") == 0)
    return number_in(at, v, 0, 1ull << 40, &d->early_warning_mb);
  if (std::strcmp(k, "min_block") == 0) return number32(at, v, 1, 0xFFFFFF, &d->min_block);
  if (std::strcmp(k, "max_block") == 0) return number32(at, v, 1, 0xFFFFFF, &d->max_block);
  if (std::strcmp(k, "densities") == 0) return density_list(at, v, d);
  if (std::strcmp(k, "vendor") == 0) return text_field(at, v, d->vendor, sizeof d->vendor);
  if (std::strcmp(k, "product") == 0) return text_field(at, v, d->product, sizeof d->product);
  if (std::strcmp(k, "revision") == 0) return text_field(at, v, d->revision, sizeof d->revision);
  if (std::strcmp(k, "serial") == 0) {
    if (std::strcmp(v, "none") == 0) {
      d->serial[0] = '\0';
      return 0;
    }
    return text_field(at, v, d->serial, sizeof d->serial);
  }
  if (std::strcmp(k, "rate_mb_s") == 0) return number32(at, v, 0, 100000, &d->rate_mb_s);
  if (std::strcmp(k, "host_rate_mb_s") == 0) return number32(at, v, 0, 100000, &d->host_rate_mb_s);
  if (std::strcmp(k, "rate_jitter_percent") == 0) return number32(at, v, 0, 90, &d->rate_jitter_percent);
  if (std::strcmp(k, "backhitch_every") == 0) return number_in(at, v, 0, UINT64_MAX, &d->backhitch_every);
  if (std::strcmp(k, "backhitch_ms") == 0) return number32(at, v, 0, 3600000, &d->backhitch_ms);
  if (std::strcmp(k, "compression") == 0) return choice(at, v, "on", "off", &d->compression);
  if (std::strcmp(k, "max_compression_ratio") == 0)
    return number32(at, v, 0, 100000, &d->max_compression_ratio);
  if (std::strcmp(k, "backing_file") == 0)
    return text_field(at, v, d->backing_file, sizeof d->backing_file);
  if (std::strcmp(k, "device_type") == 0) {
    if (number_in(at, v, 0, 0x1F, &n) != 0) return -1;
    d->device_type = static_cast<uint8_t>(n);
    return 0;
  }
  if (std::strcmp(k, "lun_supported") == 0) return choice(at, v, "yes", "no", &d->lun_supported);
  if (std::strcmp(k, "held") == 0) return choice(at, v, "yes", "no", &d->held);
  if (std::strcmp(k, "claimed_without_tape_device") == 0)
    return choice(at, v, "yes", "no", &d->claimed_without_tape_device);
  if (std::strcmp(k, "medium") == 0) return choice(at, v, "loaded", "none", &d->medium_present);
  if (std::strcmp(k, "not_ready_polls") == 0)
    return number32(at, v, 0, 1000000, &d->not_ready_polls);
  if (std::strcmp(k, "fail_write_at") == 0)
    return number_in(at, v, 0, UINT64_MAX, &d->fail_write_at);
  if (std::strcmp(k, "fail_read_at") == 0) return number_in(at, v, 0, UINT64_MAX, &d->fail_read_at);
  if (std::strcmp(k, "corrupt_read_at") == 0) return corrupt_spec(at, v, d);
  if (std::strcmp(k, "filemark_at_read") == 0)
    return number_in(at, v, 0, UINT64_MAX, &d->filemark_at_read);
  if (std::strcmp(k, "load_unload") == 0)
    return choice(at, v, "supported", "unsupported", &d->load_unload_supported);
  if (std::strcmp(k, "prevent_allow") == 0)
    return choice(at, v, "supported", "unsupported", &d->prevent_allow_supported);
  if (std::strcmp(k, "unload_when_prevented") == 0)
    return choice(at, v, "refuse", "hold", &d->unload_refused_while_prevented);
  if (std::strcmp(k, "mode_select_pf") == 0)
    return choice(at, v, "required", "optional", &d->mode_select_pf_required);
  if (std::strcmp(k, "rewrite_percent") == 0) return percent_value(at, v, &d->rewrite_percent);
  if (std::strcmp(k, "corrected_percent") == 0) return percent_value(at, v, &d->corrected_percent);
  if (std::strcmp(k, "tapealert") == 0) return tapealert_list(at, v, &d->tapealert_at_load);
  if (std::strcmp(k, "tapealert_at_write") == 0) return tapealert_write_spec(at, v, d);
  if (std::strcmp(k, "counters_at_load_mb") == 0)
    return number_in(at, v, 0, 1ull << 40, &d->counters_at_load_mb);
  if (std::strcmp(k, "max_transfer") == 0) return number32(at, v, 0, 0xFFFFFFFF, &d->max_transfer);
  if (std::strcmp(k, "log_page_missing") == 0) return number_set(at, v, 0, 63, d->log_page_missing);
  if (std::strcmp(k, "log_page_failing") == 0) return number_set(at, v, 0, 63, d->log_page_failing);
  if (std::strcmp(k, "break_at_command") == 0)
    return number_in(at, v, 0, UINT64_MAX, &d->break_at_command);
  if (std::strcmp(k, "break_signal") == 0) return break_signal(at, v, &d->break_kind);
  return 1;
}

// Applies one `key = value` pair, the drive's or the library's. 0, or -1
// after its message.
int apply_key(const LineContext& at, const char* v, VtapeDescription* d, LibraryDescription* library) {
  int result = apply_drive_key(at, v, d);
  if (result == 1) result = apply_library_key(at, v, library);
  if (result != 1) return result;
  error_printf("ERROR: virtual tape description \"%s\" line %u: unknown key \"%s\"\n", at.path,
               at.line, at.key);
  return -1;
}

// Cuts blanks from both ends of `text` in place.
char* trim(char* text) {
  while (*text == ' ' || *text == '\t') ++text;
  size_t length = std::strlen(text);
  while (length > 0 && std::isspace(static_cast<unsigned char>(text[length - 1]))) {
    text[--length] = '\0';
  }
  return text;
}

// Checks what the keys say together. 0, or -1 after its message.
int check_consistency(const char* path, const VtapeDescription& d) {
  if (d.min_block > d.max_block) {
    error_printf("ERROR: virtual tape description \"%s\": min_block %u is above max_block %u\n",
                 path, d.min_block, d.max_block);
    return -1;
  }
  if (d.early_warning_mb >= d.capacity_mb) {
    error_printf(
        "ERROR: virtual tape description \"%s\": early_warning_mb must be below "
        "capacity_mb\n",
        path);
    return -1;
  }
  return 0;
}

}  // namespace

int read_vtape_description(const char* path, VtapeDescription* description, LibraryDescription* library) {
  default_vtape_description(description);
  default_library_description(library);
  FILE* file = std::fopen(path, "rb");
  if (file == nullptr) {
    error_printf("ERROR: unable to open virtual tape description \"%s\"\n", path);
    return -1;
  }
  char line[512];
  unsigned number = 0;
  int result = 0;
  while (result == 0 && std::fgets(line, sizeof line, file) != nullptr) {
    ++number;
    if (std::strchr(line, '\n') == nullptr && !std::feof(file)) {
      error_printf("ERROR: virtual tape description \"%s\" line %u: line too long\n", path, number);
      result = -1;
      break;
    }
    if (char* comment = std::strchr(line, '#')) *comment = '\0';
    char* text = trim(line);
    if (*text == '\0') continue;
    char* equals = std::strchr(text, '=');
    if (equals == nullptr) {
      error_printf("ERROR: virtual tape description \"%s\" line %u: expected key = value\n", path,
                   number);
      result = -1;
      break;
    }
    *equals = '\0';
    LineContext at{path, number, trim(text)};
    char* value = trim(equals + 1);
    if (*value == '\0') {
      result = bad_value(at, value, "a value");
    } else {
      result = apply_key(at, value, description, library);
    }
  }
  // A directory opens for reading on some systems and then reads as an
  // error, not as an empty description.
  if (result == 0 && std::ferror(file)) {
    error_printf("ERROR: unable to read virtual tape description \"%s\"\n", path);
    result = -1;
  }
  std::fclose(file);
  if (result != 0 || check_consistency(path, *description) != 0) return -1;
  VtapeDescription defaults;
  default_vtape_description(&defaults);
  const bool serial_set = description->serial[0] != '\0' && std::strcmp(description->serial, defaults.serial) != 0;
  return check_library_description(path, *library, serial_set, description->backing_file[0] != '\0');
}
