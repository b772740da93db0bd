#include "run/run_sequence.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "console/log_output.h"
#include "settings/settings.h"
#include "testing/output_capture.h"
#include "transport/device_table.h"
#include "transport/platform/fake_platform_testing.h"
#include "transport/platform/platform.h"
#include "transport/scsi_transport.h"
#include "transport/transport_testing.h"

namespace {

// A tape drive at id 2 whose live Inquiry answers `byte_0`.
void drive_answering_inquiry(uint8_t byte_0, uint8_t lun = 0) {
  fake_add_tape_drive(0, 0, 2, lun);
  fake_script_reply(FakeReply{});  // Test Unit Ready
  fake_script_reply(FakeReply{});  // Test Unit Ready
  FakeReply inquiry;
  inquiry.data_in = {byte_0};
  fake_script_reply(inquiry);
}

class RunSequence : public ::testing::Test {
 protected:
  void SetUp() override {
    reset_program_state();
    fake_reset();
    set_active_platform(fake_platform());
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    base_ = ::testing::TempDir() + "run_sequence_" + test->name();
    output_path_ = base_ + ".out";
    cdb_path_ = base_ + ".cdb";
    std::remove(output_path_.c_str());
    std::remove(cdb_path_.c_str());
    std::snprintf(test_settings.output_file_name, kFileNameCapacity, "%s", output_path_.c_str());
    std::snprintf(test_settings.cdb_list_file_name, kFileNameCapacity, "%s", cdb_path_.c_str());
  }
  void TearDown() override {
    reset_program_state();
    set_active_platform(nullptr);
    fake_reset();
    std::remove(output_path_.c_str());
    std::remove(cdb_path_.c_str());
  }
  std::string base_, output_path_, cdb_path_;
};

TEST_F(RunSequence, SetupFailuresWriteTheirMessageAndNothingElse) {
  struct Case {
    const char* name;
    void (*arrange)();
    const char* message;
  } cases[] = {
      {"disk", [] { drive_answering_inquiry(0x00); },
       "ERROR: device at SCSI id 2 LUN 0 is not a sequential access device (type 00)\n"},
      {"unsupported LUN",
       [] {
         test_settings.lun = 1;
         drive_answering_inquiry(0x7F, 1);
       },
       "ERROR: LUN 1 is not supported by the device at SCSI id 2\n"},
      {"SCSI id 16", [] { test_settings.scsi_id = 16; },
       "ERROR: invalid SCSI id specified (use 0 - 15 only)\r\n"},
      {"LUN 8", [] { test_settings.lun = 8; },
       "ERROR: invalid logical unit number specified (use 0 - 7 only)\r\n"},
      {"no device", [] { fake_add_tape_drive(0, 0, 3, 0); },
       "ERROR: unable to access tape drive at SCSI id 2 LUN 0\n"},
      {"id in hex", [] { test_settings.scsi_id = 12; },
       "ERROR: unable to access tape drive at SCSI id C LUN 0\n"},
  };
  for (const Case& c : cases) {
    reset_program_state();
    fake_reset();
    std::snprintf(test_settings.output_file_name, kFileNameCapacity, "%s", output_path_.c_str());
    c.arrange();
    OutputCapture capture;
    EXPECT_NE(0, setup_run()) << c.name;
    cleanup_run();
    EXPECT_EQ(c.message, capture.screen()) << c.name;
    EXPECT_EQ(c.message, read_file_bytes(output_path_)) << c.name;
    EXPECT_EQ("", capture.errors()) << c.name;
    EXPECT_EQ(1, exit_code);
    EXPECT_EQ(nullptr, log_file());
  }
}

TEST_F(RunSequence, SetupListsTwoTestUnitReadyAndTheInquiry) {
  fake_add_tape_drive(0, 0, 2, 0);
  test_settings.cdb_list_enabled = 1;
  OutputCapture capture;
  ASSERT_EQ(0, setup_run());
  cleanup_run();
  EXPECT_EQ(" 00 00 00 00 00 00\r\n 00 00 00 00 00 00\r\n 12 00 00 00 ff 00\r\n",
            read_file_bytes(cdb_path_));
  EXPECT_EQ("", read_file_bytes(output_path_));
  EXPECT_EQ("", capture.screen());
  EXPECT_EQ(0u, fake_open_handle_count());
}

TEST_F(RunSequence, BlockSizeFromModeSenseIsReadAtSetup) {
  test_settings.block_size_from_mode_sense = 1;
  drive_answering_inquiry(0x01);
  FakeReply mode;
  mode.data_in = {11, 0, 0x10, 8, 0, 0, 0, 0, 0, 0x00, 0x80, 0x00};
  fake_script_reply(mode);
  OutputCapture capture;
  EXPECT_EQ(0, setup_run());
  cleanup_run();
  EXPECT_EQ(0x8000u, test_settings.logical_block_size);
  EXPECT_EQ("1a 00 00 00 0c 00", hex_bytes(fake_requests().back().cdb));
  EXPECT_EQ("", capture.screen());
}

TEST_F(RunSequence, UnopenableOutputFileStopsSetupBeforeTheTransport) {
  std::snprintf(test_settings.output_file_name, kFileNameCapacity, "%s",
                (base_ + ".missing/x.out").c_str());
  test_settings.cdb_list_enabled = 1;
  fake_add_tape_drive(0, 0, 2, 0);
  OutputCapture capture;
  EXPECT_NE(0, setup_run());
  cleanup_run();
  EXPECT_EQ("ERROR: unable to open \"" + base_ + ".missing/x.out\" for output\n",
            capture.errors());
  EXPECT_EQ("", capture.screen());
  EXPECT_TRUE(fake_requests().empty());
  EXPECT_EQ("", read_file_bytes(cdb_path_));  // opened, then closed by cleanup
}

// CTRL-C: the handler ends the process with 1 while another thread keeps
// writing report lines; the output file must hold whole lines only.
TEST_F(RunSequence, BreakEndsWithOneAndLeavesWholeLines) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::string path = output_path_;
  EXPECT_EXIT(
      {
        FILE* output = std::fopen(path.c_str(), "wb");
        set_log_file(output);
        std::atomic<bool> started{false};
        std::thread writer([&started] {
          for (unsigned line = 0;; ++line) {
            log_printf({log_file()}, "report line %06u with some text after it\r\n", line);
            started.store(true);
          }
        });
        while (!started.load()) {
        }
        on_break(2);
      },
      ::testing::ExitedWithCode(1), "");
  std::string text = read_file_bytes(path);
  ASSERT_FALSE(text.empty());
  const std::string line_text = " with some text after it\r\n";
  size_t line_length = std::strlen("report line 000000") + line_text.size();
  ASSERT_EQ(0u, text.size() % line_length) << text.substr(text.size() - 40);
  for (size_t at = 0; at < text.size(); at += line_length) {
    ASSERT_EQ(line_text, text.substr(at + 18, line_text.size()));
  }
}

}  // namespace
