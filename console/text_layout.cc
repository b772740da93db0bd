#include "console/text_layout.h"

#include <algorithm>
#include <cstring>

#include "console/log_output.h"

const char* const kProgramTitle = "-- BF TAPE DRIVE TEST PROGRAM V1.57CV --";
const char* const kBannerLine =
    ">>>>>>>>>>>>>>>>>> SCSI TAPE DRIVE TEST <<<<<<<<<<<<<<<<<<";

void write_spaces(std::initializer_list<FILE*> streams, uint16_t columns) {
  unsigned count = columns < kLineWidth ? columns : kLineWidth;
  log_printf(streams, "%*s", static_cast<int>(count), "");
}

void print_centred(std::initializer_list<FILE*> streams, const char* text) {
  size_t visible = 0;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c != '\r' && *c != '\n') ++visible;
  }
  if (visible > kLineWidth) visible = kLineWidth;
  auto indent = static_cast<uint16_t>((kLineWidth - visible) / 2 + (visible % 2));
  for (FILE* stream : streams) {
    if (stream == nullptr) continue;
    write_spaces({stream}, indent);
    log_printf({stream}, "%s\r\n", text);
  }
}

void print_title(std::initializer_list<FILE*> streams, const char* title) {
  for (FILE* stream : streams) {
    if (stream == nullptr) continue;
    log_printf({stream}, "\r\n");
    print_centred({stream}, kBannerLine);
    log_printf({stream}, "\r\n");
    print_centred({stream}, title);
  }
}

void widen_columns(const std::string* cells, size_t* widths, unsigned count) {
  for (unsigned c = 0; c < count; ++c) widths[c] = std::max(widths[c], cells[c].size());
}

std::string table_line(const std::string* cells, const size_t* widths, const bool* right_aligned, unsigned count) {
  std::string line;
  for (unsigned c = 0; c < count; ++c) {
    const bool last = c + 1 == count;
    const std::string pad(last || cells[c].size() >= widths[c] ? 0 : widths[c] - cells[c].size(), ' ');
    line += right_aligned[c] ? pad + cells[c] : cells[c] + pad;
    if (!last) line += "  ";
  }
  return line;
}
