#include "transport/executor.h"

#include <cstdio>
#include <cstring>

#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "os/os.h"
#include "scsi/operation_codes.h"
#include "transport/scsi_transport.h"
#include "transport/sense_format.h"

namespace {

// The request's own sense area: zero-filled before each command as far as the
// previous command wrote into it.
uint8_t sense_area[kSenseAreaSize];
uint32_t sense_area_dirty = kSenseAreaSize;
// Leading bytes of `sense_buffer` that may not be zero.
uint32_t sense_buffer_dirty = kSenseBufferSize;

void clear_sense_buffer_from(uint32_t from) {
  if (sense_buffer == nullptr) return;
  if (sense_buffer_dirty <= from) return;
  std::memset(sense_buffer + from, 0, sense_buffer_dirty - from);
  sense_buffer_dirty = from;
}

void record_nothing_sent(uint8_t srb_status) {
  ScsiResult& result = scsi_transport.result;
  result.srb_status = srb_status;
  result.target_status = 0;
  result.sense_key_byte = 0;
  result.transferred_length = 0;
  clear_sense_buffer_from(0);
}

void list_cdb(uint8_t cdb_length, const uint8_t* cdb) {
  FILE* stream = scsi_transport.cdb_list_stream;
  if (stream == nullptr) return;
  char line[16 * 3 + 3];
  size_t used = 0;
  for (uint8_t i = 0; i < cdb_length; ++i) {
    used += static_cast<size_t>(
        std::snprintf(line + used, sizeof line - used, " %02x", static_cast<unsigned>(cdb[i])));
  }
  line[used++] = '\r';
  line[used++] = '\n';
  // One write under the output lock: a CTRL-C never leaves half a line.
  os_lock_output();
  std::fwrite(line, 1, used, stream);
  os_unlock_output();
}

// Copies the sense bytes that came back into `sense_data`, the rest zero;
// descriptor-format sense in its fixed-format form (see sense_format.h).
void copy_sense(uint8_t sense_length, bool data_phase_used_sense_buffer) {
  ScsiResult& result = scsi_transport.result;
  uint8_t fixed[kFixedSenseLength];
  const uint8_t* sense = sense_area;
  if (const uint8_t translated = descriptor_sense_to_fixed(sense_area, sense_length, fixed)) {
    sense = fixed;
    sense_length = translated;
  }
  if (data_phase_used_sense_buffer) sense_buffer_dirty = kSenseBufferSize;
  if (sense_length == 0) {
    result.sense_key_byte = 0;
    // Request Sense reads into the sense buffer itself: without automatic
    // sense there is nothing to replace its data with, and wiping it would
    // throw away what the command just read.
    if (!data_phase_used_sense_buffer) clear_sense_buffer_from(0);
    return;
  }
  result.sense_key_byte = sense[2];
  if (sense_buffer == nullptr) return;
  std::memcpy(sense_buffer, sense, sense_length);
  if (sense_buffer_dirty < sense_length) sense_buffer_dirty = sense_length;
  clear_sense_buffer_from(sense_length);
}

}  // namespace

DataDirection data_direction_for(uint8_t operation_code) {
  switch (operation_code) {
    case kOpWrite6:
    case kOpVerify6:
    case kOpModeSelect6:
    case kOpSendDiagnostic:
    case kOpWrite10:
    case kOpWriteAndVerify10:
    case kOpVerify10:
    case kOpWriteBuffer:
    case kOpWriteLong10:
    case kOpLogSelect:
    case kOpModeSelect10:
    case kOpWrite12:
    case kOpWriteAndVerify12:
    case kOpVerify12:
    case kOpSendVolumeTag:
      return DataDirection::out;
    default:
      return DataDirection::in;
  }
}

void note_sense_buffer_clean() { sense_buffer_dirty = 0; }

void reset_executor() {
  sense_area_dirty = kSenseAreaSize;
  sense_buffer_dirty = kSenseBufferSize;
}

void execute_cdb(uint8_t* data_buffer, uint8_t cdb_length, const uint8_t* cdb) {
  ScsiResult& result = scsi_transport.result;
  if (cdb_length == 0 || cdb_length > 16) {
    result.win32_error = kErrorInvalidParameter;
    record_nothing_sent(kSrbStatusRequestFailed);
    return;
  }
  PlatformHandle handle = get_device_handle();
  if (handle == kInvalidPlatformHandle) {
    record_nothing_sent(kSrbStatusNoHandle);
    return;
  }

  PassThroughRequest request{};
  request.path_id = scsi_transport.bus;
  request.target_id = scsi_transport.target_id;
  request.lun = scsi_transport.target_lun;
  request.cdb_length = cdb_length;
  std::memcpy(request.cdb, cdb, cdb_length);
  request.direction = data_direction_for(cdb[0]);
  request.data = data_buffer;
  request.data_length = scsi_transport.request_length;
  request.timeout_seconds = kCommandTimeoutSeconds;
  std::memset(sense_area, 0, sense_area_dirty);
  request.sense = sense_area;

  list_cdb(cdb_length, cdb);

  // A platform fills every field; these are the values of an untouched request.
  PassThroughReply reply{kErrorNone, 0, 0, scsi_transport.request_length};
  active_platform().pass_through(handle, request, reply);

  uint8_t sense_length = reply.sense_length;
  sense_area_dirty = sense_length;
  result.win32_error = reply.error;
  result.srb_status = reply.error == kErrorNone ? kSrbStatusSent : kSrbStatusRequestFailed;
  result.transferred_length = reply.transferred_length;
  result.target_status = reply.scsi_status;
  copy_sense(sense_length, data_buffer != nullptr && data_buffer == sense_buffer);
}
