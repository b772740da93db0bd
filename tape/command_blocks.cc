#include "tape/command_blocks.h"

#include <cstring>

#include "console/log_output.h"
#include "scsi/operation_codes.h"
#include "transport/command_buffers.h"
#include "transport/executor.h"
#include "transport/scsi_transport.h"

uint8_t* rw_buffer = nullptr;
uint32_t rw_buffer_length = 0;

namespace {

// Stores the low 24 bits of `value` big-endian at `field`.
void put_24(uint8_t* field, uint32_t value) {
  field[0] = static_cast<uint8_t>(value >> 16);
  field[1] = static_cast<uint8_t>(value >> 8);
  field[2] = static_cast<uint8_t>(value);
}

// A 6-byte CDB: opcode, LUN bits with the command's own low bits, bytes 2-4,
// control byte.
void send_6(uint8_t operation_code, uint8_t byte_1_bits, uint32_t bytes_2_to_4,
            uint8_t* data_buffer, uint32_t data_length) {
  uint8_t cdb[6];
  cdb[0] = operation_code;
  cdb[1] = static_cast<uint8_t>(scsi_transport.lun_bits | byte_1_bits);
  put_24(cdb + 2, bytes_2_to_4);
  cdb[5] = scsi_transport.control_byte;
  scsi_transport.request_length = data_length;
  execute_cdb(data_buffer, sizeof cdb, cdb);
}

void clear(uint8_t* buffer, uint32_t size) {
  if (buffer != nullptr) std::memset(buffer, 0, size);
}

int send_read_write(uint8_t operation_code, uint8_t byte_1_bits, uint32_t transfer_length) {
  if (rw_buffer == nullptr) {
    report_printf("ERROR: NULL read/write buffer\r\n");
    return -1;
  }
  send_6(operation_code, byte_1_bits, transfer_length, rw_buffer, rw_buffer_length);
  return 0;
}

}  // namespace

int set_rw_buffer(uint8_t* buffer, uint32_t length) {
  if (buffer == nullptr || length == 0) {
    report_printf("ERROR: NULL buffer or zero buffer length (r/w buffer pointer not used)\r\n");
    return -1;
  }
  rw_buffer = buffer;
  rw_buffer_length = length;
  return 0;
}

void reset_rw_buffer() {
  rw_buffer = nullptr;
  rw_buffer_length = 0;
}

bool command_failed() {
  return scsi_transport.result.srb_status != 0 || scsi_transport.result.target_status != 0;
}

void scsi_test_unit_ready() { send_6(kOpTestUnitReady, 0, 0, no_data_buffer, 0); }

void scsi_request_sense(uint8_t allocation_length) {
  clear(sense_buffer, kSenseBufferSize);
  send_6(kOpRequestSense, 0, allocation_length, sense_buffer, allocation_length);
}

void scsi_inquiry(uint8_t allocation_length) {
  clear(inquiry_buffer, kInquiryBufferSize);
  send_6(kOpInquiry, 0, allocation_length, inquiry_buffer, allocation_length);
}

void scsi_inquiry_vpd(uint8_t page_code, uint8_t allocation_length) {
  clear(inquiry_buffer, kInquiryBufferSize);
  send_6(kOpInquiry, 0x01, (static_cast<uint32_t>(page_code) << 16) | allocation_length, inquiry_buffer,
         allocation_length);
}

void scsi_mode_sense(uint8_t allocation_length) {
  clear(mode_buffer, kModeBufferSize);
  send_6(kOpModeSense6, 0, allocation_length, mode_buffer, allocation_length);
}

void scsi_mode_select(uint8_t parameter_list_length, uint8_t page_format) {
  send_6(kOpModeSelect6, page_format != 0 ? 0x10 : 0x00, parameter_list_length, mode_buffer,
         parameter_list_length);
}

void scsi_rewind(uint8_t immediate) {
  send_6(kOpRewind, immediate != 0 ? 0x01 : 0x00, 0, no_data_buffer, 0);
}

int scsi_read(uint32_t transfer_length) {
  uint8_t bits = static_cast<uint8_t>(scsi_transport.fixed_bit | (scsi_transport.sili_bit << 1));
  return send_read_write(kOpRead6, bits, transfer_length);
}

int scsi_write(uint32_t transfer_length) {
  return send_read_write(kOpWrite6, scsi_transport.fixed_bit, transfer_length);
}

void scsi_write_filemarks(uint32_t count) { send_6(kOpWriteFilemarks6, 0, count, no_data_buffer, 0); }

void scsi_space(uint8_t code, int32_t count) {
  // Two's complement in 24 bits: negative counts space backward.
  send_6(kOpSpace6, static_cast<uint8_t>(code & 0x03), static_cast<uint32_t>(count), no_data_buffer,
         0);
}

void scsi_load_unload(uint8_t immediate, uint8_t retension, uint8_t load) {
  uint32_t byte_4 = (retension != 0 ? 0x02u : 0u) | (load != 0 ? 0x01u : 0u);
  send_6(kOpLoadUnload, immediate != 0 ? 0x01 : 0x00, byte_4, no_data_buffer, 0);
}

void scsi_prevent_allow(uint8_t prevent) {
  send_6(kOpPreventAllowMediumRemoval, 0, prevent == 1 ? 1u : 0u, no_data_buffer, 0);
}

void scsi_read_position() {
  uint8_t cdb[10] = {};
  cdb[0] = kOpReadPosition;
  cdb[1] = scsi_transport.lun_bits;
  cdb[9] = scsi_transport.control_byte;
  clear(read_position_buffer, kReadPositionBufferSize);
  scsi_transport.request_length = kReadPositionBufferSize;
  execute_cdb(read_position_buffer, sizeof cdb, cdb);
}

void scsi_log_sense(uint8_t page_code, uint8_t page_control, uint8_t allocation_length) {
  uint8_t cdb[10] = {};
  cdb[0] = kOpLogSense;
  cdb[1] = scsi_transport.lun_bits;
  cdb[2] = static_cast<uint8_t>((page_control << 6) | (page_code & 0x3F));
  cdb[8] = allocation_length;
  cdb[9] = scsi_transport.control_byte;
  clear(log_buffer, kLogBufferSize);
  // The data phase never runs past the 40-byte log buffer.
  scsi_transport.request_length =
      allocation_length < kLogBufferSize ? allocation_length : kLogBufferSize;
  execute_cdb(log_buffer, sizeof cdb, cdb);
}

void scsi_log_sense_page(uint8_t page_code, uint8_t page_control, uint8_t* buffer,
                         uint16_t allocation_length) {
  uint8_t cdb[10] = {};
  cdb[0] = kOpLogSense;
  cdb[1] = scsi_transport.lun_bits;
  cdb[2] = static_cast<uint8_t>((page_control << 6) | (page_code & 0x3F));
  cdb[7] = static_cast<uint8_t>(allocation_length >> 8);
  cdb[8] = static_cast<uint8_t>(allocation_length);
  cdb[9] = scsi_transport.control_byte;
  clear(buffer, allocation_length);
  scsi_transport.request_length = allocation_length;
  execute_cdb(buffer, sizeof cdb, cdb);
}

void scsi_read_block_limits(uint8_t* buffer) {
  clear(buffer, kBlockLimitsLength);
  send_6(kOpReadBlockLimits, 0, 0, buffer, kBlockLimitsLength);
}
