// The device table over a small scripted platform: which adapters and tape
// devices the scan tries, which units it registers, and how handles are
// shared, aged and closed.
#include "transport/device_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "transport/scsi_transport.h"

namespace {

struct Unit {
  uint8_t adapter, bus, id, lun, type;
  bool claimed;  // then reached as \\.\TapeN, N counting the claimed units
};
std::vector<Unit> units;
std::vector<std::string> opens, closes;
// Opens of a name refused as in use before one is granted (another
// process's scan, or a real owner when it never ends).
std::map<std::string, int> refusals;

std::string scsi_name(unsigned n) { return "\\\\.\\Scsi" + std::to_string(n) + ":"; }
std::string tape_name(unsigned n) { return "\\\\.\\Tape" + std::to_string(n); }

uint32_t open_device(const char* name, PlatformHandle* handle) {
  opens.push_back(name);
  if (auto held = refusals.find(name); held != refusals.end() && held->second > 0) {
    --held->second;
    return kErrorSharingViolation;
  }
  unsigned tapes = 0;
  for (size_t i = 0; i < units.size(); ++i) {
    const Unit& u = units[i];
    bool match = u.claimed ? tape_name(tapes++) == name : scsi_name(u.adapter) == name;
    if (!match) continue;
    *handle = static_cast<PlatformHandle>(u.claimed ? 1000 + i : 100 + u.adapter);
    return kErrorNone;
  }
  return kErrorNotFound;
}

int query_adapter(PlatformHandle adapter, AdapterInquiry* inquiry) {
  std::memset(inquiry, 0, sizeof *inquiry);
  inquiry->bus_count = 2;
  for (const Unit& u : units) {
    if (100 + u.adapter != adapter) continue;
    LogicalUnitInfo& info = inquiry->units[inquiry->unit_count++];
    info = {u.bus, u.id, u.lun, u.claimed, 36, {u.type}};
  }
  return 0;
}

int query_tape_address(PlatformHandle tape, ScsiAddress* address) {
  const Unit& u = units[static_cast<size_t>(tape - 1000)];
  *address = {u.adapter, u.bus, u.id, u.lun};
  return 0;
}

void pass_through(PlatformHandle, const PassThroughRequest&, PassThroughReply& reply) { reply = {}; }
void close_device(PlatformHandle device) { closes.push_back(std::to_string(device)); }

const Platform kScripted = {"scripted",   open_device, query_adapter, query_tape_address, pass_through,
                            close_device, nullptr,     nullptr,       nullptr, nullptr, nullptr};

class DeviceTable : public ::testing::Test {
 protected:
  void SetUp() override { set_active_platform(&kScripted); }
  void TearDown() override {
    refusals.clear();
    reset_device_table();
    set_active_platform(nullptr);
  }
  void scan(std::vector<Unit> with) {
    reset_device_table();
    units = std::move(with);
    opens.clear();
    ASSERT_EQ(0, scan_devices());
    closes.clear();
  }
  PlatformHandle handle_of(uint8_t adapter, uint8_t id) {
    set_adapter(adapter);
    set_bus(0);
    set_target_id(id);
    set_lun(0);
    return get_device_handle();
  }
};

TEST_F(DeviceTable, ScanTriesAdaptersZeroToNineAndRegistersTapeDrivesAndUnclaimedChangers) {
  scan({{0, 0, 0, 0, 0x00, false}, {0, 0, 1, 0, 0x05, false}, {0, 0, 2, 0, 0x08, true},
        {0, 0, 3, 0, 0x08, false}, {2, 1, 4, 2, 0x01, false}, {2, 0, 6, 0, 0x01, true}});
  ASSERT_EQ(3, device_count);
  EXPECT_EQ(3, device_table[0].target_id);
  EXPECT_EQ(2, device_table[1].adapter);
  EXPECT_EQ(1, device_table[1].bus);
  EXPECT_EQ(2, device_table[1].lun);
  EXPECT_STREQ("\\\\.\\Scsi2:", device_table[1].record->name);
  EXPECT_STREQ("\\\\.\\Tape1", device_table[2].record->name);  // the claimed drive, through its tape device
  EXPECT_EQ(11, std::count_if(opens.begin(), opens.end(), [](auto& n) { return n.rfind("\\\\.\\Scsi", 0) == 0; }));
  EXPECT_EQ(scsi_name(10), opens[10]);  // 10 is missing and ends the adapter scan

  std::vector<Unit> many;
  for (uint8_t adapter = 0; adapter < 5; ++adapter) {
    for (uint8_t id = 0; id < 16; ++id) many.push_back({adapter, 0, id, 0, 0x01, false});
  }
  scan(many);
  EXPECT_EQ(64, device_count);
  EXPECT_NE(kInvalidPlatformHandle, handle_of(3, 15));
  EXPECT_EQ(kInvalidPlatformHandle, handle_of(4, 0));
}

TEST_F(DeviceTable, OneAdapterHandleIsSharedOpenedOnceAgedAndClosedWhenIdle) {
  scan({{0, 0, 1, 0, 0x01, false}, {0, 0, 2, 0, 0x01, false}});
  ASSERT_EQ(device_table[0].record, device_table[1].record);
  const size_t opens_after_scan = opens.size();
  EXPECT_EQ(handle_of(0, 1), handle_of(0, 2));
  EXPECT_EQ(opens_after_scan + 1, opens.size());
  close_device_handles();
  EXPECT_EQ(1u, closes.size());

  scan({{0, 0, 1, 0, 0x01, false}, {1, 0, 1, 0, 0x01, false}});
  DeviceHandle* first = device_table[0].record;
  DeviceHandle* second = device_table[1].record;
  handle_of(0, 1);
  EXPECT_EQ(1, first->age);
  for (int i = 0; i < 120; ++i) handle_of(0, 1);
  EXPECT_EQ(100, first->age);  // ages up to one hundred

  handle_of(1, 1);
  EXPECT_EQ(2, open_handle_count);
  EXPECT_EQ(99, first->age);
  EXPECT_EQ(2, second->age);
  for (int i = 0; i < 109; ++i) handle_of(1, 1);
  EXPECT_EQ(-10, first->age);
  EXPECT_NE(kInvalidPlatformHandle, first->handle);
  handle_of(1, 1);  // below -10: the idle handle closes
  EXPECT_EQ(kInvalidPlatformHandle, first->handle);
  EXPECT_EQ(std::vector<std::string>{"100"}, closes);
  EXPECT_EQ(1, open_handle_count);
  handle_of(0, 1);  // reopened, its negative age restarts
  EXPECT_EQ(2, first->age);

  close_device_handles();
  EXPECT_EQ(3u, closes.size());  // each open handle once
  EXPECT_EQ(0, open_handle_count);
}

TEST_F(DeviceTable, ANodeHeldForAMomentByAnotherScanIsAskedAgainOneHeldForGoodIsNot) {
  // Another run's scan holds the drive's tape node while this one scans and
  // then while it opens the drive: both wait it out.
  refusals[tape_name(0)] = 3;
  scan({{0, 0, 1, 0, 0x00, false}, {0, 0, 4, 0, 0x01, true}});  // a disk makes adapter 0 answer
  ASSERT_EQ(1, device_count);
  ASSERT_NE(nullptr, device_table[0].record);
  refusals[tape_name(0)] = 5;
  EXPECT_NE(kInvalidPlatformHandle, handle_of(0, 4));
  close_device_handles();

  // A drive that another program holds stays held: refused, as in use.
  refusals[tape_name(0)] = 1000000;
  EXPECT_EQ(kInvalidPlatformHandle, handle_of(0, 4));
  EXPECT_EQ(kErrorSharingViolation, scsi_transport.result.win32_error);
  EXPECT_GT(refusals[tape_name(0)], 1000000 - 100);  // asked again for a moment only
}

}  // namespace
