// Test support: captures what the program writes to the screen, the error
// stream and an output file, as exact bytes.
#pragma once

#include <cstdio>
#include <string>

// Redirects the screen and error streams into memory for the lifetime of the
// object and restores them afterwards.
class OutputCapture {
 public:
  OutputCapture();
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  std::string screen();  // everything written to the screen so far
  std::string errors();  // everything written to the error stream so far

 private:
  FILE* screen_ = nullptr;
  FILE* errors_ = nullptr;
};

// The whole content of a file, or "<missing>" when it cannot be read.
std::string read_file_bytes(const std::string& path);
