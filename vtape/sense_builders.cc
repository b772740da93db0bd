#include "vtape/sense_builders.h"

#include <cstring>

void start_answer(CommandAnswer* answer) { *answer = CommandAnswer{}; }

void build_sense(uint8_t* sense, uint8_t key, uint8_t asc, uint8_t ascq) {
  std::memset(sense, 0, kFixedSenseLength);
  sense[0] = 0x70;  // current error, fixed format
  sense[2] = key & 0x0F;
  sense[7] = kFixedSenseLength - 8;
  sense[12] = asc;
  sense[13] = ascq;
}

void check_condition(CommandAnswer* answer, uint8_t key, uint8_t asc, uint8_t ascq) {
  answer->status = kStatusCheckCondition;
  build_sense(answer->sense, key, asc, ascq);
  answer->sense_length = kFixedSenseLength;
}

void set_information(CommandAnswer* answer, int64_t information) {
  uint32_t field = static_cast<uint32_t>(information);
  answer->sense[0] |= 0x80;
  answer->sense[3] = static_cast<uint8_t>(field >> 24);
  answer->sense[4] = static_cast<uint8_t>(field >> 16);
  answer->sense[5] = static_cast<uint8_t>(field >> 8);
  answer->sense[6] = static_cast<uint8_t>(field);
}

void set_filemark(CommandAnswer* answer) { answer->sense[2] |= 0x80; }
void set_end_of_medium(CommandAnswer* answer) { answer->sense[2] |= 0x40; }
void set_incorrect_length(CommandAnswer* answer) { answer->sense[2] |= 0x20; }

namespace {

void invalid_field(CommandAnswer* answer, uint8_t asc, bool in_cdb, uint16_t byte_index) {
  check_condition(answer, kSenseIllegalRequest, asc, 0x00);
  answer->sense[15] = static_cast<uint8_t>(0x80 | (in_cdb ? 0x40 : 0x00));  // SKSV, C/D
  answer->sense[16] = static_cast<uint8_t>(byte_index >> 8);
  answer->sense[17] = static_cast<uint8_t>(byte_index);
}

}  // namespace

void invalid_field_in_cdb(CommandAnswer* answer, uint16_t byte_index) {
  invalid_field(answer, 0x24, true, byte_index);
}

void invalid_field_in_parameter_list(CommandAnswer* answer, uint16_t byte_index) {
  invalid_field(answer, 0x26, false, byte_index);
}

void invalid_bit_in_cdb(CommandAnswer* answer, uint16_t byte_index, uint8_t bit) {
  invalid_field(answer, 0x24, true, byte_index);
  answer->sense[15] |= static_cast<uint8_t>(0x08 | (bit & 0x07));  // BPV, bit pointer
}

void invalid_operation_code(CommandAnswer* answer) {
  check_condition(answer, kSenseIllegalRequest, 0x20, 0x00);
  answer->sense[15] = 0xC0;  // SKSV, C/D: byte 0 of the CDB
}
