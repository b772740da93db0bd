// Read Element Status (SMC-3): the element status data header, then one
// element status page per element type with its descriptors, elements in
// ascending address order from the starting element address on, at most the
// number of elements asked for. The answer is cut at the allocation length;
// the header's and the pages' byte counts still tell the whole size.
//
// Each descriptor: element address, flags (FULL, EXCEPT, ACCESS, and for
// import/export elements IMPEXP, EXENAB, INENAB), ASC/ASCQ, for a drive its
// SCSI id and LUN (ID VALID, LU VALID), SVALID and medium type (1 data,
// 2 cleaning), source storage element address; with VOLTAG the primary
// volume tag (the barcode blank-padded to 32 bytes, then a zero volume
// sequence number; 36 zero bytes for an empty element); with DVCID (and
// `dvcid = yes`) an identification descriptor, for a drive code set 2
// (ASCII), identifier type 1 (T10 vendor ID): vendor (8), product (16) and
// the drive's serial number; for the other elements the same 4-byte header
// with identifier length 0.
#include <cstdio>
#include <cstring>

#include "vtape/changer_commands.h"
#include "vtape/commands.h"

namespace {

constexpr unsigned kDescriptorCapacity = 12 + 36 + 4 + 8 + 16 + 32;

// Writes into the request's buffer up to `limit` and counts every byte.
struct Output {
  uint8_t* data;
  uint32_t limit;
  uint32_t at;
};

void put(Output* out, const uint8_t* bytes, uint32_t length) {
  if (out->at < out->limit) {
    const uint32_t room = out->limit - out->at;
    std::memcpy(out->data + out->at, bytes, length < room ? length : room);
  }
  out->at += length;
}

struct ReadRequest {
  uint8_t type_code;  // 0: every type
  bool voltag;
  bool dvcid;
  uint16_t start;
  uint32_t count;
};

bool selected(const ReadRequest& r, const Element& element) {
  return element.address >= r.start && (r.type_code == 0 || static_cast<uint8_t>(element.type) == r.type_code);
}

unsigned identifier_length(ElementType type) { return type == ElementType::data_transfer ? 8 + 16 + 10 : 0; }

unsigned descriptor_length(const ReadRequest& r, ElementType type) {
  return 12 + (r.voltag ? 36 : 0) + (r.dvcid ? 4 + identifier_length(type) : 0);
}

// A drive keeps a cartridge that is threaded or whose removal it prevents.
bool drive_keeps_cartridge(const Element& element) {
  const VirtualDrive& drive = virtual_drive_at(drive_index(element));
  return element.cartridge >= 0 && (drive.medium == MediumState::loaded || drive.removal_prevented);
}

uint8_t element_flags(const Element& element, bool full) {
  uint8_t flags = full ? 0x01 : 0x00;
  if (!element.valid) flags |= 0x04;  // EXCEPT
  switch (element.type) {
    case ElementType::transport:
      break;
    case ElementType::storage:
      flags |= 0x08;  // ACCESS
      break;
    case ElementType::import_export:
      flags |= 0x08 | 0x10 | 0x20;  // ACCESS, EXENAB, INENAB; IMPEXP 0: the picker put it there
      break;
    case ElementType::data_transfer:
      if (!drive_keeps_cartridge(element)) flags |= 0x08;
      break;
  }
  return flags;
}

unsigned build_descriptor(VirtualLibrary* library, const ReadRequest& r, const Element& element, uint8_t* d) {
  const unsigned length = descriptor_length(r, element.type);
  std::memset(d, 0, length);
  const LibraryCartridge* cartridge =
      element.valid && element.cartridge >= 0 ? &library->cartridges[static_cast<size_t>(element.cartridge)] : nullptr;
  write_be(d, 2, element.address);
  d[2] = element_flags(element, cartridge != nullptr);
  if (!element.valid) {
    d[4] = kElementUnknownAsc;
    d[5] = kElementUnknownAscq;
  }
  if (element.type == ElementType::data_transfer) {
    d[6] = 0x30;  // ID VALID, LU VALID; LUN 0, on the changer's bus
    d[7] = static_cast<uint8_t>(kFirstDriveId + drive_index(element));
  }
  if (cartridge != nullptr) {
    d[9] = static_cast<uint8_t>((cartridge->source_valid ? 0x80 : 0x00) |
                                ((cartridge->faults & kCartridgeCleaning) != 0 ? 2 : 1));
    if (cartridge->source_valid) write_be(d + 10, 2, cartridge->source);
  }
  unsigned at = 12;
  if (r.voltag) {
    if (cartridge != nullptr) {
      std::memset(d + at, ' ', 32);
      std::memcpy(d + at, cartridge->barcode, std::strlen(cartridge->barcode));
    }
    at += 36;
  }
  if (r.dvcid && element.type == ElementType::data_transfer) {
    const VirtualDrive& drive = virtual_drive_at(drive_index(element));
    d[at] = 0x02;      // code set: ASCII
    d[at + 1] = 0x01;  // identifier type: T10 vendor ID
    d[at + 3] = static_cast<uint8_t>(identifier_length(element.type));
    char identifier[8 + 16 + 11];
    std::snprintf(identifier, sizeof identifier, "%-8.8s%-16.16sVT%08u", drive.description.vendor,
                  drive.description.product, drive_index(element) + 1);
    std::memcpy(d + at + 4, identifier, identifier_length(element.type));
  }
  return length;
}

}  // namespace

void read_element_status(VirtualLibrary* library, const PassThroughRequest& request, CommandAnswer* answer) {
  const uint8_t* cdb = request.cdb;
  ReadRequest r{};
  r.type_code = cdb[1] & 0x0F;
  r.voltag = (cdb[1] & 0x10) != 0;
  r.dvcid = (cdb[6] & 0x01) != 0 && library->description.dvcid;
  r.start = static_cast<uint16_t>(read_be(cdb + 2, 2));
  r.count = read_be(cdb + 4, 2);
  if (r.type_code > 4) return invalid_field_in_cdb(answer, 1);
  const uint32_t allocation = read_be(cdb + 7, 3);

  // First the sizes: how many elements, how many bytes in all.
  uint32_t elements = 0;
  uint32_t report_bytes = 0;
  uint16_t first_address = 0;
  ElementType page_type = ElementType::transport;
  for (const Element& element : library->elements) {
    if (elements == r.count) break;
    if (!selected(r, element)) continue;
    if (elements == 0) first_address = element.address;
    if (elements == 0 || element.type != page_type) report_bytes += 8;
    page_type = element.type;
    report_bytes += descriptor_length(r, element.type);
    ++elements;
  }
  Output out{request.data, allocation < request.data_length ? allocation : request.data_length, 0};
  uint8_t header[8] = {};
  write_be(header, 2, first_address);
  write_be(header + 2, 2, elements);
  write_be(header + 5, 3, report_bytes);
  put(&out, header, sizeof header);

  // Then the pages, one per run of elements of one type.
  uint32_t written = 0;
  for (size_t i = 0; i < library->elements.size() && written < elements; ++i) {
    const Element& element = library->elements[i];
    if (!selected(r, element)) continue;
    if (written == 0 || element.type != library->elements[i - 1].type) {
      uint32_t in_page = 0;
      for (size_t j = i; j < library->elements.size() && written + in_page < elements &&
                         library->elements[j].type == element.type;
           ++j) {
        ++in_page;
      }
      const unsigned length = descriptor_length(r, element.type);
      uint8_t page[8] = {static_cast<uint8_t>(element.type), static_cast<uint8_t>(r.voltag ? 0x80 : 0x00)};
      write_be(page + 2, 2, length);
      write_be(page + 5, 3, in_page * length);
      put(&out, page, sizeof page);
    }
    uint8_t descriptor[kDescriptorCapacity];
    put(&out, descriptor, build_descriptor(library, r, element, descriptor));
    ++written;
  }
  answer->transferred = out.at < out.limit ? out.at : out.limit;
}
