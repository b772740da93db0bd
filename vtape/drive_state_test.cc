// The virtual drive's speed: what the native rate, the host-side ceiling and
// 0 for either make of one transfer, and the ceiling holding on Write(6) and
// Read(6) commands of null data, which the drive compresses to almost nothing.
#include "vtape/drive_state.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "vtape/commands.h"

namespace {

constexpr uint64_t kMiB = 1048576;

TEST(Throttle, NativeRateAndHostCeilingSetEachTransfersTime) {
  const struct {
    const char* name;
    uint32_t rate_mb_s;
    uint32_t host_rate_mb_s;
    uint64_t tape_bytes;
    uint64_t host_bytes;
    double ms;
  } rows[] = {
      {"incompressible data at the native rate", 400, 1000, 400 * kMiB, 400 * kMiB, 1000.0},
      {"2:1 data at the native rate, below the ceiling", 400, 1000, 200 * kMiB, 400 * kMiB, 500.0},
      {"null data held at the host ceiling", 400, 1000, kMiB, 1000 * kMiB, 1000.0},
      {"host_rate_mb_s 0: no ceiling", 400, 0, kMiB, 1000 * kMiB, 2.5},
      {"rate_mb_s 0: the ceiling alone", 0, 1000, kMiB, 500 * kMiB, 500.0},
      {"both 0: unthrottled", 0, 0, kMiB, 1000 * kMiB, 0.0},
  };
  for (const auto& row : rows) {
    VtapeDescription description;
    default_vtape_description(&description);
    description.rate_mb_s = row.rate_mb_s;
    description.host_rate_mb_s = row.host_rate_mb_s;
    EXPECT_DOUBLE_EQ(row.ms, transfer_ms(description, row.tape_bytes, row.host_bytes, 1)) << row.name;
  }
}

// 16 MiB of zeros written and read back in 1 MiB records on a drive of
// 400 MB/s native whose host side moves at most 64 MB/s: each pass takes at
// least 250 ms. The host pauses between the passes (as it does to collect
// the drive's status); after the rewind the read pass starts streaming
// anew and makes up none of that pause. Only lower bounds are checked; a
// busy machine makes the passes slower, never faster.
TEST(Throttle, NullDataMovesNoFasterThanTheHostCeiling) {
  static VirtualDrive drive;
  VtapeDescription description;
  default_vtape_description(&description);
  description.rate_mb_s = 400;
  description.host_rate_mb_s = 64;
  power_on_drive(&drive, description);
  std::vector<uint8_t> data(kMiB, 0);
  uint8_t sense[kSenseAreaSize] = {};
  PassThroughRequest request{};
  request.cdb_length = 6;
  request.cdb[2] = static_cast<uint8_t>(kMiB >> 16);  // variable block mode, one 1 MiB record
  request.data = data.data();
  request.data_length = static_cast<uint32_t>(kMiB);
  request.sense = sense;
  auto pass_ms = [&](uint8_t operation_code, CommandHandler handler) {
    request.cdb[0] = operation_code;
    request.direction = operation_code == 0x0A ? DataDirection::out : DataDirection::in;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 16; ++i) {
      CommandAnswer answer;
      start_answer(&answer);
      handler(&drive, request, &answer);
      EXPECT_EQ(kMiB, answer.transferred);
    }
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  };
  EXPECT_GE(pass_ms(0x0A, write6), 250.0) << "Write(6)";
  EXPECT_LT(drive.counters.tape_bytes_written, kMiB) << "the zeros compress to almost nothing";
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  CommandAnswer answer;
  start_answer(&answer);
  rewind(&drive, request, &answer);
  EXPECT_GE(pass_ms(0x08, read6), 250.0) << "Read(6)";
}

}  // namespace
