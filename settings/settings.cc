#include "settings/settings.h"
#include "settings/test_plan.h"

#include <cstring>

namespace {

TestSettings default_settings() {
  TestSettings s;
  std::memset(&s, 0, sizeof s);
  std::strcpy(s.output_file_name, "bftdtest.out");
  std::strcpy(s.output_file_mode, "wb");
  s.scsi_id = 2;
  s.iterations = 1;
  s.total_megabytes = 128.0;
  s.interval_megabytes = 128.0;
  s.logical_block_size = 0x400;
  s.max_transfer_length = 0x10000;
  s.drive_ordinal = -1;
  s.ready_wait_minutes = kDefaultReadyWaitMinutes;
  return s;
}

}  // namespace

TestSettings test_settings = default_settings();
uint16_t exit_code = 1;
TestPlan test_plan;

void reset_settings() {
  test_settings = default_settings();
  exit_code = 1;
}
