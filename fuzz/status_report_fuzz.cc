// Fuzzes the status report and the hex dump over random command outcomes and
// sense bytes. The report goes into memory and must consist of whole "\r\n"
// lines.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "console/log_output.h"
#include "fuzz/fuzz_support.h"
#include "transport/command_buffers.h"
#include "transport/scsi_transport.h"
#include "transport/status_report.h"

namespace {

// Takes `count` bytes from the front of the input as a big-endian number
// (missing bytes are 0).
uint32_t take(const uint8_t*& data, size_t& size, unsigned count) {
  uint32_t value = 0;
  for (unsigned i = 0; i < count; ++i) {
    value = value << 8;
    if (size > 0) {
      value |= *data++;
      --size;
    }
  }
  return value;
}

void check_whole_lines(const char* text, size_t length) {
  fuzz_check(length == 0 || (length >= 2 && text[length - 2] == '\r' && text[length - 1] == '\n'),
             "the report ends with a whole line");
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == '\n') fuzz_check(i > 0 && text[i - 1] == '\r', "every line ends in CR LF");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_prepare();
  const uint8_t* cursor = data;
  size_t left = size;

  std::vector<uint8_t> sense(kSenseBufferSize, 0);
  ScsiResult& result = scsi_transport.result;
  result.win32_error = take(cursor, left, 2);
  result.target_status = static_cast<uint8_t>(take(cursor, left, 1));
  result.sense_key_byte = static_cast<uint8_t>(take(cursor, left, 1));
  result.transferred_length = take(cursor, left, 4);
  // Dumps of up to 1023 bytes keep the fuzzer fast; start and count range
  // over all values so the clamping is exercised.
  uint32_t buffer_size = take(cursor, left, 2) & 0x3FF;
  uint32_t start = take(cursor, left, 4);
  uint32_t count = take(cursor, left, 4);
  std::memcpy(sense.data(), cursor, left < sense.size() ? left : sense.size());
  result.sense_data = sense.data();

  char* text = nullptr;
  size_t length = 0;
  FILE* memory = open_memstream(&text, &length);
  fuzz_check(memory != nullptr, "memory stream");
  FILE* previous_screen = screen_stream();
  set_screen_stream(memory);

  print_command_status();
  // The dump of the raw input with the sizes the input chose; a buffer of
  // `buffer_size` bytes that really exists.
  std::vector<uint8_t> dumped(cursor, cursor + left);
  dumped.resize(buffer_size);
  int dump_result = hex_dump(nullptr, dumped.empty() ? nullptr : dumped.data(), buffer_size,
                             start, count);
  fuzz_check(dump_result == (buffer_size == 0 ? -1 : 0), "hex_dump refuses only empty buffers");
  hex_dump(memory, dumped.data(), buffer_size, start, count);

  std::fclose(memory);
  set_screen_stream(previous_screen);
  check_whole_lines(text, length);
  std::free(text);
  result.sense_data = nullptr;
  return 0;
}
