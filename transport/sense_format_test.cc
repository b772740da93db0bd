#include "transport/sense_format.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Fixed-format sense with the given byte 0, byte 2, information, ASC, ASCQ,
// and the bytes 14 to 17.
Bytes fixed(uint8_t code, uint8_t flags_and_key, uint32_t information, uint8_t asc, uint8_t ascq,
            Bytes tail = {0, 0, 0, 0}) {
  Bytes b(kFixedSenseLength, 0);
  b[0] = code;
  b[2] = flags_and_key;
  b[3] = static_cast<uint8_t>(information >> 24);
  b[4] = static_cast<uint8_t>(information >> 16);
  b[5] = static_cast<uint8_t>(information >> 8);
  b[6] = static_cast<uint8_t>(information);
  b[7] = 10;
  b[12] = asc;
  b[13] = ascq;
  std::memcpy(b.data() + 14, tail.data(), 4);
  return b;
}

TEST(SenseFormat, DescriptorSenseReadsAsTheFixedFormatSaysTheSame) {
  const struct {
    const char* what;
    Bytes descriptor;
    Bytes expected;  // empty: not translated
  } cases[] = {
      {"header only: key, ASC, ASCQ", {0x72, 0x06, 0x29, 0x00, 0, 0, 0, 0}, fixed(0x70, 0x06, 0, 0x29, 0x00)},
      {"deferred", {0x73, 0x03, 0x0C, 0x00, 0, 0, 0, 0}, fixed(0x71, 0x03, 0, 0x0C, 0x00)},
      // A short read in variable block mode: information (VALID) and the
      // stream commands descriptor's ILI.
      {"information and ILI",
       {0x72, 0x00, 0x00, 0x00, 0, 0, 0, 16, 0x00, 0x0A, 0x80, 0, 0, 0, 0, 0, 0, 0, 0x0C, 0x18, 0x04, 0x02, 0, 0x20},
       fixed(0xF0, 0x20, 0x0C18, 0x00, 0x00)},
      {"filemark and EOM, information too large for 4 bytes: not VALID",
       {0x72, 0x08, 0x00, 0x05, 0, 0, 0, 16, 0x00, 0x0A, 0x80, 0, 0, 0, 0, 1, 0, 0, 0, 7, 0x04, 0x02, 0, 0xC0},
       fixed(0x70, 0xC8, 7, 0x00, 0x05)},
      {"command-specific, sense-key specific, FRU, block ILI",
       {0x72, 0x05, 0x24, 0x00, 0, 0, 0, 28,   0x01, 0x0A, 0, 0, 0,    0,    0,    0, 0xAB, 0xCD, 0xEF, 0x01,
        0x02, 0x06, 0, 0, 0xC0, 0x00, 0x02, 0, 0x03, 0x02, 0, 0x55, 0x05, 0x02, 0,    0x20},
       [] {
         Bytes b = fixed(0x70, 0x25, 0, 0x24, 0x00, {0x55, 0xC0, 0x00, 0x02});
         b[8] = 0xAB, b[9] = 0xCD, b[10] = 0xEF, b[11] = 0x01;
         return b;
       }()},
      // A descriptor that runs past the additional length is left out; the
      // additional length never reaches past the bytes given.
      {"cut descriptor", {0x72, 0x04, 0x44, 0x00, 0, 0, 0, 6, 0x04, 0x02, 0, 0xE0, 0x00, 0x0A},
       fixed(0x70, 0xE4, 0, 0x44, 0x00)},
      {"additional length beyond the data", {0x72, 0x02, 0x04, 0x01, 0, 0, 0, 200, 0x04, 0x02, 0, 0x40},
       fixed(0x70, 0x42, 0, 0x04, 0x01)},
      {"fixed format stays", {0x70, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0, 0, 0, 0, 0}, {}},
      {"too short to be anything", {0x72, 0x05, 0x20}, {}},
  };
  for (const auto& c : cases) {
    uint8_t out[kFixedSenseLength];
    std::memset(out, 0xEE, sizeof out);
    const uint8_t length =
        descriptor_sense_to_fixed(c.descriptor.data(), static_cast<uint8_t>(c.descriptor.size()), out);
    if (c.expected.empty()) {
      EXPECT_EQ(0, length) << c.what;
    } else {
      ASSERT_EQ(kFixedSenseLength, length) << c.what;
      EXPECT_EQ(c.expected, Bytes(out, out + length)) << c.what;
    }
  }
}

}  // namespace
