#include "engine/transfer_loops.h"

#include <gtest/gtest.h>

#include "engine/sizing.h"
#include "run/run_sequence.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "tape/drive_operations.h"
#include "testing/screen_capture.h"
#include "transport/platform/platform.h"
#include "transport/scsi_transport.h"
#include "transport/transport_lifecycle.h"
#include "vtape/virtual_drive.h"

namespace {

// A clock that moves 20 seconds at every reading.
uint32_t fake_clock_ms = 0;
uint32_t twenty_seconds_a_reading() { return fake_clock_ms += 20000; }

// Off a terminal the "N MB" count comes at most once a minute, each on a line
// of its own; on a terminal after every whole MB, overwritten in place.
TEST(Progress, OnATerminalEveryMegabyteOffItOneLineAMinute) {
  const struct {
    ProgressStyle style;
    const char* screen;
  } cases[] = {
      {ProgressStyle::overwrite, "1 MB\r2 MB\r3 MB\r4 MB\r5 MB\r6 MB\r"},
      // The style is set at 20 s, the loop starts at 40 s, MB n is counted at 40 + 20n s.
      {ProgressStyle::minutely, "2 MB\r\n5 MB\r\n"},
  };
  set_loop_clock(twenty_seconds_a_reading);
  for (const auto& c : cases) {
    reset_program_state();
    test_settings.virtual_drive_enabled = 1;
    test_settings.max_transfer_length = 0x100000;
    test_settings.total_megabytes = 6;
    ASSERT_EQ(0, vtape_configure(nullptr));
    set_active_platform(vtape_platform());
    ASSERT_EQ(0, start_transport(nullptr));
    ASSERT_EQ(0, set_target_id(test_settings.scsi_id));
    scsi_test_unit_ready();  // takes the power-on unit attention
    ASSERT_EQ(0, size_test());
    (void)screen_of([] { EXPECT_EQ(0, set_block_mode()); });
    ASSERT_EQ(0, set_rw_buffer(data_buffer_1, test_settings.max_transfer_length));
    fake_clock_ms = 0;
    set_progress_style(c.style);
    uint32_t commands = 6;
    double elapsed = 0.0;
    uint8_t end_of_medium = 0;
    EXPECT_EQ(c.screen, screen_of([&] {
                EXPECT_EQ(0, run_write_loop(test_plan.blocks_per_command, &commands, &elapsed, &end_of_medium));
              }));
    shutdown_transport();
    release_buffer(&data_buffer_1);
    release_buffer(&data_buffer_2);
  }
  set_progress_style(ProgressStyle::overwrite);
  set_loop_clock(nullptr);
  set_active_platform(nullptr);
}

}  // namespace
