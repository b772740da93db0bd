#include "testing/work_directory_testing.h"

#include <fstream>
#include <random>

WorkDirectory::WorkDirectory() : previous_(std::filesystem::current_path()) {
  std::random_device random;
  for (;;) {
    path_ = std::filesystem::temp_directory_path() /
            ("bftdtest_test_" + std::to_string(random()));
    if (std::filesystem::create_directory(path_)) break;
  }
  std::filesystem::current_path(path_);
}

WorkDirectory::~WorkDirectory() {
  std::error_code ignored;
  std::filesystem::current_path(previous_, ignored);
  std::filesystem::remove_all(path_, ignored);
}

void WorkDirectory::write_file(const std::string& name, const std::string& bytes) {
  std::ofstream out(path_ / name, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
