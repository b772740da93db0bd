#include "transport/command_buffers.h"

#include <cstdlib>

#include "console/log_output.h"
#include "transport/scsi_transport.h"

uint8_t* sense_buffer = nullptr;
uint8_t* inquiry_buffer = nullptr;
uint8_t* mode_buffer = nullptr;
uint8_t* read_position_buffer = nullptr;
uint8_t* log_buffer = nullptr;
uint8_t* no_data_buffer = nullptr;

namespace {

struct BufferSlot {
  uint8_t** buffer;
  uint32_t size;
  const char* failure_message;  // null: allocated without a message
};

const BufferSlot kBuffers[] = {
    {&sense_buffer, kSenseBufferSize, "ERROR: cannot allocate request sense data structures\r\n"},
    {&inquiry_buffer, kInquiryBufferSize, "ERROR: cannot allocate inquiry data structure\r\n"},
    {&mode_buffer, kModeBufferSize, "ERROR: cannot allocate mode select/sense data structures\r\n"},
    {&read_position_buffer, kReadPositionBufferSize,
     "ERROR: cannot allocate read position data structure\r\n"},
    {&log_buffer, kLogBufferSize, "ERROR: cannot allocate log select/sense data structure\r\n"},
    {&no_data_buffer, 1, nullptr},
};

}  // namespace

int init_command_buffers() {
  free_command_buffers();
  for (const BufferSlot& slot : kBuffers) {
    *slot.buffer = static_cast<uint8_t*>(std::calloc(slot.size, 1));
    if (*slot.buffer == nullptr) {
      if (slot.failure_message != nullptr) report_printf("%s", slot.failure_message);
      return -1;
    }
  }
  scsi_transport.result.sense_data = sense_buffer;
  return 0;
}

void free_command_buffers() {
  for (const BufferSlot& slot : kBuffers) {
    std::free(*slot.buffer);
    *slot.buffer = nullptr;
  }
  scsi_transport.result.sense_data = nullptr;
}
