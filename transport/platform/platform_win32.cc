// Windows platform: the SCSI port driver's pass-through interface, reached
// through the adapter devices ("\\.\ScsiN:") and the tape class driver's
// devices ("\\.\TapeN"). Structures and request codes come from the SDK's
// ntddscsi.h (as shipped with MinGW-w64 and with MSVC); this file only fills
// requests and reports the answers, the executor judges them.
#include "transport/platform/platform.h"

#include <windows.h>
#include <winioctl.h>
#include <ntddscsi.h>

#include <cstddef>
#include <cstring>

#include "transport/platform/win32_inquiry_walker.h"

namespace {

// The request codes the program relies on.
static_assert(IOCTL_SCSI_GET_INQUIRY_DATA == 0x4100C);
static_assert(IOCTL_SCSI_GET_ADDRESS == 0x41018);
static_assert(IOCTL_SCSI_PASS_THROUGH_DIRECT == 0x4D014);
static_assert(SCSI_IOCTL_DATA_OUT == static_cast<int>(DataDirection::out));
static_assert(SCSI_IOCTL_DATA_IN == static_cast<int>(DataDirection::in));

// The inquiry-data walker reads the adapter's answer by byte offsets; they
// must be the SDK's.
static_assert(offsetof(SCSI_ADAPTER_BUS_INFO, NumberOfBuses) == kBusInfoNumberOfBuses);
static_assert(offsetof(SCSI_ADAPTER_BUS_INFO, BusData) == kBusInfoBusData);
static_assert(sizeof(SCSI_BUS_DATA) == kBusDataSize);
static_assert(offsetof(SCSI_BUS_DATA, NumberOfLogicalUnits) == kBusDataNumberOfLogicalUnits);
static_assert(offsetof(SCSI_BUS_DATA, InitiatorBusId) == kBusDataInitiatorBusId);
static_assert(offsetof(SCSI_BUS_DATA, InquiryDataOffset) == kBusDataInquiryDataOffset);
static_assert(offsetof(SCSI_INQUIRY_DATA, PathId) == kInquiryDataPathId);
static_assert(offsetof(SCSI_INQUIRY_DATA, TargetId) == kInquiryDataTargetId);
static_assert(offsetof(SCSI_INQUIRY_DATA, Lun) == kInquiryDataLun);
static_assert(offsetof(SCSI_INQUIRY_DATA, DeviceClaimed) == kInquiryDataDeviceClaimed);
static_assert(offsetof(SCSI_INQUIRY_DATA, InquiryDataLength) == kInquiryDataInquiryDataLength);
static_assert(offsetof(SCSI_INQUIRY_DATA, NextInquiryDataOffset) ==
              kInquiryDataNextInquiryDataOffset);
static_assert(offsetof(SCSI_INQUIRY_DATA, InquiryData) == kInquiryDataInquiryData);
static_assert(sizeof(SCSI_ADDRESS) == 8);

// IO_SCSI_CAPABILITIES: five ULONGs, then three BOOLEANs.
static_assert(IOCTL_SCSI_GET_CAPABILITIES == 0x41010);
static_assert(offsetof(IO_SCSI_CAPABILITIES, Length) == 0);
static_assert(offsetof(IO_SCSI_CAPABILITIES, MaximumTransferLength) == 4);
static_assert(offsetof(IO_SCSI_CAPABILITIES, MaximumPhysicalPages) == 8);
static_assert(offsetof(IO_SCSI_CAPABILITIES, AlignmentMask) == 16);
static_assert(sizeof(IO_SCSI_CAPABILITIES) == 24);

// The direct pass-through request as the port driver takes it: the record,
// then a filler that keeps the sense area 32-bit aligned, then the sense area.
// The record is the native one of the build: a 32-bit program sends the
// 44-byte layout (sense area at 48, 304 bytes in all), a 64-bit program the
// 56-byte layout of 64-bit Windows, whose 8-byte DataBuffer pointer sits at
// 24 (sense area at 60, 316 bytes up to its end).
struct PassThroughDirectWithSense {
  SCSI_PASS_THROUGH_DIRECT record;
  ULONG filler;
  UCHAR sense[kSenseAreaSize];
};

constexpr DWORD kPassThroughOutputSize =
    static_cast<DWORD>(offsetof(PassThroughDirectWithSense, sense) + kSenseAreaSize);

static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, Length) == 0);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, ScsiStatus) == 2);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, PathId) == 3);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, TargetId) == 4);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, Lun) == 5);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, CdbLength) == 6);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, SenseInfoLength) == 7);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, DataIn) == 8);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, DataTransferLength) == 12);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, TimeOutValue) == 16);
#if defined(_WIN64)
static_assert(sizeof(void*) == 8);
static_assert(sizeof(SCSI_PASS_THROUGH_DIRECT) == 56);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, DataBuffer) == 24);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, SenseInfoOffset) == 32);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, Cdb) == 36);
static_assert(offsetof(PassThroughDirectWithSense, sense) == 60);
static_assert(kPassThroughOutputSize == 316);
#else
static_assert(sizeof(void*) == 4);
static_assert(sizeof(SCSI_PASS_THROUGH_DIRECT) == 44);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, DataBuffer) == 20);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, SenseInfoOffset) == 24);
static_assert(offsetof(SCSI_PASS_THROUGH_DIRECT, Cdb) == 28);
static_assert(offsetof(PassThroughDirectWithSense, sense) == 48);
static_assert(kPassThroughOutputSize == 304);
#endif
static_assert(sizeof(SCSI_PASS_THROUGH_DIRECT::Cdb) == 16);

HANDLE to_win32(PlatformHandle handle) { return reinterpret_cast<HANDLE>(handle); }

// The one translation from a Win32 call's outcome to the platform's error
// code; call it right after the Win32 call, while GetLastError still holds
// that call's code. The platform's codes are Win32 codes, so a failure keeps
// its own; a failed call that left no code must still read as a failure.
uint32_t outcome_of(BOOL succeeded) {
  if (succeeded) return kErrorNone;
  DWORD error = GetLastError();
  return error != ERROR_SUCCESS ? error : ERROR_GEN_FAILURE;
}

uint32_t open_device(const char* device_name, PlatformHandle* handle) {
  HANDLE opened = CreateFileA(device_name, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              OPEN_EXISTING, 0, nullptr);
  uint32_t error = outcome_of(opened != INVALID_HANDLE_VALUE);
  *handle = error == kErrorNone ? reinterpret_cast<PlatformHandle>(opened) : kInvalidPlatformHandle;
  return error;
}

int query_adapter(PlatformHandle adapter, AdapterInquiry* inquiry) {
  alignas(8) uint8_t answer[kAdapterInquiryBufferSize] = {};
  DWORD returned = 0;
  BOOL succeeded = DeviceIoControl(to_win32(adapter), IOCTL_SCSI_GET_INQUIRY_DATA, nullptr, 0,
                                   answer, sizeof answer, &returned, nullptr);
  if (outcome_of(succeeded) != kErrorNone) return -1;
  // Offsets in the answer count from the start of the whole output buffer,
  // which was zeroed beforehand, so all of it is walked.
  return walk_adapter_inquiry(answer, sizeof answer, inquiry);
}

int query_tape_address(PlatformHandle tape, ScsiAddress* address) {
  SCSI_ADDRESS answer = {};
  answer.Length = sizeof answer;
  DWORD returned = 0;
  BOOL succeeded = DeviceIoControl(to_win32(tape), IOCTL_SCSI_GET_ADDRESS, nullptr, 0, &answer,
                                   sizeof answer, &returned, nullptr);
  if (outcome_of(succeeded) != kErrorNone) return -1;
  *address = ScsiAddress{answer.PortNumber, answer.PathId, answer.TargetId, answer.Lun};
  return 0;
}

void pass_through(PlatformHandle device, const PassThroughRequest& request,
                  PassThroughReply& reply) {
  PassThroughDirectWithSense sptd;
  std::memset(&sptd, 0, sizeof sptd);
  SCSI_PASS_THROUGH_DIRECT& record = sptd.record;
  record.Length = sizeof record;
  record.PathId = request.path_id;
  record.TargetId = request.target_id;
  record.Lun = request.lun;
  uint8_t cdb_length = request.cdb_length <= sizeof record.Cdb
                           ? request.cdb_length
                           : static_cast<uint8_t>(sizeof record.Cdb);
  record.CdbLength = cdb_length;
  record.SenseInfoLength = static_cast<UCHAR>(kSenseAreaSize - 1);
  record.DataIn = static_cast<UCHAR>(request.direction);
  record.DataTransferLength = request.data_length;
  record.TimeOutValue = request.timeout_seconds;
  record.DataBuffer = request.data;
  record.SenseInfoOffset = static_cast<ULONG>(offsetof(PassThroughDirectWithSense, sense));
  std::memcpy(record.Cdb, request.cdb, cdb_length);

  DWORD returned = 0;
  BOOL succeeded = DeviceIoControl(to_win32(device), IOCTL_SCSI_PASS_THROUGH_DIRECT, &sptd,
                                   sizeof record, &sptd, kPassThroughOutputSize, &returned,
                                   nullptr);
  reply.error = outcome_of(succeeded);
  reply.scsi_status = record.ScsiStatus;
  reply.transferred_length = record.DataTransferLength;
  // The driver sets SenseInfoLength to the number of sense bytes it returned
  // (never more than the 255 it was offered).
  reply.sense_length = record.SenseInfoLength;
  std::memcpy(request.sense, sptd.sense, reply.sense_length);
}

// The port driver's capabilities of the adapter behind `device`. Asked of a
// tape device, the class driver may pass the request down to the port or
// refuse it; the limits are then unknown.
int query_transfer_limits(PlatformHandle device, const ScsiAddress&, TransferLimits* limits) {
  IO_SCSI_CAPABILITIES answer = {};
  DWORD returned = 0;
  BOOL succeeded = DeviceIoControl(to_win32(device), IOCTL_SCSI_GET_CAPABILITIES, nullptr, 0,
                                   &answer, sizeof answer, &returned, nullptr);
  if (outcome_of(succeeded) != kErrorNone) return -1;
  *limits = TransferLimits{};
  limits->max_transfer_bytes = answer.MaximumTransferLength;
  limits->max_segments = answer.MaximumPhysicalPages;
  std::strcpy(limits->source, "MaximumTransferLength");
  return 0;
}

void close_device(PlatformHandle device) {
  if (device != kInvalidPlatformHandle) CloseHandle(to_win32(device));
}

const Platform kWin32Platform = {"win32", open_device, query_adapter, query_tape_address,
                                 pass_through, close_device, nullptr, nullptr, query_transfer_limits,
                                 nullptr, nullptr};

}  // namespace

const Platform* native_platform() { return &kWin32Platform; }
