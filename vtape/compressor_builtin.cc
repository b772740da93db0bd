// Without LZ4 the drive estimates the compressed size: the smaller of a
// run-length coding and the order-0 entropy of the bytes. Null data comes
// out small and pseudo-random data at full size, like a real compressor.
#include <cmath>
#include <cstddef>

#include "vtape/compressor.h"

uint32_t compressed_size(const uint8_t* data, uint32_t length) {
  if (length == 0) return 0;
  uint32_t counts[256] = {};
  uint64_t run_coded = 0;  // two bytes per run of equal bytes
  for (uint32_t i = 0; i < length; ++i) {
    ++counts[data[i]];
    if (i == 0 || data[i] != data[i - 1]) run_coded += 2;
  }
  double bits = 0.0;
  for (uint32_t count : counts) {
    if (count == 0) continue;
    double p = static_cast<double>(count) / length;
    bits -= static_cast<double>(count) * std::log2(p);
  }
  uint64_t entropy_coded = static_cast<uint64_t>(bits / 8.0) + 16;
  uint64_t size = run_coded < entropy_coded ? run_coded : entropy_coded;
  // Nothing compresses better than a run of one byte value, and drives reach
  // about 255 to 1 on it, as LZ4 does: never estimate below LZ4's size for
  // such a run (a literal, one match of 255 bytes per length byte, and the
  // five closing literals), so both compressors report the same figures.
  const uint64_t run_floor = length < 13 ? length + 1 : length < 25 ? 10 : 11 + (length - 25) / 255;
  if (size < run_floor) size = run_floor;
  // A record that would hardly shrink is stored as it is, as drives do.
  if (size + length / 64 >= length) return length;
  return static_cast<uint32_t>(size);
}
