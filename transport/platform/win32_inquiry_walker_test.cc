#include "transport/platform/win32_inquiry_walker.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

struct Bus {
  uint8_t units;
  uint32_t first_record;
};
struct Record {
  uint32_t offset;
  uint8_t path, target, lun, claimed, type;
  uint32_t next, inquiry_length;
};

// An adapter answer laid out as the port driver returns it: the bus table at
// the front, records wherever the case puts them; inquiry byte 0 is the
// device type, byte i is 0x40 + i.
std::vector<uint8_t> answer(uint8_t bus_count, const std::vector<Bus>& buses, const std::vector<Record>& records) {
  std::vector<uint8_t> bytes(kAdapterInquiryBufferSize, 0);
  auto put_le32 = [&](size_t at, uint32_t value) {
    for (size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<uint8_t>(value >> (8 * i));
  };
  bytes[kBusInfoNumberOfBuses] = bus_count;
  for (size_t b = 0; b < buses.size(); ++b) {
    size_t entry = kBusInfoBusData + b * kBusDataSize;
    bytes[entry + kBusDataNumberOfLogicalUnits] = buses[b].units;
    bytes[entry + kBusDataInitiatorBusId] = 7;
    put_le32(entry + kBusDataInquiryDataOffset, buses[b].first_record);
  }
  for (const Record& r : records) {
    bytes[r.offset + kInquiryDataPathId] = r.path;
    bytes[r.offset + kInquiryDataTargetId] = r.target;
    bytes[r.offset + kInquiryDataLun] = r.lun;
    bytes[r.offset + kInquiryDataDeviceClaimed] = r.claimed;
    put_le32(r.offset + kInquiryDataInquiryDataLength, r.inquiry_length);
    put_le32(r.offset + kInquiryDataNextInquiryDataOffset, r.next);
    for (uint32_t i = 0; i < r.inquiry_length && r.offset + 12 + i < bytes.size(); ++i)
      bytes[r.offset + 12 + i] = static_cast<uint8_t>(i == 0 ? r.type : 0x40 + i);
  }
  return bytes;
}

// "bus:target:lun claimed|free/type/inquiry length" for every unit, in walk order.
std::string walk(const std::vector<uint8_t>& bytes, size_t size = kAdapterInquiryBufferSize) {
  static AdapterInquiry inquiry;
  char line[64];
  if (walk_adapter_inquiry(bytes.data(), size, &inquiry) != 0) {
    std::snprintf(line, sizeof line, "refused, %u", inquiry.unit_count);
    return line;
  }
  if (inquiry.unit_count > 8) {
    std::snprintf(line, sizeof line, "%u units", inquiry.unit_count);
    return line;
  }
  std::snprintf(line, sizeof line, "%u buses:", inquiry.bus_count);
  std::string text = line;
  for (unsigned i = 0; i < inquiry.unit_count; ++i) {
    const LogicalUnitInfo& u = inquiry.units[i];
    std::snprintf(line, sizeof line, " %u:%u:%u %s/%u/%u", u.path_id, u.target_id, u.lun,
                  u.claimed ? "claimed" : "free", u.inquiry[0], u.inquiry_length);
    text += line;
    // Data beyond what the record holds reads as zero, never as the next record's bytes.
    for (unsigned b = 1; b < 36; ++b) {
      if (u.inquiry[b] == (b < u.inquiry_length ? 0x40 + b : 0)) continue;
      std::snprintf(line, sizeof line, " (byte %u wrong)", b);
      text += line;
    }
  }
  return text;
}

// Bus 0's chain starts with a sound tape at id 1 whose next record is `next`;
// bus 1 holds one tape at id 6.
std::string damaged_chain(uint32_t next) {
  return walk(answer(2, {{2, 0x100}, {1, 0x400}},
                     {{0x100, 0, 1, 0, 1, 1, next, 36}, {0x300, 0, 2, 0, 1, 1, 0x100, 36}, {0x400, 1, 6, 0, 0, 1, 0, 36}}));
}

TEST(Win32InquiryWalker, ReadsEveryChainOnlyAsFarAsItCanBeTrusted) {
  const std::string bus_one_only = "2 buses: 0:1:0 claimed/1/36 1:6:0 free/1/36";
  std::vector<uint8_t> overlapping = answer(1, {{1, 12}}, {});
  for (uint32_t at = 12; at + 12 <= kAdapterInquiryBufferSize; at += 4) {
    overlapping[at + kInquiryDataNextInquiryDataOffset] = static_cast<uint8_t>(at + 4);
    overlapping[at + kInquiryDataNextInquiryDataOffset + 1] = static_cast<uint8_t>((at + 4) >> 8);
  }
  std::vector<uint8_t> too_long = answer(1, {{1, 0x20}}, {{0x20, 0, 4, 0, 0, 1, 0, 36}});
  too_long.push_back(0);
  const struct {
    std::string got, expected;
  } cases[] = {
      {walk(answer(3, {{2, 0x100}, {0, 0}, {1, 0x60}},
                   {{0x100, 0, 3, 0, 1, 1, 0x200, 36}, {0x200, 0, 5, 1, 0, 0, 0, 36}, {0x60, 2, 4, 0, 0, 8, 0, 36}})),
       "3 buses: 0:3:0 claimed/1/36 0:5:1 free/0/36 2:4:0 free/8/36"},
      {walk(answer(0, {}, {})), "0 buses:"},
      {damaged_chain(0x300), "2 buses: 0:1:0 claimed/1/36 0:2:0 claimed/1/36 1:6:0 free/1/36"},
      {damaged_chain(2048), bus_one_only},             // just past the buffer
      {damaged_chain(0xFFFFFFF0u), bus_one_only},      // far outside
      {damaged_chain(2048 - 11), bus_one_only},        // head cut by the buffer's end
      {damaged_chain(0x100), bus_one_only},            // back to itself
      {damaged_chain(0x400), bus_one_only},            // into bus 1's chain
      {walk(answer(1, {{2, 0x80}}, {{0x80, 0, 1, 0, 0, 1, 0xC0, 36}, {0xC0, 0, 2, 0, 0, 1, 0x80, 36}})),
       "1 buses: 0:1:0 free/1/36 0:2:0 free/1/36"},  // a two-record loop is read once
      // Inquiry data cut to its field (96 -> 36), its own length (5) and the buffer (8 left).
      {walk(answer(1, {{3, 0x100}},
                   {{0x100, 0, 1, 0, 0, 1, 0x200, 96}, {0x200, 0, 2, 0, 0, 1, 0x214, 5},
                    {0x214, 0, 9, 0, 0, 1, 2048 - 20, 20}, {2048 - 20, 0, 3, 0, 0, 1, 0, 36}})),
       "1 buses: 0:1:0 free/1/36 0:2:0 free/1/5 0:9:0 free/1/20 0:3:0 free/1/8"},
      // A short answer: only the bus entries it holds; bus 1 shares the chain.
      {walk(answer(200, {{1, 0x20}, {1, 0x20}}, {{0x20, 0, 4, 0, 0, 1, 0, 8}}), 60), "200 buses: 0:4:0 free/1/8"},
      {walk(overlapping), std::to_string(kMaxUnitsPerAdapter) + " units"},
      {walk(too_long, too_long.size()), "refused, 0"},
      {walk(too_long, 0), "refused, 0"},
  };
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].expected, cases[i].got) << "case " << i;
}

}  // namespace
