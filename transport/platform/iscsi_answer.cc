#include "transport/platform/iscsi_answer.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

uint32_t iscsi_transferred_length(uint32_t length, IscsiResidual kind, uint64_t residual) {
  if (kind != IscsiResidual::underflow) return length;
  return residual >= length ? 0 : length - static_cast<uint32_t>(residual);
}

uint8_t iscsi_response_sense(const uint8_t* segment, size_t size, uint8_t* sense, unsigned capacity) {
  if (segment == nullptr || size < 2) return 0;
  size_t length = (static_cast<size_t>(segment[0]) << 8) | segment[1];
  if (length > size - 2) length = size - 2;
  if (length > capacity) length = capacity;
  if (length > 255) length = 255;
  for (size_t i = 0; i < length; ++i) sense[i] = segment[2 + i];
  return static_cast<uint8_t>(length);
}

size_t iscsi_reported_luns(const uint8_t* data, size_t size, uint16_t* luns, size_t capacity) {
  if (size < 8) return 0;
  size_t list_length = (static_cast<size_t>(data[0]) << 24) | (static_cast<size_t>(data[1]) << 16) |
                       (static_cast<size_t>(data[2]) << 8) | data[3];
  if (list_length > size - 8) list_length = size - 8;
  size_t count = 0;
  for (size_t offset = 8; offset + 8 <= 8 + list_length; offset += 8) {
    const uint8_t method = data[offset] >> 6;  // 0 peripheral, 1 flat space
    if (method > 1) continue;
    if (count < capacity) luns[count] = static_cast<uint16_t>(((data[offset] & 0x3F) << 8) | data[offset + 1]);
    ++count;
  }
  return count;
}

bool iscsi_lun_listed(const uint8_t* data, size_t size, unsigned lun, char* listed, size_t listed_size) {
  if (listed_size > 0) listed[0] = '\0';
  uint16_t luns[512];
  const size_t count = std::min(iscsi_reported_luns(data, size, luns, std::size(luns)), std::size(luns));
  bool found = false;
  size_t used = 0;
  for (size_t i = 0; i < count; ++i) {
    if (luns[i] == lun) found = true;
    if (used < listed_size) {
      const int written =
          std::snprintf(listed + used, listed_size - used, "%s%u", used == 0 ? "" : ", ", static_cast<unsigned>(luns[i]));
      if (written > 0) used += static_cast<size_t>(written);
    }
  }
  return found;
}
