// Test support: a fresh temporary directory that becomes the current
// directory for the lifetime of the object (the program reads "bftdtest.dsc"
// and `/cfg` files from there); the old current directory is restored and the
// directory removed afterwards.
#pragma once

#include <filesystem>
#include <string>

class WorkDirectory {
 public:
  WorkDirectory();
  ~WorkDirectory();
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;

  // Writes `bytes` exactly (binary) to `name` inside the directory.
  void write_file(const std::string& name, const std::string& bytes);
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path previous_;
  std::filesystem::path path_;
};
