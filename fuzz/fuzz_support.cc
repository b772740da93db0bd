#include "fuzz/fuzz_support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
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

// libFuzzer calls this once before it reads any input. The targets run in
// their scratch directory, so every path on the fuzzer's command line (corpus
// directories, dictionary, artifact prefix) is made absolute first.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static std::vector<std::string> texts;
  static std::vector<char*> pointers;
  static const char* const kPathFlags[] = {"-dict=", "-artifact_prefix=", "-exact_artifact_path=",
                                           "-seed_inputs=", "-merge_control_file="};
  for (int i = 0; i < *argc; ++i) {
    std::string text = (*argv)[i];
    if (i > 0 && !text.empty() && text[0] != '-') {
      text = std::filesystem::absolute(text).string();
    }
    for (const char* flag : kPathFlags) {
      size_t length = std::strlen(flag);
      if (text.compare(0, length, flag) == 0 && text.size() > length) {
        text = flag + std::filesystem::absolute(text.substr(length)).string();
      }
    }
    texts.push_back(text);
  }
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  *argv = pointers.data();
  fuzz_prepare();
  return 0;
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
