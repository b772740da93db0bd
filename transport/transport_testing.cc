#include "transport/transport_testing.h"

#include <cstdio>

#include "tape/command_blocks.h"
#include "tape/drive_operations.h"
#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "transport/executor.h"
#include "transport/scsi_transport.h"

namespace {

void reset_transport_state() {
  reset_device_table();
  free_command_buffers();
  reset_scsi_transport();
  reset_executor();
  reset_rw_buffer();
  reset_drive_operations();
}

}  // namespace

void FakeTransportTest::SetUp() {
  fake_reset();
  set_active_platform(fake_platform());
  reset_transport_state();
  ASSERT_EQ(0, init_command_buffers());
}

void FakeTransportTest::TearDown() {
  reset_transport_state();
  set_active_platform(nullptr);
  fake_reset();
}

std::string hex_bytes(const std::vector<uint8_t>& bytes) {
  std::string text;
  for (uint8_t byte : bytes) {
    char group[4];
    std::snprintf(group, sizeof group, "%s%02x", text.empty() ? "" : " ",
                  static_cast<unsigned>(byte));
    text += group;
  }
  return text;
}
