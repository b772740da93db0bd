#include "engine/transfer_loops.h"

#include <gtest/gtest.h>

#include "engine/progress_estimate.h"
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

// A clock that moves `fake_step_ms` at every reading.
uint32_t fake_clock_ms = 0;
uint32_t fake_step_ms = 0;
uint32_t fake_clock() { return fake_clock_ms += fake_step_ms; }

// Off a terminal the "N MB" count comes at most once a minute, each on a line
// of its own; on a terminal after every whole MB, overwritten in place. With
// /eta a line of time left takes its place: on a terminal each one padded
// over the one before (here "12:13:20" becomes "9:..." at MB 4) and wiped at
// the end of the loop.
TEST(Progress, OnATerminalEveryMegabyteOffItOneLineAMinute) {
  const struct {
    ProgressStyle style;
    bool eta;
    uint32_t step_ms;
    const char* screen;
  } cases[] = {
      {ProgressStyle::overwrite, false, 20000, "1 MB\r2 MB\r3 MB\r4 MB\r5 MB\r6 MB\r"},
      // The style is set at 20 s, the loop starts at 40 s, MB n is counted at 40 + 20n s.
      {ProgressStyle::minutely, false, 20000, "2 MB\r\n5 MB\r\n"},
      // 4000 s a MB; 6 MB to write, then as many to read at the same rate.
      {ProgressStyle::overwrite, true, 4000000,
       "1 of 6 MB (16%)  0.0 MB/s  5:33:20 left | test 8%  12:13:20 left\r"
       "2 of 6 MB (33%)  0.0 MB/s  4:26:40 left | test 16%  11:06:40 left\r"
       "3 of 6 MB (50%)  0.0 MB/s  3:20:00 left | test 25%  10:00:00 left\r"
       "4 of 6 MB (66%)  0.0 MB/s  2:13:20 left | test 33%  8:53:20 left \r"
       "5 of 6 MB (83%)  0.0 MB/s  1:06:40 left | test 41%  7:46:40 left\r"
       "6 of 6 MB (100%)  0.0 MB/s  0:00:00 left | test 50%  6:40:00 left\r"
       "                                                                 \r"},
      {ProgressStyle::minutely, true, 20000,
       "2 of 6 MB (33%)  0.1 MB/s  0:01:20 left | test 16%  0:03:20 left\r\n"
       "5 of 6 MB (83%)  0.1 MB/s  0:00:20 left | test 41%  0:02:20 left\r\n"},
  };
  for (const auto& c : cases) {
    reset_program_state();
    test_settings.virtual_drive_enabled = 1;
    test_settings.max_transfer_length = 0x100000;
    test_settings.total_megabytes = 6;
    test_settings.eta_enabled = c.eta ? 1 : 0;
    ASSERT_EQ(0, vtape_configure(nullptr));
    set_active_platform(vtape_platform());
    ASSERT_EQ(0, start_transport(nullptr));
    ASSERT_EQ(0, set_target_id(test_settings.scsi_id));
    scsi_test_unit_ready();  // takes the power-on unit attention
    ASSERT_EQ(0, size_test());
    (void)screen_of([] { EXPECT_EQ(0, set_block_mode()); });
    ASSERT_EQ(0, set_rw_buffer(data_buffer_1, test_settings.max_transfer_length));
    eta_begin_test();
    eta_begin_pass(1, false);
    set_loop_clock(fake_clock);
    fake_clock_ms = 0;
    fake_step_ms = c.step_ms;
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
