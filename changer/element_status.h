// The element status data of a medium changer (SMC-3 READ ELEMENT STATUS),
// read into plain records: one ElementStatus per element descriptor. A pure
// parser over a byte buffer: no commands, no state, no allocation.
//
// Changers answer in one of two ways that the parser takes alike: an answer
// cut at the allocation length (the header's byte count says how much more
// there was: `cut` is set and the caller reads on from the element after the
// last one parsed), and an answer shorter than its own byte count without
// saying so (tgt's changer transfers 8 bytes less). The caller zeroes its
// buffer before each command and passes the whole allocation length, so a
// descriptor that lost its tail that way reads as zeros there.
#pragma once

#include <cstdint>

enum ElementType : uint8_t {
  kAllElementTypes = 0,
  kMediumTransportElement = 1,  // the picker
  kStorageElement = 2,          // a slot
  kImportExportElement = 3,     // a mail slot
  kDataTransferElement = 4,     // a drive
};

constexpr unsigned kVolumeTagLength = 32;  // the volume identifier of a volume tag
constexpr unsigned kMaxIdentifierLength = 64;  // of the DVCID identifier kept

struct ElementStatus {
  uint8_t type;  // ElementType
  uint16_t address;
  bool full;
  bool except;        // the element is in an abnormal state: asc and ascq say which
  bool access;        // the picker can reach it
  uint8_t asc;
  uint8_t ascq;
  bool source_valid;  // SVALID: `source` names where the medium came from
  uint16_t source;
  // Primary volume tag (barcode): trailing blanks and zero bytes cut, any
  // other byte outside printable ASCII shown as '?'. Empty without a tag.
  char barcode[kVolumeTagLength + 1];
  // Device identifier of a data transfer element (DVCID): code set,
  // identifier type and the bytes of the identifier (at most
  // kMaxIdentifierLength kept). Length 0 when none was returned.
  uint8_t code_set;
  uint8_t identifier_type;
  uint8_t identifier_length;
  uint8_t identifier[kMaxIdentifierLength];
};

struct ElementStatusReport {
  uint16_t first_address;   // as the header says
  uint16_t element_count;   // elements the header says the report holds
  uint32_t byte_count;      // "byte count of report available" (after the 8-byte header)
  uint32_t parsed;          // descriptors written to the caller's array
  uint16_t last_address;    // of the last descriptor parsed
  // The answer did not fit: the header's byte count runs past `length`, or
  // the caller's array was full. Reading on from last_address + 1 gets the rest.
  bool cut;
  bool malformed;           // a page header that cannot be right ended the walk
};

constexpr uint32_t kElementStatusHeaderLength = 8;
constexpr uint32_t kElementPageHeaderLength = 8;
constexpr uint32_t kElementDescriptorMinLength = 12;

// Walks the element status data in `data` (`length` bytes: the allocation
// length, zero past what the changer sent) and writes at most `capacity`
// descriptors to `elements`. Only descriptors that lie whole within `length`
// are taken.
ElementStatusReport parse_element_status(const uint8_t* data, uint32_t length, ElementStatus* elements,
                                         uint32_t capacity);

// The serial number at the end of a data transfer element's identifier: for
// a T10 vendor ID identifier (type 1) what follows the vendor (8 bytes) and
// product (16 bytes), else the whole identifier; leading and trailing blanks
// and zero bytes cut. Writes at most `size` - 1 characters.
void identifier_serial(const ElementStatus& element, char* serial, unsigned size);

// True when `element`'s identifier names the drive whose unit serial number
// (Inquiry VPD page 80h, blanks cut) is `drive_serial`: the identifier's
// serial equals it, or the whole identifier ends with it.
bool identifier_matches_serial(const ElementStatus& element, const char* drive_serial);
