#include "transport/platform/win32_inquiry_walker.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// An adapter answer laid out as the port driver returns it: the bus table at
// the front, records wherever the test puts them.
struct AnswerBuffer {
  std::vector<uint8_t> bytes = std::vector<uint8_t>(kAdapterInquiryBufferSize, 0);

  void put_le32(size_t offset, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
  }
  void set_buses(uint8_t count) { bytes[kBusInfoNumberOfBuses] = count; }
  void set_bus(unsigned bus, uint8_t units, uint32_t first_record) {
    size_t entry = kBusInfoBusData + bus * kBusDataSize;
    bytes[entry + kBusDataNumberOfLogicalUnits] = units;
    bytes[entry + kBusDataInitiatorBusId] = 7;
    put_le32(entry + kBusDataInquiryDataOffset, first_record);
  }
  // A record with standard inquiry data of `inquiry_length` bytes: byte 0
  // the peripheral device type, then a recognisable count.
  void set_record(uint32_t offset, uint8_t path, uint8_t target, uint8_t lun, uint8_t claimed,
                  uint8_t device_type, uint32_t next, uint32_t inquiry_length = 36) {
    bytes[offset + kInquiryDataPathId] = path;
    bytes[offset + kInquiryDataTargetId] = target;
    bytes[offset + kInquiryDataLun] = lun;
    bytes[offset + kInquiryDataDeviceClaimed] = claimed;
    put_le32(offset + kInquiryDataInquiryDataLength, inquiry_length);
    put_le32(offset + kInquiryDataNextInquiryDataOffset, next);
    for (uint32_t i = 0; i < inquiry_length && offset + 12 + i < bytes.size(); ++i)
      bytes[offset + 12 + i] = static_cast<uint8_t>(i == 0 ? device_type : 0x40 + i);
  }
};

// "bus:target:lun claimed/type" for every unit, in walk order.
std::string describe(const AdapterInquiry& inquiry) {
  std::string text;
  for (unsigned i = 0; i < inquiry.unit_count; ++i) {
    const LogicalUnitInfo& unit = inquiry.units[i];
    text += std::to_string(unit.path_id) + ":" + std::to_string(unit.target_id) + ":" +
            std::to_string(unit.lun) + (unit.claimed ? " claimed/" : " free/") +
            std::to_string(unit.inquiry[0]) + " ";
  }
  return text;
}

AdapterInquiry walk(const AnswerBuffer& answer, size_t size = kAdapterInquiryBufferSize) {
  static AdapterInquiry inquiry;
  EXPECT_EQ(0, walk_adapter_inquiry(answer.bytes.data(), size, &inquiry));
  return inquiry;
}

TEST(Win32InquiryWalker, ListsEveryBusChainInOrderWithItsInquiryData) {
  AnswerBuffer answer;
  answer.set_buses(3);
  answer.set_bus(0, 2, 0x100);
  answer.set_bus(1, 0, 0);  // a bus without devices
  answer.set_bus(2, 1, 0x60);
  answer.set_record(0x100, 0, 3, 0, 1, 0x01, 0x200);  // claimed tape drive
  answer.set_record(0x200, 0, 5, 1, 0, 0x00, 0);      // disk
  answer.set_record(0x60, 2, 4, 0, 0, 0x08, 0);       // medium changer, before bus 0's records
  AdapterInquiry inquiry = walk(answer);

  EXPECT_EQ(3, inquiry.bus_count);
  EXPECT_EQ("0:3:0 claimed/1 0:5:1 free/0 2:4:0 free/8 ", describe(inquiry));
  EXPECT_EQ(36, inquiry.units[0].inquiry_length);
  EXPECT_EQ(0x41, inquiry.units[0].inquiry[1]);
  EXPECT_EQ(0x40 + 35, inquiry.units[0].inquiry[35]);
}

TEST(Win32InquiryWalker, EmptyAdapterHasNoUnits) {
  AnswerBuffer answer;
  EXPECT_EQ("", describe(walk(answer)));
  EXPECT_EQ(0, walk(answer).bus_count);
}

// Each case damages the chain of bus 0, whose first record (tape at id 1)
// is sound; what comes after the damage must not be read.
TEST(Win32InquiryWalker, DamagedChainsAreReadOnlyAsFarAsTheyCanBeTrusted) {
  struct Case {
    const char* name;
    uint32_t next_of_first;  // where the first record points
    std::string expected;
  };
  const Case cases[] = {
      {"sound chain", 0x300, "0:1:0 claimed/1 0:2:0 claimed/1 1:6:0 free/1 "},
      {"just past the buffer", 2048, "0:1:0 claimed/1 1:6:0 free/1 "},
      {"far outside", 0xFFFFFFF0u, "0:1:0 claimed/1 1:6:0 free/1 "},
      {"head cut by the buffer's end", 2048 - 11, "0:1:0 claimed/1 1:6:0 free/1 "},
      {"back to itself", 0x100, "0:1:0 claimed/1 1:6:0 free/1 "},
      {"into bus 1's chain", 0x400, "0:1:0 claimed/1 1:6:0 free/1 "},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    AnswerBuffer answer;
    answer.set_buses(2);
    answer.set_bus(0, 2, 0x100);
    answer.set_bus(1, 1, 0x400);
    answer.set_record(0x100, 0, 1, 0, 1, 0x01, test.next_of_first);
    answer.set_record(0x300, 0, 2, 0, 1, 0x01, 0x100);  // points back: a loop when reached
    answer.set_record(0x400, 1, 6, 0, 0, 0x01, 0);
    EXPECT_EQ(test.expected, describe(walk(answer)));
  }
}

TEST(Win32InquiryWalker, TwoRecordLoopIsReadOnce) {
  AnswerBuffer answer;
  answer.set_buses(1);
  answer.set_bus(0, 2, 0x80);
  answer.set_record(0x80, 0, 1, 0, 0, 0x01, 0x90);
  answer.set_record(0x90, 0, 2, 0, 0, 0x01, 0x80);
  EXPECT_EQ("0:1:0 free/1 0:2:0 free/1 ", describe(walk(answer)));
}

TEST(Win32InquiryWalker, InquiryDataIsCutToItsFieldAndToTheBuffer) {
  AnswerBuffer answer;
  answer.set_buses(1);
  answer.set_bus(0, 3, 0x100);
  answer.set_record(0x100, 0, 1, 0, 0, 0x01, 0x200, 96);     // longer than the 36 kept
  answer.set_record(0x200, 0, 2, 0, 0, 0x01, 2048 - 20, 5);  // short, followed by other bytes
  for (size_t i = 0x200 + 12 + 5; i < 0x240; ++i) answer.bytes[i] = 0xEE;
  answer.set_record(2048 - 20, 0, 3, 0, 0, 0x01, 0, 36);    // runs past the end: 8 bytes left
  AdapterInquiry inquiry = walk(answer);

  ASSERT_EQ(3, inquiry.unit_count);
  EXPECT_EQ(36, inquiry.units[0].inquiry_length);
  EXPECT_EQ(5, inquiry.units[1].inquiry_length);
  EXPECT_EQ(0x44, inquiry.units[1].inquiry[4]);
  EXPECT_EQ(0, inquiry.units[1].inquiry[5]);  // past its data: zero, not the next record's
  EXPECT_EQ(8, inquiry.units[2].inquiry_length);
  EXPECT_EQ(0x47, inquiry.units[2].inquiry[7]);
  EXPECT_EQ(0, inquiry.units[2].inquiry[8]);
}

TEST(Win32InquiryWalker, ShortAnswerReadsOnlyTheBusEntriesItHolds) {
  AnswerBuffer answer;
  answer.set_buses(200);  // far more than 60 bytes can describe
  answer.set_bus(0, 1, 0x20);
  answer.set_record(0x20, 0, 4, 0, 0, 0x01, 0, 8);
  answer.set_bus(1, 1, 0x20);
  AdapterInquiry inquiry = walk(answer, 60);
  EXPECT_EQ(200, inquiry.bus_count);
  EXPECT_EQ("0:4:0 free/1 ", describe(inquiry));  // bus 1 shares the chain: read once
}

TEST(Win32InquiryWalker, OverlappingChainStopsAtTheUnitLimit) {
  // Records 4 bytes apart, each pointing at the next: over 500 distinct
  // offsets, more than the unit list holds.
  AnswerBuffer answer;
  answer.set_buses(1);
  answer.set_bus(0, 1, 12);
  for (uint32_t offset = 12; offset + 12 <= kAdapterInquiryBufferSize; offset += 4)
    answer.put_le32(offset + kInquiryDataNextInquiryDataOffset, offset + 4);
  AdapterInquiry inquiry = walk(answer);
  EXPECT_EQ(kMaxUnitsPerAdapter, inquiry.unit_count);
}

TEST(Win32InquiryWalker, RefusesBuffersOfNoOrTooGreatSize) {
  AnswerBuffer answer;
  answer.bytes.resize(kAdapterInquiryBufferSize + 1);
  answer.set_buses(1);
  answer.set_bus(0, 1, 0x20);
  answer.set_record(0x20, 0, 4, 0, 0, 0x01, 0);
  AdapterInquiry inquiry;
  EXPECT_EQ(-1, walk_adapter_inquiry(answer.bytes.data(), 0, &inquiry));
  EXPECT_EQ(0, inquiry.unit_count);
  EXPECT_EQ(-1, walk_adapter_inquiry(answer.bytes.data(), answer.bytes.size(), &inquiry));
  EXPECT_EQ(0, inquiry.unit_count);
}

}  // namespace
