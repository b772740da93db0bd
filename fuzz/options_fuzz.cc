// Fuzzes the option parser with random argument vectors: each line of the
// input is one argument. The scratch directory holds a "bftdtest.dsc" and a
// configuration file, so `/dsc` and `/cfg` reach their readers too.
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "run/options.h"
#include "run/run_sequence.h"
#include "settings/settings.h"

namespace {

constexpr char kDscFile[] =
    "; drive status sections\r\n"
    "VT virtual drive\r\n"
    "TDWR LSD 0Ch 4 4 1\r\n"
    "WCMP LSD 0x32 0 4 1024\r\n"
    "RPOS RPD 0 4 4 1\r\n"
    "RWRC RSD 0 16 2 1\r\n"
    "OTHER\r\n"
    "TDRD XYZ 1 2 3 4\r\n";

constexpr char kConfigFile[] =
    "/megs 4 /sdint 2, /lbsize=0x8000\r\n"
    "not an option line /tid 3\r\n"
    "/cfg nested.cfg /dsc VT 100 /vtape\r\n";

bool ends_within(const char* text, size_t capacity) {
  return memchr(text, '\0', capacity) != nullptr;
}

void prepare_files() {
  static bool written = false;
  if (written) return;
  written = true;
  fuzz_write_file("bftdtest.dsc", reinterpret_cast<const uint8_t*>(kDscFile), sizeof kDscFile - 1);
  fuzz_write_file("a.cfg", reinterpret_cast<const uint8_t*>(kConfigFile), sizeof kConfigFile - 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_prepare();
  prepare_files();
  reset_program_state();

  std::vector<std::string> texts = fuzz_split(data, size, '\n', 2000);
  std::vector<char*> arguments;
  std::string program_name = "bftdtest";
  arguments.push_back(program_name.data());
  for (std::string& text : texts) arguments.push_back(text.data());
  arguments.push_back(nullptr);

  int result = parse_options(static_cast<uint16_t>(arguments.size() - 1), arguments.data());

  fuzz_check(result == 0 || result == -1, "parse_options returns 0 or -1");
  fuzz_check(exit_code == 0 || exit_code == 1, "exit code 0 or 1");
  fuzz_check(result != 0 || exit_code == 1, "the help screen ends the parse");
  fuzz_check(result != 0 || test_settings.max_transfer_length != 0,
             "a zero transfer length is refused");
  fuzz_check(result != 0 || test_settings.block_size_from_mode_sense != 0 ||
                 test_settings.logical_block_size <= test_settings.max_transfer_length,
             "a block size above the transfer length is refused");
  fuzz_check(ends_within(test_settings.output_file_name, kFileNameCapacity) &&
                 ends_within(test_settings.cdb_list_file_name, kFileNameCapacity) &&
                 ends_within(test_settings.pattern_file_name, kFileNameCapacity) &&
                 ends_within(test_settings.virtual_drive_file_name, kFileNameCapacity),
             "file names stay within their capacity");
  reset_program_state();
  return 0;
}
