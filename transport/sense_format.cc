#include "transport/sense_format.h"

#include <cstring>

namespace {

constexpr uint8_t kInformationDescriptor = 0x00;
constexpr uint8_t kCommandSpecificDescriptor = 0x01;
constexpr uint8_t kSenseKeySpecificDescriptor = 0x02;
constexpr uint8_t kFieldReplaceableUnitDescriptor = 0x03;
constexpr uint8_t kStreamCommandsDescriptor = 0x04;
constexpr uint8_t kBlockCommandsDescriptor = 0x05;
constexpr uint8_t kIliBit = 0x20;

// The low four bytes of an 8-byte big-endian field; true when the high four are zero.
bool low_four_bytes(const uint8_t* field, uint8_t* out) {
  std::memcpy(out, field + 4, 4);
  return field[0] == 0 && field[1] == 0 && field[2] == 0 && field[3] == 0;
}

}  // namespace

uint8_t descriptor_sense_to_fixed(const uint8_t* sense, uint8_t length, uint8_t* fixed) {
  if (length < 4) return 0;
  const uint8_t code = sense[0] & 0x7F;
  if (code != 0x72 && code != 0x73) return 0;
  std::memset(fixed, 0, kFixedSenseLength);
  fixed[0] = code == 0x72 ? 0x70 : 0x71;
  fixed[2] = sense[1] & 0x0F;
  fixed[7] = kFixedSenseLength - 8;
  fixed[12] = sense[2];
  fixed[13] = sense[3];
  const unsigned declared = 8u + (length >= 8 ? sense[7] : 0u);
  const unsigned end = declared <= length ? declared : length;
  for (unsigned at = 8; at + 2 <= end;) {
    const uint8_t type = sense[at];
    const unsigned size = 2u + sense[at + 1];
    if (at + size > end) break;  // a cut descriptor is left out
    const uint8_t* d = sense + at;
    if (type == kInformationDescriptor && size >= 12) {
      if (low_four_bytes(d + 4, fixed + 3) && (d[2] & 0x80) != 0) fixed[0] |= 0x80;
    } else if (type == kCommandSpecificDescriptor && size >= 12) {
      low_four_bytes(d + 4, fixed + 8);
    } else if (type == kSenseKeySpecificDescriptor && size >= 7) {
      std::memcpy(fixed + 15, d + 4, 3);
    } else if (type == kFieldReplaceableUnitDescriptor && size >= 4) {
      fixed[14] = d[3];
    } else if (type == kStreamCommandsDescriptor && size >= 4) {
      fixed[2] |= d[3] & 0xE0;  // FILEMARK, EOM, ILI
    } else if (type == kBlockCommandsDescriptor && size >= 4) {
      fixed[2] |= d[3] & kIliBit;
    }
    at += size;
  }
  return kFixedSenseLength;
}
