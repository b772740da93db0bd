#include <lz4.h>

#include <vector>

#include "vtape/compressor.h"

uint32_t compressed_size(const uint8_t* data, uint32_t length) {
  if (length == 0) return 0;
  if (length > static_cast<uint32_t>(LZ4_MAX_INPUT_SIZE)) return length;
  static std::vector<char> scratch;
  int bound = LZ4_compressBound(static_cast<int>(length));
  if (scratch.size() < static_cast<size_t>(bound)) scratch.resize(static_cast<size_t>(bound));
  int size = LZ4_compress_default(reinterpret_cast<const char*>(data), scratch.data(),
                                  static_cast<int>(length), bound);
  if (size <= 0 || static_cast<uint32_t>(size) > length) return length;
  return static_cast<uint32_t>(size);
}
