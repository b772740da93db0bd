// Fuzzes the "bftdtest.dsc" reader: the first line of the input is the label,
// the rest is the file. Every entry the reader accepts must stay within the
// data the collection reads.
#include <cstring>
#include <string>

#include "drive_status/dsc_config.h"
#include "fuzz/fuzz_support.h"
#include "run/run_sequence.h"
#include "settings/settings.h"

namespace {

uint32_t source_length(const char* command) {
  if (std::strcmp(command, "LSD") == 0) return kDscLogDataLength;
  if (std::strcmp(command, "RPD") == 0) return kDscReadPositionLength;
  return kDscSenseLength;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_prepare();
  reset_program_state();

  const uint8_t* end_of_label = static_cast<const uint8_t*>(std::memchr(data, '\n', size));
  size_t label_size = end_of_label != nullptr ? static_cast<size_t>(end_of_label - data) : size;
  std::string label(reinterpret_cast<const char*>(data), label_size);
  label.resize(std::strlen(label.c_str()));  // as a command line argument would end
  if (label.size() > 82) label.resize(82);
  size_t file_start = end_of_label != nullptr ? label_size + 1 : size;
  fuzz_write_file("bftdtest.dsc", data + file_start, size - file_start);

  int result = load_drive_status_config(label.c_str());
  fuzz_check(result == 0 || result == -1, "the reader returns 0 or -1");
  fuzz_check(test_settings.drive_status_enabled == 1, "the file was opened");
  if (result == 0) {
    for (const DscEntry& entry : dsc_entries) {
      if (entry.selected == 0) continue;
      fuzz_check(std::strcmp(entry.command, "LSD") == 0 || std::strcmp(entry.command, "RPD") == 0 ||
                     std::strcmp(entry.command, "RSD") == 0,
                 "an accepted entry has a known command");
      fuzz_check(entry.length >= 1 && entry.length <= 4, "an accepted length is 1 to 4");
      fuzz_check(uint32_t{entry.offset} + entry.length <= source_length(entry.command),
                 "an accepted entry stays within its source");
    }
  }
  reset_program_state();
  return 0;
}
