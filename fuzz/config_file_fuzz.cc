// Fuzzes the configuration file reader: the input is the content of a `/cfg`
// file that the option parser then reads and applies.
#include <cstring>

#include "fuzz/fuzz_support.h"
#include "run/options.h"
#include "run/run_sequence.h"
#include "settings/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_prepare();
  reset_program_state();
  fuzz_write_file("fuzz.cfg", data, size);

  char program_name[] = "bftdtest";
  char option[] = "/cfg";
  char file_name[] = "fuzz.cfg";
  char* arguments[] = {program_name, option, file_name, nullptr};
  int result = parse_options(3, arguments);

  fuzz_check(result == 0 || result == -1, "parse_options returns 0 or -1");
  fuzz_check(result != 0 || test_settings.max_transfer_length != 0,
             "a zero transfer length is refused");
  fuzz_check(memchr(test_settings.output_file_name, '\0', kFileNameCapacity) != nullptr,
             "the output file name stays within its capacity");

  // The counting pass alone, as the reader runs it before allocating.
  FILE* file = std::fopen("fuzz.cfg", "rb");
  fuzz_check(file != nullptr, "the configuration file can be reopened");
  uint16_t count = read_config_args(file, 0, nullptr);
  std::fclose(file);
  fuzz_check(count != 1 || result == 0, "a file without option lines is accepted");
  reset_program_state();
  return 0;
}
