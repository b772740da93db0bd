#include "changer/element_status.h"

#include <cstring>

namespace {

uint16_t be16(const uint8_t* field) { return static_cast<uint16_t>((field[0] << 8) | field[1]); }

uint32_t be24(const uint8_t* field) {
  return (static_cast<uint32_t>(field[0]) << 16) | (static_cast<uint32_t>(field[1]) << 8) | field[2];
}

bool blank(uint8_t byte) { return byte == ' ' || byte == 0; }

// The volume identifier of a volume tag as text.
void copy_volume_tag(const uint8_t* tag, char* barcode) {
  unsigned length = kVolumeTagLength;
  while (length > 0 && blank(tag[length - 1])) --length;
  for (unsigned i = 0; i < length; ++i) {
    barcode[i] = tag[i] >= 0x20 && tag[i] < 0x7F ? static_cast<char>(tag[i]) : '?';
  }
  barcode[length] = '\0';
}

// One element descriptor of `descriptor_length` bytes of a page whose
// volume tag bits are `tag_bits` (byte 1 of the page header).
ElementStatus read_descriptor(uint8_t type, uint8_t tag_bits, const uint8_t* d, uint32_t descriptor_length) {
  ElementStatus e{};
  e.type = type;
  e.address = be16(d);
  e.full = (d[2] & 0x01) != 0;
  e.except = (d[2] & 0x04) != 0;
  e.access = (d[2] & 0x08) != 0;
  e.asc = d[4];
  e.ascq = d[5];
  e.source_valid = (d[9] & 0x80) != 0;
  e.source = be16(d + 10);
  uint32_t at = kElementDescriptorMinLength;
  const bool primary_tag = (tag_bits & 0x80) != 0;
  const bool alternate_tag = (tag_bits & 0x40) != 0;
  if (primary_tag && at + 36 <= descriptor_length) copy_volume_tag(d + at, e.barcode);
  if (primary_tag) at += 36;
  if (alternate_tag) at += 36;
  // The device identifier follows the volume tags (SMC-3 DVCID).
  if (type == kDataTransferElement && at + 4 <= descriptor_length) {
    const uint8_t* id = d + at;
    uint32_t length = id[3];
    if (length > descriptor_length - at - 4) length = descriptor_length - at - 4;
    if (length > kMaxIdentifierLength) length = kMaxIdentifierLength;
    e.code_set = id[0] & 0x0F;
    e.identifier_type = id[1] & 0x0F;
    e.identifier_length = static_cast<uint8_t>(length);
    std::memcpy(e.identifier, id + 4, length);
  }
  return e;
}

// Start and length of `text` with blanks and zero bytes cut on both sides.
void trim(const uint8_t* text, unsigned length, unsigned* start, unsigned* kept) {
  unsigned first = 0;
  while (first < length && blank(text[first])) ++first;
  unsigned end = length;
  while (end > first && blank(text[end - 1])) --end;
  *start = first;
  *kept = end - first;
}

}  // namespace

ElementStatusReport parse_element_status(const uint8_t* data, uint32_t length, ElementStatus* elements,
                                         uint32_t capacity) {
  ElementStatusReport report{};
  if (length < kElementStatusHeaderLength) {
    report.malformed = true;
    return report;
  }
  report.first_address = be16(data);
  report.element_count = be16(data + 2);
  report.byte_count = be24(data + 5);
  // What the report says it holds, as far as the buffer goes.
  const uint64_t said = static_cast<uint64_t>(kElementStatusHeaderLength) + report.byte_count;
  const uint32_t end = said < length ? static_cast<uint32_t>(said) : length;
  if (said > length) report.cut = true;

  uint32_t at = kElementStatusHeaderLength;
  while (at + kElementPageHeaderLength <= end) {
    const uint8_t* page = data + at;
    const uint8_t type = page[0] & 0x0F;
    const uint32_t descriptor_length = be16(page + 2);
    const uint32_t page_bytes = be24(page + 5);
    if (descriptor_length < kElementDescriptorMinLength || type < kMediumTransportElement ||
        type > kDataTransferElement) {
      report.malformed = true;
      return report;
    }
    at += kElementPageHeaderLength;
    const uint64_t page_end = static_cast<uint64_t>(at) + page_bytes;
    while (at + descriptor_length <= end && at + descriptor_length <= page_end) {
      if (report.parsed == capacity) {
        report.cut = true;
        return report;
      }
      elements[report.parsed] = read_descriptor(type, page[1], data + at, descriptor_length);
      report.last_address = elements[report.parsed].address;
      ++report.parsed;
      at += descriptor_length;
    }
    if (page_end > end) return report;  // the rest of this page was not sent
    at = static_cast<uint32_t>(page_end);
  }
  return report;
}

void identifier_serial(const ElementStatus& element, char* serial, unsigned size) {
  unsigned offset = 0;
  constexpr unsigned kVendorAndProduct = 24;
  if (element.identifier_type == 1 && element.identifier_length > kVendorAndProduct) offset = kVendorAndProduct;
  unsigned start = 0, kept = 0;
  trim(element.identifier + offset, element.identifier_length - offset, &start, &kept);
  if (size == 0) return;
  if (kept > size - 1) kept = size - 1;
  for (unsigned i = 0; i < kept; ++i) {
    const uint8_t byte = element.identifier[offset + start + i];
    serial[i] = byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '?';
  }
  serial[kept] = '\0';
}

bool identifier_matches_serial(const ElementStatus& element, const char* drive_serial) {
  const size_t serial_length = std::strlen(drive_serial);
  if (serial_length == 0 || element.identifier_length == 0) return false;
  char own[kMaxIdentifierLength + 1];
  identifier_serial(element, own, sizeof own);
  if (std::strcmp(own, drive_serial) == 0) return true;
  unsigned start = 0, kept = 0;
  trim(element.identifier, element.identifier_length, &start, &kept);
  return kept >= serial_length &&
         std::memcmp(element.identifier + start + kept - serial_length, drive_serial, serial_length) == 0;
}
