// Fuzzes the walker of the Windows adapter inquiry answer
// (IOCTL_SCSI_GET_INQUIRY_DATA): bus entries and record chains with any
// offsets, lengths, loops and cuts. The answer lies in a buffer of exactly
// its size, so any read past it is caught.
#include <cstring>
#include <memory>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "transport/platform/win32_inquiry_walker.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_prepare();
  std::vector<uint8_t> buffer(data, data + size);
  static AdapterInquiry inquiry;
  std::memset(&inquiry, 0xA5, sizeof inquiry);
  int result = walk_adapter_inquiry(buffer.empty() ? nullptr : buffer.data(), size, &inquiry);

  if (size == 0 || size > kAdapterInquiryBufferSize) {
    fuzz_check(result == -1 && inquiry.unit_count == 0, "an empty or oversized answer is refused");
    return 0;
  }
  fuzz_check(result == 0, "an answer of a valid size is walked");
  fuzz_check(inquiry.bus_count == buffer[0], "the bus count is the adapter's");
  fuzz_check(inquiry.unit_count <= kMaxUnitsPerAdapter, "at most 256 units");
  // Each unit is a record head (12 bytes) at its own non-zero offset in the
  // buffer: no record is read twice, so loops end.
  fuzz_check(size < 13 ? inquiry.unit_count == 0 : inquiry.unit_count <= size - 12,
             "units stand for distinct records");
  for (unsigned i = 0; i < inquiry.unit_count; ++i) {
    const LogicalUnitInfo& unit = inquiry.units[i];
    fuzz_check(unit.inquiry_length <= sizeof unit.inquiry, "inquiry data fits its field");
    for (unsigned j = unit.inquiry_length; j < sizeof unit.inquiry; ++j) {
      fuzz_check(unit.inquiry[j] == 0, "inquiry data beyond its length is zero");
    }
  }
  return 0;
}
