// Sense data in the one format the program reads. Every caller reads the
// fixed format of SPC (response codes 70h/71h: flags and sense key in byte
// 2, information in bytes 3-6, ASC and ASCQ in bytes 12 and 13); a drive
// may answer in the descriptor format instead (72h/73h, SPC-4 4.5.2), for
// example when the D_SENSE bit of its Control mode page is set. The
// executor turns such sense into the fixed format before anyone reads it.
// Pure function; safe on any thread.
#pragma once

#include <cstdint>

constexpr uint8_t kFixedSenseLength = 18;

// When `sense` (`length` bytes) is in the descriptor format, writes its
// fixed-format equivalent to `fixed` (at least kFixedSenseLength bytes) and
// returns kFixedSenseLength: sense key, ASC, ASCQ; the information
// descriptor (VALID set when its value fits the 4-byte field), the
// command-specific information, sense-key specific and FRU descriptors; the
// FILEMARK, EOM and ILI bits of the stream commands descriptor and the ILI
// bit of the block commands descriptor. Returns 0 for sense that is not in
// the descriptor format (nothing to translate).
uint8_t descriptor_sense_to_fixed(const uint8_t* sense, uint8_t length, uint8_t* fixed);
