// Linux platform (SCSI generic driver). Placeholder until SG_IO support
// lands: no adapter or tape device is found, so every run ends with "unable to
// access tape drive".
#include "transport/platform/platform.h"

namespace {

uint32_t open_device(const char*, PlatformHandle* handle) {
  *handle = kInvalidPlatformHandle;
  return kErrorNotFound;
}
int query_adapter(PlatformHandle, AdapterInquiry*) { return -1; }
int query_tape_address(PlatformHandle, ScsiAddress*) { return -1; }
void pass_through(PlatformHandle, const PassThroughRequest&, PassThroughReply& reply) {
  reply = PassThroughReply{kErrorNotFound, 0, 0, 0};
}
void close_device(PlatformHandle) {}

const Platform kLinuxPlatform = {"linux-sg", open_device, query_adapter, query_tape_address,
                                 pass_through, close_device, nullptr};

}  // namespace

const Platform* native_platform() { return &kLinuxPlatform; }
