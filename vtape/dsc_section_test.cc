// The shipped "bftdtest.dsc" section of the virtual drive reads the counters
// it names: every entry within what the drive status collection reads (36
// bytes of log parameter data, 20 of Read Position, 255 of sense), and each
// value the amount it stands for.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "drive_status/dsc_config.h"
#include "run/settings.h"
#include "run/work_directory_testing.h"
#include "testing/output_capture.h"
#include "vtape/vtape_testing.h"

namespace {

// The value of `entry` as the collection reads it: the command's data, the
// page found by walking the headers of the 40 bytes, big-endian, times the
// multiplier.
double read_entry(PlatformHandle h, const DscEntry& entry) {
  uint8_t data[255] = {};
  const uint8_t* base = data;
  if (std::strcmp(entry.command, "LSD") == 0) {
    EXPECT_LE(entry.offset + entry.length, 36);
    send_cdb(h, {0x4D, 0, static_cast<uint8_t>(0x40 | entry.page), 0, 0, 0, 0, 0, 40, 0}, data, 40);
    EXPECT_EQ(entry.page, data[0] & 0x3F);
    base = data + 4;
  } else if (std::strcmp(entry.command, "RPD") == 0) {
    EXPECT_LE(entry.offset + entry.length, 20);
    send_cdb(h, {0x34, 0, 0, 0, 0, 0, 0, 0, 0, 0}, data, 20);
  } else {
    EXPECT_LE(entry.offset + entry.length, 255);
    send_cdb(h, {0x03, 0, 0, 0, 255, 0}, data, 255);
  }
  uint32_t value = 0;
  for (unsigned i = 0; i < entry.length; ++i) value = (value << 8) | base[entry.offset + i];
  return static_cast<double>(value) * entry.multiplier;
}

TEST(VtapeDscSection, EveryKeywordReadsItsCounter) {
  std::string file = read_file_bytes(std::string(BFTDTEST_SOURCE_DIR) + "/bftdtest.dsc");
  ASSERT_NE("<missing>", file);
  {
    WorkDirectory directory;
    directory.write_file("bftdtest.dsc", file);
    reset_dsc_entries();
    OutputCapture capture;
    ASSERT_EQ(0, load_drive_status_config("VIRTUAL-TAPE")) << capture.screen();
  }
  for (const DscEntry& entry : dsc_entries) EXPECT_EQ(1, entry.selected);

  PlatformHandle h = ready_vtape("rewrite_percent = 3\ncorrected_percent = 2\n");
  std::vector<uint8_t> zeros(65536, 0);
  std::vector<uint8_t> noise(65536);
  uint32_t x = 7;
  for (uint8_t& byte : noise) {
    x = x * 1103515245 + 12345;
    byte = static_cast<uint8_t>(x >> 16);
  }
  double before = read_entry(h, dsc_entries[kDscTdwr]);
  for (int i = 0; i < 32; ++i) write_bytes(h, zeros);
  for (int i = 0; i < 32; ++i) write_bytes(h, noise);
  double written = read_entry(h, dsc_entries[kDscTdwr]) - before;
  EXPECT_EQ(4194304.0, written);
  double to_tape = read_entry(h, dsc_entries[kDscWcmp]);
  EXPECT_GE(to_tape, 2097152.0);  // the noise is stored as it is
  EXPECT_LT(to_tape, 2200000.0);  // the zeros almost vanish: ratio near 2 to 1
  double rewritten = read_entry(h, dsc_entries[kDscDrwr]);
  EXPECT_NEAR(3.0, rewritten / written * 100.0, 0.05);  // the drive RWR percentage
  EXPECT_EQ(64.0, read_entry(h, dsc_entries[kDscRpos]));
  EXPECT_EQ(1.0, read_entry(h, dsc_entries[kDscRwrc]));  // 3 % of 64 records
  EXPECT_EQ(0.0, read_entry(h, dsc_entries[kDscTkrc]));

  rewind_tape(h);
  std::vector<uint8_t> buffer(65536);
  for (int i = 0; i < 64; ++i) ASSERT_EQ(0, read_bytes(h, &buffer, 65536).status);
  EXPECT_EQ(4194304.0, read_entry(h, dsc_entries[kDscTdrd]));
  EXPECT_EQ(to_tape, read_entry(h, dsc_entries[kDscRcmp]));
  double corrected = read_entry(h, dsc_entries[kDscDecc]);
  EXPECT_NEAR(2.0, corrected / 4194304.0 * 100.0, 0.05);  // the drive ECC percentage
  reset_dsc_entries();
  reset_settings();
}

}  // namespace
