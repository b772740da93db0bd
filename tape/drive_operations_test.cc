#include "tape/drive_operations.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/sizing.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "testing/output_capture.h"
#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "transport/scsi_transport.h"
#include "transport/transport_testing.h"

namespace {

class DriveOperations : public FakeTransportTest {
 protected:
  void SetUp() override {
    FakeTransportTest::SetUp();
    reset_settings();
    fake_add_tape_drive(0, 0, 2, 0);
    ASSERT_EQ(0, scan_devices());
  }
  void TearDown() override {
    reset_settings();
    FakeTransportTest::TearDown();
  }
  std::vector<std::string> sent() {
    std::vector<std::string> cdbs;
    for (const FakeRequest& request : fake_requests()) cdbs.push_back(hex_bytes(request.cdb));
    return cdbs;
  }
};

const char kStatusStart[] = "\r\nWin32 SRB status . 00 (no error)\r\nSRB targ status .. 02";

FakeReply mode_data(std::vector<uint8_t> bytes) {
  FakeReply reply;
  reply.data_in = std::move(bytes);
  return reply;
}

TEST_F(DriveOperations, ReadBlockModeTakesTheBlockLengthFromTheDescriptor) {
  OutputCapture capture;
  fake_script_reply(mode_data({11, 0, 0x10, 8, 0x44, 0, 0, 0, 0, 0x00, 0x02, 0x00}));
  EXPECT_EQ(0, read_block_mode());
  EXPECT_EQ(0x200u, test_settings.logical_block_size);
  // Header only: no descriptor, so variable block mode.
  fake_script_reply(mode_data({3, 0, 0x10, 0}));
  EXPECT_EQ(0, read_block_mode());
  EXPECT_EQ(0u, test_settings.logical_block_size);
  EXPECT_EQ("", capture.screen());
  EXPECT_EQ((std::vector<std::string>{"1a 00 00 00 0c 00", "1a 00 00 00 0c 00"}), sent());

  fake_script_reply(mode_data({11, 0, 0x10, 8, 0, 0, 0, 0, 0, 0x01, 0x00, 0x01}));
  EXPECT_EQ(-1, read_block_mode());
  EXPECT_EQ(
      "ERROR: logical block size cannot be greater than maximum write/read data\n"
      "transfer length\n",
      capture.screen());

}

TEST_F(DriveOperations, SetBlockModeSendsTheParameterListAndSetsTheFixedBit) {
  test_plan.blocks_per_command = 0x40;
  struct Case {
    uint32_t block_size;
    uint8_t fixed_bit;
    const char* lines;
  } cases[] = {
      {0x400, 1,
       "setting block mode (density code = 0x0; logical block size = 0x400)\r\n"
       "setting maximum transfer lengths (write/read CDB = 0x40; data = 0x10000)\r\n"},
      {0, 0,
       "setting block mode (density code = 0x0; logical block size = 0x0)\r\n"
       "setting maximum transfer lengths (write/read CDB = 0x40; data = 0x10000)\r\n"},
  };
  for (const Case& c : cases) {
    OutputCapture capture;
    test_settings.logical_block_size = c.block_size;
    set_fixed_bit(c.fixed_bit == 1 ? 0 : 1);
    EXPECT_EQ(0, set_block_mode());
    EXPECT_EQ(c.lines, capture.screen());
    EXPECT_EQ(c.fixed_bit, scsi_transport.fixed_bit);
    EXPECT_EQ("15 00 00 00 0c 00", hex_bytes(fake_requests().back().cdb));
    std::vector<uint8_t> list(mode_buffer, mode_buffer + 12);
    std::vector<uint8_t> expected = {0, 0, 0x10, 8, 0, 0, 0, 0, 0,
                                     0, static_cast<uint8_t>(c.block_size >> 8), 0};
    EXPECT_EQ(hex_bytes(expected), hex_bytes(list));
  }
  test_plan.blocks_per_command = 0;
}

TEST_F(DriveOperations, ModeSelectRefusedWithoutPageFormatGoesAgainWithItForTheRun) {
  OutputCapture capture;
  fake_script_check_condition(0x5, 0x24, 0x00);
  EXPECT_EQ(0, set_block_mode());
  EXPECT_EQ(0, set_block_mode());
  EXPECT_EQ((std::vector<std::string>{"15 00 00 00 0c 00", "15 10 00 00 0c 00", "15 10 00 00 0c 00"}),
            sent());
  reset_drive_operations();
  EXPECT_EQ(0, mode_select_page_format);
}

TEST_F(DriveOperations, FailuresPrintTheirLineAndTheStatusReport) {
  struct Case {
    const char* name;
    int (*operation)();
    const char* line;
  } cases[] = {
      {"rewind", [] { return rewind_tape(); },
       "\r\nrewinding tape\r\nERROR: unable to rewind tape at SCSI id 2 LUN 0\r\n"},
      {"mode select", [] { return set_block_mode(); },
       "ERROR: unable to \"mode select\" requested block mode at SCSI id 2 LUN 0\r\n"},
      {"mode sense", [] { return read_block_mode(); },
       "ERROR: unable to \"mode sense\" block mode at SCSI id 2 LUN 0\r\n"},
      {"filemarks", [] {
         uint8_t end = 0;
         return write_two_filemarks(&end);
       },
       "writing two filemarks\r\n"
       "ERROR: failure writing requested filemarks at SCSI id 2 LUN 0\r\n"},
      {"space", [] {
         uint8_t end = 0;
         return space_two_filemarks(&end);
       },
       "spacing two filemarks\r\n"
       "ERROR: failure spacing requested filemarks at SCSI id 2 LUN 0\r\n"},
  };
  for (const Case& c : cases) {
    OutputCapture capture;
    fake_script_check_condition(0x3, 0x11, 0x00);  // medium error
    EXPECT_EQ(-1, c.operation()) << c.name;
    std::string screen = capture.screen();
    size_t line = screen.find(c.line);
    ASSERT_NE(std::string::npos, line) << c.name << ": " << screen;
    EXPECT_EQ(line + std::string(c.line).size(), screen.find(kStatusStart)) << c.name;
    EXPECT_NE(std::string::npos, screen.find("SRB sense key .... 03 (medium error)\r\n"));
  }
}

TEST_F(DriveOperations, EndOfMediumAndBlankCheckEndTheTestWithoutFailing) {
  OutputCapture capture;
  uint8_t end_of_medium = 0;
  fake_script_check_condition(0x0, 0x00, 0x02, 0x40);
  EXPECT_EQ(0, write_two_filemarks(&end_of_medium));
  EXPECT_EQ(1, end_of_medium);
  end_of_medium = 0;
  fake_script_check_condition(0x8, 0x00, 0x05);
  EXPECT_EQ(0, space_two_filemarks(&end_of_medium));
  EXPECT_EQ(1, end_of_medium);
  EXPECT_EQ(
      "writing two filemarks\r\n"
      "hit \"EOM\" writing filemarks at SCSI id 2 LUN 0\r\n(aborting all write testing)\r\n"
      "spacing two filemarks\r\n"
      "hit \"blank check\" spacing filemarks at SCSI id 2 LUN 0\r\n"
      "(aborting all read testing)\r\n",
      capture.screen());
  EXPECT_EQ((std::vector<std::string>{"10 00 00 00 02 00", "11 01 00 00 02 00"}), sent());

  // EOM with VOLUME OVERFLOW is an ordinary failure.
  end_of_medium = 0;
  fake_script_check_condition(0xD, 0x00, 0x02, 0x40);
  EXPECT_EQ(-1, write_two_filemarks(&end_of_medium));
  EXPECT_EQ(0, end_of_medium);
}

TEST_F(DriveOperations, UnsupportedPreventAndLoadAreDroppedForTheRestOfTheRun) {
  OutputCapture capture;
  fake_script_check_condition(0x5, 0x20, 0x00);  // Prevent: invalid opcode
  fake_script_check_condition(0x5, 0x20, 0x00);  // Unload: invalid opcode
  EXPECT_EQ(0, unload_reload());
  EXPECT_EQ(0, removal_lock_step);
  EXPECT_EQ(0, load_unload_step);
  EXPECT_EQ(0, unload_reload());
  EXPECT_EQ(
      "\r\nunloading/reloading drive ...\r\n"
      "ERROR: \"load/unload\" command is not supported (aborting \"/uld\" option\r\n"
      "for SCSI id 2 LUN 0)\r\n"
      "\r\nunloading/reloading drive ...\r\n",
      capture.screen());
  EXPECT_EQ((std::vector<std::string>{"1e 00 00 00 01 00", "1b 00 00 00 00 00"}), sent());
}

TEST_F(DriveOperations, UnloadReloadWithoutMediumWaitsUntilReady) {
  OutputCapture capture;
  fake_script_check_condition(0x5, 0x20, 0x00);  // Prevent unsupported
  fake_script_reply(FakeReply{});                 // unload
  fake_script_check_condition(0x2, 0x3A, 0x00);  // load: medium not present
  EXPECT_EQ(0, unload_reload());
  EXPECT_EQ((std::vector<std::string>{"1e 00 00 00 01 00", "1b 00 00 00 00 00",
                                      "1b 00 00 00 01 00", "00 00 00 00 00 00"}),
            sent());
  EXPECT_EQ("\r\nunloading/reloading drive ...\r\n", capture.screen());
}

TEST_F(DriveOperations, OrdinaryFailuresOfUnloadReloadSkipTheAllow) {
  struct Case {
    std::vector<std::vector<uint8_t>> answers;  // sense key, ASC, ASCQ per failing command
    size_t commands;
    const char* line;
  } cases[] = {
      {{{0x5, 0x20, 0x01}}, 1, "ERROR: unable to prevent medium removal at SCSI id 2 LUN 0\r\n"},
      {{{}, {0x4, 0x44, 0x00}}, 2, "ERROR: unable to unload drive at SCSI id 2 LUN 0\r\n"},
      {{{}, {}, {0x2, 0x04, 0x00}}, 3, "ERROR: unable to load drive at SCSI id 2 LUN 0\r\n"},
  };
  for (const Case& c : cases) {
    fake_reset();
    fake_add_tape_drive(0, 0, 2, 0);
    ASSERT_EQ(0, scan_devices());
    for (const std::vector<uint8_t>& answer : c.answers) {
      if (answer.empty()) {
        fake_script_reply(FakeReply{});
      } else {
        fake_script_check_condition(answer[0], answer[1], answer[2]);
      }
    }
    OutputCapture capture;
    EXPECT_EQ(-1, unload_reload());
    EXPECT_EQ(c.commands, fake_requests().size());
    std::string expected = std::string("\r\nunloading/reloading drive ...\r\n") + c.line;
    EXPECT_EQ(expected, capture.screen().substr(0, expected.size()));
    EXPECT_EQ(1, removal_lock_step);
    EXPECT_EQ(1, load_unload_step);
  }
}

}  // namespace
