#include "settings/config_tokens.h"

#include <cstring>

namespace {

constexpr const char* kSeparators = " ,=\r\n";

}  // namespace

void clean_config_line(char* line) {
  line[std::strcspn(line, "\r\n")] = '\0';
  for (char* c = line; *c != '\0'; ++c) {
    if (*c == '\t' || *c == '\x1a') *c = ' ';
  }
}

char* next_config_token(char** cursor) {
  char* start = *cursor + std::strspn(*cursor, kSeparators);
  if (*start == '\0') {
    *cursor = start;
    return nullptr;
  }
  char* end = start + std::strcspn(start, kSeparators);
  if (*end != '\0') {
    *end = '\0';
    ++end;
  }
  *cursor = end;
  return start;
}
