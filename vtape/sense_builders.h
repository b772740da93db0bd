// The answer of one command to the virtual drive and the small builders of
// its fixed-format sense data (SPC), so that every handler writes its
// outcome the same way: `check_condition(answer, key, asc, ascq)`, then the
// flags and the information field it needs.
#pragma once

#include <cstdint>

constexpr uint8_t kStatusGood = 0x00;
constexpr uint8_t kStatusCheckCondition = 0x02;

constexpr uint8_t kSenseNoSense = 0x0;
constexpr uint8_t kSenseNotReady = 0x2;
constexpr uint8_t kSenseMediumError = 0x3;
constexpr uint8_t kSenseHardwareError = 0x4;
constexpr uint8_t kSenseIllegalRequest = 0x5;
constexpr uint8_t kSenseUnitAttention = 0x6;
constexpr uint8_t kSenseBlankCheck = 0x8;
constexpr uint8_t kSenseVolumeOverflow = 0xD;

constexpr unsigned kFixedSenseLength = 18;

struct CommandAnswer {
  uint8_t status;
  uint8_t sense[32];
  uint8_t sense_length;
  uint32_t transferred;  // bytes moved in the data phase
  uint32_t error;        // Win32-style request error; 0 when the command reached the drive
};

// Starts a command's answer: GOOD, no sense, nothing moved.
void start_answer(CommandAnswer* answer);

// Fixed-format sense data (response code 70h, 18 bytes) with sense key and
// additional sense code and qualifier, into `sense`.
void build_sense(uint8_t* sense, uint8_t key, uint8_t asc, uint8_t ascq);

// CHECK CONDITION with the given sense.
void check_condition(CommandAnswer* answer, uint8_t key, uint8_t asc, uint8_t ascq);

// Sets the VALID bit and the 32-bit information field (a residue; negative
// residues are stored in two's complement).
void set_information(CommandAnswer* answer, int64_t information);

// The FMK, EOM and ILI bits of sense byte 2.
void set_filemark(CommandAnswer* answer);
void set_end_of_medium(CommandAnswer* answer);
void set_incorrect_length(CommandAnswer* answer);

// ILLEGAL REQUEST with the field pointer of the sense-key specific bytes:
// INVALID FIELD IN CDB (24/00) or INVALID FIELD IN PARAMETER LIST (26/00).
void invalid_field_in_cdb(CommandAnswer* answer, uint16_t byte_index);
void invalid_field_in_parameter_list(CommandAnswer* answer, uint16_t byte_index);
// INVALID FIELD IN CDB with the bit pointer (BPV) to bit `bit` of the byte.
void invalid_bit_in_cdb(CommandAnswer* answer, uint16_t byte_index, uint8_t bit);
// ILLEGAL REQUEST, INVALID COMMAND OPERATION CODE (20/00).
void invalid_operation_code(CommandAnswer* answer);
