#include "fuzz/fuzz_support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "console/log_output.h"

namespace {

std::string scratch_directory;

// Removes the scratch directory when the fuzzer ends normally.
void remove_scratch_directory() {
  std::error_code ignored;
  std::filesystem::remove_all(scratch_directory, ignored);
}

}  // namespace

void fuzz_prepare() {
  static bool prepared = false;
  if (prepared) return;
  prepared = true;
  std::string pattern = (std::filesystem::temp_directory_path() / "bftdtest_fuzz_XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr || chdir(pattern.c_str()) != 0) {
    std::perror("fuzz scratch directory");
    std::abort();
  }
  scratch_directory = pattern;
  std::atexit(remove_scratch_directory);
  FILE* sink = std::fopen("/dev/null", "w");
  if (sink == nullptr) {
    std::perror("/dev/null");
    std::abort();
  }
  set_screen_stream(sink);
  set_error_stream(sink);
}

void fuzz_write_file(const char* name, const uint8_t* data, size_t size) {
  FILE* file = std::fopen(name, "wb");
  if (file == nullptr || (size != 0 && std::fwrite(data, 1, size, file) != size) ||
      std::fclose(file) != 0) {
    std::perror(name);
    std::abort();
  }
}

std::vector<std::string> fuzz_split(const uint8_t* data, size_t size, char separator,
                                    size_t limit) {
  std::vector<std::string> pieces;
  std::string piece;
  for (size_t i = 0; i < size && pieces.size() < limit; ++i) {
    char c = static_cast<char>(data[i]);
    if (c == separator) {
      pieces.push_back(piece);
      piece.clear();
    } else {
      piece.push_back(c);
    }
  }
  if (pieces.size() < limit && (!piece.empty() || size == 0 || pieces.empty())) {
    pieces.push_back(piece);
  }
  return pieces;
}

void fuzz_check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "broken invariant: %s\n", what);
  std::abort();
}
