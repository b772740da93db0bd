#include "drive_status/dsc_config.h"

#include <cstring>

#include "console/log_output.h"
#include "settings/config_tokens.h"
#include "settings/number_syntax.h"
#include "settings/settings.h"

DscEntry dsc_entries[kDscKeywordCount];

void reset_dsc_entries() { std::memset(dsc_entries, 0, sizeof dsc_entries); }

namespace {


constexpr const char* kKeywords[kDscKeywordCount] = {"TDWR", "TDRD", "WCMP", "RCMP", "DRWR",
                                                     "DECC", "RPOS", "RWRC", "TKRC"};

// How many bytes the collection reads from the source of `command`.
uint32_t source_length(const char* command) {
  if (std::strcmp(command, "LSD") == 0) return kDscLogDataLength;
  if (std::strcmp(command, "RPD") == 0) return kDscReadPositionLength;
  return kDscSenseLength;
}

int too_few_arguments() {
  report_printf("DSC FILE ERROR: invalid option syntax in DSC file (too few arguments)\r\n");
  return -1;
}

// The next token of the line read as a number; -1 after the message when the
// line has no more tokens.
int next_number(DscLine* line, uint32_t* value) {
  char* token = next_config_token(&line->rest);
  if (token == nullptr) return too_few_arguments();
  *value = parse_number(token);
  return 0;
}

}  // namespace

int load_drive_status_config(const char* label) {
  FILE* file = std::fopen(kDscFileName, "rb");
  if (file == nullptr) {
    report_printf("DSC FILE ERROR: unable to open DSC file \"bftdtest.dsc\"\r\n");
    return -1;
  }
  test_settings.drive_status_enabled = 1;
  DscLine line;
  char* first_token = nullptr;
  if (find_dsc_line(file, &line, label, &first_token) != 0) {
    report_printf("DSC FILE ERROR: unable to find \"%s\" in DSC file\r\n", label);
    std::fclose(file);
    return -1;
  }
  int result = read_dsc_section(file, &line);
  std::fclose(file);
  return result;
}

int find_dsc_line(FILE* file, DscLine* line, const char* search, char** first_token) {
  while (std::fgets(line->text, sizeof line->text, file) != nullptr) {
    clean_config_line(line->text);
    if (search != nullptr && std::strstr(line->text, search) == nullptr) continue;
    line->rest = line->text;
    char* token = next_config_token(&line->rest);
    if (token == nullptr || token[0] == ';') continue;
    *first_token = token;
    return 0;
  }
  return -1;
}

int read_dsc_section(FILE* file, DscLine* line) {
  char* keyword = nullptr;
  while (find_dsc_line(file, line, nullptr, &keyword) == 0) {
    int index = match_dsc_keyword(keyword);
    if (index < 0) return 0;  // the next label, or a misspelt keyword
    if (parse_dsc_entry(index, line) != 0) return -1;
  }
  return 0;
}

int match_dsc_keyword(const char* token) {
  for (int index = 0; index < kDscKeywordCount; ++index) {
    if (std::strcmp(token, kKeywords[index]) == 0) {
      dsc_entries[index].selected = 1;
      return index;
    }
  }
  return -1;
}

int parse_dsc_entry(int index, DscLine* line) {
  DscEntry& entry = dsc_entries[index];
  char* command = next_config_token(&line->rest);
  if (command == nullptr) return too_few_arguments();
  if (std::strcmp(command, "LSD") != 0 && std::strcmp(command, "RPD") != 0 &&
      std::strcmp(command, "RSD") != 0) {
    report_printf("DSC FILE ERROR: unknown command \"%s\" in DSC file\r\n", command);
    return -1;
  }
  std::memcpy(entry.command, command, sizeof entry.command);

  // What was stored before a missing token stays.
  uint32_t page = 0, offset = 0, length = 0, multiplier = 0;
  if (next_number(line, &page) != 0) return -1;
  entry.page = static_cast<uint8_t>(page);
  if (next_number(line, &offset) != 0) return -1;
  entry.offset = static_cast<uint8_t>(offset);
  if (next_number(line, &length) != 0) return -1;
  entry.length = static_cast<uint8_t>(length);
  if (next_number(line, &multiplier) != 0) return -1;
  entry.multiplier = multiplier;

  // The collection reads a fixed amount of each source and values of at most
  // four bytes; an entry beyond either would read past the data.
  if (length < 1 || length > 4 ||
      uint64_t{offset} + length > source_length(entry.command)) {
    report_printf("DSC FILE ERROR: value out of range for \"%s\" in DSC file\r\n",
                  kKeywords[index]);
    return -1;
  }
  return 0;
}
