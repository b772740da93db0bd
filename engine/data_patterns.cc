#include "engine/data_patterns.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "console/log_output.h"
#include "engine/sizing.h"
#include "settings/settings.h"
#include "transport/scsi_transport.h"

namespace {

uint32_t generator_state = 0;

int set_random_pattern() {
  const uint32_t length = test_settings.max_transfer_length;
  const uint32_t block = test_settings.logical_block_size;
  if (!test_settings.random_pattern_repeats || block == 0) {
    report_printf("setting pseudo-random data pattern (seed = %d)\r\n", random_seed);
    return randomize_buffer(random_seed, data_buffer_1, length, 0, length);
  }
  report_printf("setting pseudo-random data pattern (seed = %d; repeat every 0x%lX bytes)\r\n",
                random_seed, static_cast<unsigned long>(block));
  if (randomize_buffer(random_seed, data_buffer_1, length, 0, block) != 0) return -1;
  for (uint32_t p = block; p < length; p += block) {
    std::memcpy(data_buffer_1 + p, data_buffer_1, std::min(block, length - p));
  }
  return 0;
}

}  // namespace

void seed_pattern_generator(uint32_t seed) { generator_state = seed; }

uint32_t next_pattern_value() {
  generator_state = generator_state * 214013u + 2531011u;
  return (generator_state >> 16) & 0x7FFFu;
}

int randomize_buffer(int16_t seed, uint8_t* buffer, uint32_t length, uint32_t offset,
                     uint32_t count) {
  if (buffer == nullptr || length == 0) {
    report_printf("ERROR: NULL buffer or zero buffer length (buffer not randomized)\r\n");
    return -1;
  }
  if (offset > length) offset = 0;
  uint64_t end = static_cast<uint64_t>(offset) + count;
  if (count == 0 || end > length) end = length;
  seed_pattern_generator(static_cast<uint32_t>(static_cast<int32_t>(seed)));
  for (uint64_t i = offset; i < end; ++i) {
    buffer[i] = static_cast<uint8_t>(next_pattern_value());
  }
  return 0;
}

int load_buffer_from_file(const char* file_name, uint8_t* buffer, uint32_t length) {
  if (file_name == nullptr || file_name[0] == '\0' || buffer == nullptr || length == 0) {
    screen_printf("ERROR: no file name, NULL buffer, or zero buffer length (buffer not loaded)\r\n");
    return -1;
  }
  // A directory opens as a file on some systems and then yields nothing, which
  // would quietly make the pattern all 0xFF; it cannot be a pattern file.
  std::error_code not_checked;
  FILE* file = std::filesystem::is_directory(file_name, not_checked) ? nullptr
                                                                    : std::fopen(file_name, "rb");
  if (file == nullptr) {
    screen_printf("ERROR: cannot open \"%s\" for input\r\n", file_name);
    return -1;
  }
  std::rewind(file);
  // Read in runs rather than byte by byte. Every run starts at the first
  // byte of the file: at its end (or a read error) the file is read again from
  // the start. A file that yields nothing from its start stores the
  // end-of-file value, 0xFF, in every remaining byte.
  uint32_t filled = 0;
  while (filled < length) {
    size_t got = std::fread(buffer + filled, 1, length - filled, file);
    if (got == 0) {
      std::memset(buffer + filled, 0xFF, length - filled);
      break;
    }
    filled += static_cast<uint32_t>(got);
    std::rewind(file);
  }
  std::fclose(file);
  return 0;
}

int set_data_pattern() {
  int result = 0;
  switch (test_settings.data_pattern_type) {
    case 0:
      report_printf("setting null data pattern\r\n");
      break;
    case 1:
      result = set_random_pattern();
      break;
    default:
      report_printf("setting user-defined data pattern (input file = \"%s\")\r\n",
                    test_settings.pattern_file_name);
      result = load_buffer_from_file(test_settings.pattern_file_name, data_buffer_1,
                                     test_settings.max_transfer_length);
      break;
  }
  flush_report_streams();
  return result;
}
