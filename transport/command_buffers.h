// The fixed command buffers that the tape commands read into and write from,
// allocated zero-filled at transport start and freed at shutdown.
#pragma once

#include <cstdint>

// 256 bytes; also `scsi_transport.result.sense_data`. Written only by
// execute_cdb (returned sense, or the data phase of a command that reads into
// it, such as Request Sense) and cleared by the builders: the executor keeps
// track of how much of it may be non-zero, so other writers must call
// reset_executor() (executor.h) afterwards.
extern uint8_t* sense_buffer;
extern uint8_t* inquiry_buffer;        // 256 bytes
extern uint8_t* mode_buffer;           // 256 bytes
extern uint8_t* read_position_buffer;  // 20 bytes
extern uint8_t* log_buffer;            // 40 bytes
extern uint8_t* no_data_buffer;        // 1 byte

constexpr uint32_t kSenseBufferSize = 256;
constexpr uint32_t kInquiryBufferSize = 256;
constexpr uint32_t kModeBufferSize = 256;
constexpr uint32_t kReadPositionBufferSize = 20;
constexpr uint32_t kLogBufferSize = 40;

// 0, or -1 after the message of the first buffer that could not be had.
int init_command_buffers();
void free_command_buffers();
