#include "testing/report_files_testing.h"

bool ends_with_whole_line(const std::string& text) {
  return text.empty() || (text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0);
}

namespace {

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

bool parse_cdb_list(const std::string& text, std::vector<std::vector<uint8_t>>* cdbs,
                    std::string* problem) {
  cdbs->clear();
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find("\r\n", start);
    if (end == std::string::npos) {
      *problem = "cut last line \"" + text.substr(start) + "\"";
      return false;
    }
    std::string line = text.substr(start, end - start);
    std::vector<uint8_t> cdb;
    bool good = line.size() % 3 == 0 && line.size() >= 6 * 3 && line.size() <= 16 * 3;
    for (size_t i = 0; good && i < line.size(); i += 3) {
      int high = hex_digit(line[i + 1]);
      int low = hex_digit(line[i + 2]);
      good = line[i] == ' ' && high >= 0 && low >= 0;
      if (good) cdb.push_back(static_cast<uint8_t>(high * 16 + low));
    }
    if (!good) {
      *problem = "line " + std::to_string(cdbs->size() + 1) + " is no CDB: \"" + line + "\"";
      return false;
    }
    cdbs->push_back(cdb);
    start = end + 2;
  }
  return true;
}

unsigned count_opcode(const std::vector<std::vector<uint8_t>>& cdbs, uint8_t opcode) {
  unsigned count = 0;
  for (const auto& cdb : cdbs) count += cdb[0] == opcode ? 1u : 0u;
  return count;
}
