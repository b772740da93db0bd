#include "engine/iterations.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "console/log_output.h"
#include "drive_status/collection.h"
#include "drive_status/dsc_config.h"
#include "engine/sizing.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "tape/drive_operations.h"
#include "testing/output_capture.h"
#include "testing/report_masking.h"
#include "transport/device_table.h"
#include "transport/transport_testing.h"

namespace {

TEST(TransferRate, IsWholeKilobytesOfAThousandBytesPerSecondWithoutWrapping) {
  const struct {
    double megabytes, seconds;
    uint32_t rate;
  } cases[] = {
      {128.0, 10.0, 13421},     // 134,217,728 bytes / 1000 / 10, truncated
      {128.0, 0.0, 0},          // a zero time
      {93.75, 1.0, 98304},      // faster than 65,535 KB/SEC: the true figure
      {4096.0, 2.0, 2147483},   // 4 GB in 2 seconds
      {1.0, 0.001, 1048576},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.rate, transfer_rate_kb_per_second(c.megabytes, c.seconds))
        << c.megabytes << " MB in " << c.seconds << " s";
  }
}

// A drive on the scriptable platform that answers every Read with the test
// data and keeps write and rewrite counters for a Log Sense page 0x32:
// bytes written (in units of 100 per command) at offset 0, rewrites at 4.
struct IterationDrive {
  unsigned writes;
  uint32_t rewrites_per_write[2];  // first 32 writes, then the rest
  uint32_t written_units, rewrites;
};
IterationDrive drive;

void drive_answer(const PassThroughRequest& request, PassThroughReply& reply) {
  reply = PassThroughReply{};
  reply.transferred_length = request.data_length;
  switch (request.cdb[0]) {
    case 0x0A:
      ++drive.writes;
      drive.written_units += 100;
      drive.rewrites += drive.rewrites_per_write[drive.writes <= 32 ? 0 : 1];
      break;
    case 0x08:
      std::memcpy(request.data, data_buffer_1, request.data_length);
      break;
    case 0x4D: {
      std::memset(request.data, 0, request.data_length);
      request.data[0] = 0x32;
      request.data[3] = 8;
      const uint32_t values[2] = {drive.written_units, drive.rewrites};
      for (int v = 0; v < 2; ++v) {
        for (int b = 0; b < 4; ++b) request.data[4 + 4 * v + b] = static_cast<uint8_t>(values[v] >> (24 - 8 * b));
      }
      break;
    }
    default:
      break;
  }
}

class IterationTest : public FakeTransportTest {
 protected:
  void SetUp() override {
    FakeTransportTest::SetUp();
    reset_settings();
    reset_test_plan();
    reset_dsc_entries();
    reset_drive_status();
    reset_drive_operations();
    drive = IterationDrive{};
    fake_add_tape_drive(0, 0, 2, 0);
    ASSERT_EQ(0, scan_devices());
    fake_set_responder(drive_answer);
    log_ = std::tmpfile();
    set_log_file(log_);
  }
  void TearDown() override {
    set_log_file(nullptr);
    std::fclose(log_);
    reset_rw_buffer();
    reset_test_plan();
    reset_dsc_entries();
    reset_drive_status();
    reset_settings();
    FakeTransportTest::TearDown();
  }
  // Two intervals of 1 MB (16 Writes of 0x10000 bytes) per test.
  void plan_two_intervals() {
    test_settings.total_megabytes = 2.0;
    test_settings.interval_megabytes = 1.0;
    test_settings.interval_given = 1;
    OutputCapture quiet;
    ASSERT_EQ(0, size_test());
    std::fflush(log_);
    std::rewind(log_);
    ASSERT_EQ(0, ftruncate(fileno(log_), 0));
  }
  std::string log_text() {
    std::fflush(log_);
    std::rewind(log_);
    std::string text;
    char chunk[4096];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, log_)) > 0) text.append(chunk, got);
    return text;
  }
  std::string opcodes() const {
    std::string text;
    unsigned run = 0;
    uint8_t last = 0xFF;
    // Runs of the same opcode as "0a*16" to keep the expectations readable.
    auto flush = [&]() {
      if (run == 0) return;
      char item[16];
      std::snprintf(item, sizeof item, run > 1 ? "%02x*%u " : "%02x ", last, run);
      text += item;
    };
    for (const FakeRequest& request : fake_requests()) {
      if (request.cdb[0] != last) {
        flush();
        last = request.cdb[0];
        run = 0;
      }
      ++run;
    }
    flush();
    return text;
  }
  FILE* log_ = nullptr;
};

std::string interval_text(const char* heading_and_amount_kind, unsigned number) {
  const bool write = std::strcmp(heading_and_amount_kind, "write") == 0;
  std::string text = write ? "write test interval " : "read/compare test interval ";
  text += std::to_string(number) + " of 2 (MM/DD/YY hh:mm:ss am)\r\n";
  text += write ? "writing 1.000 MB of test data\r\n" : "reading/comparing 1.000 MB of test data\r\n";
  text += write ? "  total time taken for write test ............ #.## SEC\r\n"
                  "  write transfer rate ........................ # KB/SEC\r\n"
                : "  total time taken for read/compare test ..... #.## SEC\r\n"
                  "  read/compare transfer rate ................. # KB/SEC\r\n";
  return text;
}

TEST_F(IterationTest, OneIterationWritesRewindsReadsAndComparesInIntervals) {
  plan_two_intervals();
  OutputCapture capture;
  ASSERT_EQ(0, run_test_iterations());
  EXPECT_EQ("01 15 10 0a*32 01 11 08*32 01 ", opcodes());
  EXPECT_EQ(
      "\r\nrewinding tape\r\n"
      "setting block mode (density code = 0x0; logical block size = 0x400)\r\n"
      "setting maximum transfer lengths (write/read CDB = 0x40; data = 0x10000)\r\n"
      "\r\nwriting two filemarks\r\n" +
          interval_text("write", 1) + "\r\n" + interval_text("write", 2) +
          "\r\nrewinding tape\r\n"
          "\r\nspacing two filemarks\r\n" +
          interval_text("read", 1) + "\r\n" + interval_text("read", 2) + "\r\nrewinding tape\r\n",
      mask_report(log_text()));
  // Each interval's running count reaches 1 MB on the screen only.
  std::string screen = capture.screen();
  size_t progress = 0;
  for (size_t at = screen.find("1 MB\r"); at != std::string::npos; at = screen.find("1 MB\r", at + 1)) ++progress;
  EXPECT_EQ(4u, progress);
  EXPECT_EQ(std::string::npos, log_text().find("MB\r"));
}

TEST_F(IterationTest, IterationsAreNumberedAndJudgedOnTheirLargestRwrPercentage) {
  test_settings.iterations = 2;
  plan_two_intervals();
  // 100 units written per Write; one rewrite per Write in the first
  // iteration is exactly 1.0 % (passed, the limit itself), two in the second
  // are 2.0 % (failed).
  DscEntry& tdwr = dsc_entries[kDscTdwr];
  std::snprintf(tdwr.command, sizeof tdwr.command, "LSD");
  tdwr.page = 0x32, tdwr.offset = 0, tdwr.length = 4, tdwr.multiplier = 1, tdwr.selected = 1;
  DscEntry& drwr = dsc_entries[kDscDrwr];
  drwr = tdwr;
  drwr.offset = 4;
  test_settings.drive_status_enabled = 1;
  drive.rewrites_per_write[0] = 1;
  drive.rewrites_per_write[1] = 2;
  OutputCapture capture;
  ASSERT_EQ(0, run_test_iterations());
  std::string report = mask_report(log_text());
  const std::string first = "\r\nTEST ITERATION 1 (MM/DD/YY hh:mm:ss am):\r\n";
  const std::string second = "\r\nTEST ITERATION 2 (MM/DD/YY hh:mm:ss am):\r\n";
  ASSERT_NE(std::string::npos, report.find(first));
  ASSERT_NE(std::string::npos, report.find(second));
  EXPECT_NE(std::string::npos,
            report.find("\r\nrewinding tape\r\n\r\nmaximum RWR percentage calculated ............ 1.0% (passed)\r\n" +
                        second));
  EXPECT_EQ(report.size() - std::strlen("\r\nmaximum RWR percentage calculated ............ 2.0% (failed)\r\n"),
            report.rfind("\r\nmaximum RWR percentage calculated ............ 2.0% (failed)\r\n"));
  EXPECT_NE(std::string::npos, report.find("  drive RWR percentage ....................... 1.0%\r\n"));
  EXPECT_EQ(2.0, drive_status.max_rwr_percentage);
}

TEST_F(IterationTest, OnlyTheSelectedPercentageIsJudged) {
  plan_two_intervals();
  DscEntry& tdwr = dsc_entries[kDscTdwr];
  std::snprintf(tdwr.command, sizeof tdwr.command, "LSD");
  tdwr.page = 0x32, tdwr.offset = 0, tdwr.length = 4, tdwr.multiplier = 1, tdwr.selected = 1;
  dsc_entries[kDscDecc] = tdwr;
  dsc_entries[kDscDecc].offset = 4;
  test_settings.drive_status_enabled = 1;
  OutputCapture capture;
  ASSERT_EQ(0, run_test_iterations());
  std::string report = log_text();
  // Reads move no written units: ECC percentage 0.0, passed; no RWR line.
  const std::string tail = "\r\nmaximum ECC percentage calculated ............ 0.0% (passed)\r\n";
  EXPECT_EQ(tail, report.substr(report.size() - tail.size()));
  EXPECT_EQ(std::string::npos, report.find("maximum RWR"));
}

TEST_F(IterationTest, NoIterationsStillRewindAndSetTheBlockMode) {
  test_settings.iterations = 0;
  plan_two_intervals();
  OutputCapture capture;
  EXPECT_EQ(0, run_test_iterations());
  EXPECT_EQ("01 15 ", opcodes());
}

}  // namespace
