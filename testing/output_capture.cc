#include "testing/output_capture.h"

#include <fstream>
#include <sstream>

#include "console/log_output.h"

namespace {

std::string contents(FILE* stream) {
  std::fflush(stream);
  long end = std::ftell(stream);
  std::string text(static_cast<size_t>(end < 0 ? 0 : end), '\0');
  std::rewind(stream);
  size_t got = std::fread(text.data(), 1, text.size(), stream);
  text.resize(got);
  std::fseek(stream, 0, SEEK_END);
  return text;
}

}  // namespace

OutputCapture::OutputCapture() : screen_(std::tmpfile()), errors_(std::tmpfile()) {
  set_screen_stream(screen_);
  set_error_stream(errors_);
}

OutputCapture::~OutputCapture() {
  set_screen_stream(nullptr);
  set_error_stream(nullptr);
  std::fclose(screen_);
  std::fclose(errors_);
}

std::string OutputCapture::screen() { return contents(screen_); }
std::string OutputCapture::errors() { return contents(errors_); }

std::string read_file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "<missing>";
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}
