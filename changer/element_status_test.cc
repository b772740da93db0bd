// The element status parser over answers laid out as SMC-3 says, and as
// tgt's changer sends them (8 bytes short, T10 vendor ID identifiers with the
// serial cut to 10 bytes).
#include "changer/element_status.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Descriptor {
  uint16_t address;
  uint8_t flags;  // byte 2: FULL 01h, EXCEPT 04h, ACCESS 08h
  uint8_t asc, ascq;
  int source;     // -1: SVALID clear
  std::string tag;  // volume identifier, blank-padded to 32
  std::string identifier;  // DVCID identifier (data transfer elements)
  uint8_t identifier_type = 1;
};

void put16(std::vector<uint8_t>& b, size_t at, unsigned v) {
  b[at] = static_cast<uint8_t>(v >> 8);
  b[at + 1] = static_cast<uint8_t>(v);
}
void put24(std::vector<uint8_t>& b, size_t at, unsigned v) {
  b[at] = static_cast<uint8_t>(v >> 16);
  put16(b, at + 1, v);
}

// One element status page of `type` with volume tags; `descriptor_length`
// 52 (tags) or 86 (tags and a 34-byte identifier, as tgt sends them).
std::vector<uint8_t> page(uint8_t type, unsigned descriptor_length, const std::vector<Descriptor>& list) {
  std::vector<uint8_t> b(8 + descriptor_length * list.size());
  b[0] = type;
  b[1] = 0x80;  // PVOLTAG
  put16(b, 2, descriptor_length);
  put24(b, 5, static_cast<unsigned>(descriptor_length * list.size()));
  size_t at = 8;
  for (const Descriptor& d : list) {
    put16(b, at, d.address);
    b[at + 2] = d.flags;
    b[at + 4] = d.asc;
    b[at + 5] = d.ascq;
    if (d.source >= 0) {
      b[at + 9] = 0x80;
      put16(b, at + 10, static_cast<unsigned>(d.source));
    }
    std::string tag = d.tag;
    tag.resize(32, ' ');
    std::copy(tag.begin(), tag.end(), b.begin() + static_cast<long>(at + 12));
    // The identifier follows the 36 bytes of the primary volume tag.
    if (descriptor_length >= 48 + 4 + d.identifier.size() && !d.identifier.empty()) {
      b[at + 48] = 2;  // ASCII
      b[at + 49] = d.identifier_type;
      b[at + 51] = static_cast<uint8_t>(d.identifier.size());
      std::copy(d.identifier.begin(), d.identifier.end(), b.begin() + static_cast<long>(at + 52));
    }
    at += descriptor_length;
  }
  return b;
}

// The 8-byte header before the pages; `short_by` bytes of the end are lost
// (zero), as tgt's changer loses them.
std::vector<uint8_t> answer(const std::vector<uint8_t>& pages, unsigned count, size_t allocation, size_t short_by = 0) {
  std::vector<uint8_t> b(8 + pages.size());
  put16(b, 2, count);
  put24(b, 5, static_cast<unsigned>(pages.size()));
  std::copy(pages.begin(), pages.end(), b.begin() + 8);
  for (size_t i = 0; i < short_by; ++i) b[b.size() - 1 - i] = 0;
  b.resize(allocation, 0);
  return b;
}

std::string t10(const std::string& serial) {
  std::string id = "VENDOR  PRODUCT         " + serial;
  id.resize(34, '\0');
  return id;
}

TEST(ElementStatus, AnswersAsChangersSendThem) {
  // Slots: full with a padded barcode, empty, full in exception with a
  // source, a tag with a control byte.
  const std::vector<Descriptor> slots = {
      {1000, 0x09, 0, 0, -1, "LIB001L6", ""},
      {1001, 0x08, 0, 0, -1, "", ""},
      {1002, 0x0D, 0x30, 0x03, 500, "LIB003L6", ""},
      {1003, 0x09, 0, 0, -1, std::string("BAD\x01TAG\0\0", 9), ""},
  };
  std::vector<uint8_t> data = answer(page(2, 52, slots), 4, 4096);
  ElementStatus e[8];
  ElementStatusReport r = parse_element_status(data.data(), 4096, e, 8);
  ASSERT_EQ(4u, r.parsed);
  EXPECT_FALSE(r.cut);
  EXPECT_FALSE(r.malformed);
  EXPECT_EQ(1003, r.last_address);
  EXPECT_EQ(kStorageElement, e[0].type);
  EXPECT_TRUE(e[0].full && e[0].access && !e[0].except);
  EXPECT_STREQ("LIB001L6", e[0].barcode);
  EXPECT_FALSE(e[1].full);
  EXPECT_STREQ("", e[1].barcode);
  EXPECT_TRUE(e[2].except);
  EXPECT_EQ(0x30, e[2].asc);
  EXPECT_EQ(0x03, e[2].ascq);
  EXPECT_TRUE(e[2].source_valid);
  EXPECT_EQ(500, e[2].source);
  EXPECT_STREQ("BAD?TAG", e[3].barcode);

  // The array holds two: the rest is read from element 1002 on.
  r = parse_element_status(data.data(), 4096, e, 2);
  EXPECT_EQ(2u, r.parsed);
  EXPECT_TRUE(r.cut);
  EXPECT_EQ(1001, r.last_address);

  // Cut by the allocation length inside the third descriptor: two whole
  // ones, and the byte count says there is more.
  r = parse_element_status(data.data(), 8 + 8 + 52 * 2 + 20, e, 8);
  EXPECT_EQ(2u, r.parsed);
  EXPECT_TRUE(r.cut);

  // tgt's drives: 86-byte descriptors, the answer 8 bytes short of its byte
  // count, so the second drive's serial is cut to its first two characters.
  const std::vector<Descriptor> drives = {{500, 0x08, 0, 0, -1, "", t10("LIBDRV0001")},
                                          {501, 0x09, 0, 0, 1002, "LIB003L6", t10("LIBDRV0002")}};
  data = answer(page(4, 86, drives), 2, 4096, 8);
  r = parse_element_status(data.data(), 4096, e, 8);
  ASSERT_EQ(2u, r.parsed);
  EXPECT_FALSE(r.cut);  // short, but no reason to read on
  char serial[80];
  identifier_serial(e[0], serial, sizeof serial);
  EXPECT_STREQ("LIBDRV0001", serial);
  identifier_serial(e[1], serial, sizeof serial);
  EXPECT_STREQ("LI", serial);
  EXPECT_TRUE(identifier_matches_serial(e[0], "LIBDRV0001"));
  EXPECT_FALSE(identifier_matches_serial(e[0], "LIBDRV000"));
  EXPECT_FALSE(identifier_matches_serial(e[1], "LIBDRV0002"));
  EXPECT_FALSE(identifier_matches_serial(e[0], ""));
  EXPECT_STREQ("LIB003L6", e[1].barcode);

  // A real library's vendor-specific identifier: the serial at its end.
  Descriptor vendor_specific{502, 0x08, 0, 0, -1, "", "IBM ULT3580-TD9 1097000123", 0};
  data = answer(page(4, 86, {vendor_specific}), 1, 4096);
  ASSERT_EQ(1u, parse_element_status(data.data(), 4096, e, 8).parsed);
  EXPECT_TRUE(identifier_matches_serial(e[0], "1097000123"));
  EXPECT_FALSE(identifier_matches_serial(e[0], "1097000124"));

  // Pickers and mail slots in one answer of two pages.
  std::vector<uint8_t> two = page(1, 52, {{1, 0x00, 0, 0, -1, "", ""}});
  const std::vector<uint8_t> mail = page(3, 52, {{10, 0x38, 0, 0, -1, "", ""}});
  two.insert(two.end(), mail.begin(), mail.end());
  data = answer(two, 2, 4096);
  r = parse_element_status(data.data(), 4096, e, 8);
  ASSERT_EQ(2u, r.parsed);
  EXPECT_EQ(kMediumTransportElement, e[0].type);
  EXPECT_EQ(kImportExportElement, e[1].type);

  // A page header that cannot be right stops the walk.
  data = answer(page(2, 52, slots), 4, 4096);
  put16(data, 8 + 2, 4);  // descriptor length 4
  r = parse_element_status(data.data(), 4096, e, 8);
  EXPECT_TRUE(r.malformed);
  EXPECT_EQ(0u, r.parsed);
  EXPECT_TRUE(parse_element_status(data.data(), 7, e, 8).malformed);
}

}  // namespace
