// Reads the answer of the Windows IOCTL_SCSI_GET_INQUIRY_DATA request: an
// SCSI_ADAPTER_BUS_INFO header with one SCSI_BUS_DATA entry per bus, each
// pointing at a chain of SCSI_INQUIRY_DATA records (one per logical unit)
// elsewhere in the same buffer. Plain byte arithmetic with explicit
// little-endian fields, so it builds and is tested on every system; the Win32
// platform checks these offsets against the SDK's own structures.
#pragma once

#include <cstddef>
#include <cstdint>

#include "transport/platform/platform.h"

// The output buffer the Win32 platform hands to the adapter.
constexpr size_t kAdapterInquiryBufferSize = 2048;

// SCSI_ADAPTER_BUS_INFO: NumberOfBuses, then the SCSI_BUS_DATA array, which
// its 32-bit field aligns at offset 4.
constexpr size_t kBusInfoNumberOfBuses = 0;
constexpr size_t kBusInfoBusData = 4;
// SCSI_BUS_DATA.
constexpr size_t kBusDataSize = 8;
constexpr size_t kBusDataNumberOfLogicalUnits = 0;
constexpr size_t kBusDataInitiatorBusId = 1;
constexpr size_t kBusDataInquiryDataOffset = 4;
// SCSI_INQUIRY_DATA: a 12-byte head followed by InquiryDataLength bytes.
constexpr size_t kInquiryDataPathId = 0;
constexpr size_t kInquiryDataTargetId = 1;
constexpr size_t kInquiryDataLun = 2;
constexpr size_t kInquiryDataDeviceClaimed = 3;
constexpr size_t kInquiryDataInquiryDataLength = 4;
constexpr size_t kInquiryDataNextInquiryDataOffset = 8;
constexpr size_t kInquiryDataInquiryData = 12;

// Walks the adapter's answer in `buffer` (`size` bytes, at most
// kAdapterInquiryBufferSize; offsets in it count from its first byte) and
// fills `inquiry`: `bus_count` is NumberOfBuses as the adapter gave it, and
// `units` lists the logical units bus by bus, each bus's chain in order, with
// up to 36 bytes of inquiry data each (`inquiry_length` says how many; the
// rest is zero).
//
// Damaged data is read as far as it can be trusted: a bus entry or a record
// that does not lie wholly inside the buffer ends the bus list or that chain,
// a chain that comes back to a record already read (a loop, or a chain shared
// with an earlier bus) ends there, inquiry data cut by the buffer's end is
// kept as far as it goes, and the walk stops at kMaxUnitsPerAdapter units.
// Returns 0, or -1 (with `inquiry` emptied) when `size` is 0 or above
// kAdapterInquiryBufferSize.
int walk_adapter_inquiry(const uint8_t* buffer, size_t size, AdapterInquiry* inquiry);
