#include "transport/platform/win32_inquiry_walker.h"

#include <bitset>
#include <cstring>

namespace {

uint32_t read_le32(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// Copies the record at `offset` (whose head is known to fit) into `unit`.
void read_unit(const uint8_t* buffer, size_t size, size_t offset, LogicalUnitInfo* unit) {
  const uint8_t* record = buffer + offset;
  *unit = LogicalUnitInfo{};
  unit->path_id = record[kInquiryDataPathId];
  unit->target_id = record[kInquiryDataTargetId];
  unit->lun = record[kInquiryDataLun];
  unit->claimed = record[kInquiryDataDeviceClaimed];
  size_t length = read_le32(record + kInquiryDataInquiryDataLength);
  size_t available = size - offset - kInquiryDataInquiryData;
  if (length > available) length = available;
  if (length > sizeof unit->inquiry) length = sizeof unit->inquiry;
  std::memcpy(unit->inquiry, record + kInquiryDataInquiryData, length);
  unit->inquiry_length = static_cast<uint8_t>(length);
}

}  // namespace

int walk_adapter_inquiry(const uint8_t* buffer, size_t size, AdapterInquiry* inquiry) {
  inquiry->bus_count = 0;
  inquiry->unit_count = 0;
  if (buffer == nullptr || size == 0 || size > kAdapterInquiryBufferSize) return -1;

  std::bitset<kAdapterInquiryBufferSize> visited;  // record offsets already read
  inquiry->bus_count = buffer[kBusInfoNumberOfBuses];
  for (unsigned bus = 0; bus < inquiry->bus_count; ++bus) {
    size_t entry = kBusInfoBusData + bus * kBusDataSize;
    if (entry + kBusDataSize > size) break;
    size_t offset = read_le32(buffer + entry + kBusDataInquiryDataOffset);
    while (offset != 0) {
      if (offset >= size || size - offset < kInquiryDataInquiryData) break;
      if (visited[offset]) break;
      if (inquiry->unit_count == kMaxUnitsPerAdapter) return 0;
      visited[offset] = true;
      read_unit(buffer, size, offset, &inquiry->units[inquiry->unit_count]);
      ++inquiry->unit_count;
      offset = read_le32(buffer + offset + kInquiryDataNextInquiryDataOffset);
    }
  }
  return 0;
}
