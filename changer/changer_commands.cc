#include "changer/changer_commands.h"

#include <cstring>

#include "scsi/operation_codes.h"
#include "transport/command_buffers.h"
#include "transport/executor.h"
#include "transport/scsi_transport.h"

namespace {

void put_16(uint8_t* field, uint32_t value) {
  field[0] = static_cast<uint8_t>(value >> 8);
  field[1] = static_cast<uint8_t>(value);
}

void send(uint8_t* buffer, uint32_t length, const uint8_t* cdb, uint8_t cdb_length) {
  scsi_transport.request_length = length;
  execute_cdb(buffer, cdb_length, cdb);
}

}  // namespace

void changer_test_unit_ready() {
  const uint8_t cdb[6] = {kOpTestUnitReady, 0, 0, 0, 0, scsi_transport.control_byte};
  send(no_data_buffer, 0, cdb, sizeof cdb);
}

void changer_inquiry(uint8_t* buffer, uint8_t allocation_length) {
  std::memset(buffer, 0, allocation_length);
  const uint8_t cdb[6] = {kOpInquiry, 0, 0, 0, allocation_length, scsi_transport.control_byte};
  send(buffer, allocation_length, cdb, sizeof cdb);
}

void changer_inquiry_vpd(uint8_t page_code, uint8_t* buffer, uint8_t allocation_length) {
  std::memset(buffer, 0, allocation_length);
  const uint8_t cdb[6] = {kOpInquiry, 0x01, page_code, 0, allocation_length, scsi_transport.control_byte};
  send(buffer, allocation_length, cdb, sizeof cdb);
}

void changer_read_element_status(uint8_t element_type, uint16_t start, uint16_t count, bool device_ids,
                                 uint8_t* buffer, uint32_t allocation_length) {
  std::memset(buffer, 0, allocation_length);
  uint8_t cdb[12] = {};
  cdb[0] = kOpReadElementStatus;
  cdb[1] = static_cast<uint8_t>(0x10 | (element_type & 0x0F));  // VOLTAG
  put_16(cdb + 2, start);
  put_16(cdb + 4, count);
  cdb[6] = device_ids ? 0x01 : 0x00;  // DVCID
  cdb[7] = static_cast<uint8_t>(allocation_length >> 16);
  put_16(cdb + 8, allocation_length);
  cdb[11] = scsi_transport.control_byte;
  send(buffer, allocation_length, cdb, sizeof cdb);
}

void changer_move_medium(uint16_t transport, uint16_t source, uint16_t destination) {
  uint8_t cdb[12] = {};
  cdb[0] = kOpMoveMedium;
  put_16(cdb + 2, transport);
  put_16(cdb + 4, source);
  put_16(cdb + 6, destination);
  cdb[11] = scsi_transport.control_byte;
  send(no_data_buffer, 0, cdb, sizeof cdb);
}

void changer_initialize_element_status() {
  const uint8_t cdb[6] = {kOpInitializeElementStatus, 0, 0, 0, 0, scsi_transport.control_byte};
  send(no_data_buffer, 0, cdb, sizeof cdb);
}
