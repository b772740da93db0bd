// The virtual library's changer and drives as the transport reaches them,
// through the platform record. Expected bytes and sense codes come from
// SMC-3 (element status data, Move Medium's checks, mode page 1Dh) and SPC.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "scsi/operation_codes.h"
#include "settings/settings.h"
#include "transport/platform/platform.h"
#include "vtape/library_state.h"
#include "vtape/virtual_drive.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr uint8_t kChanger = 1;
constexpr uint8_t kDrive = 2;

struct Answer {
  uint32_t error;
  uint8_t status;
  uint8_t key, asc, ascq;
  Bytes data;
};

fs::path work_directory(const char* name) {
  const fs::path directory = fs::path(BFTDTEST_BINARY_DIR) / "virtual_library_test" / name;
  fs::remove_all(directory);
  fs::create_directories(directory);
  return directory;
}

// A library made from `description`, with one adapter handle open.
struct Library {
  fs::path directory;
  PlatformHandle handle = kInvalidPlatformHandle;

  Library(const char* name, const std::string& description) : directory(work_directory(name)) {
    configure(description);
  }
  ~Library() {
    close();
    fs::remove_all(directory);
  }
  void configure(const std::string& description) {
    close();
    reset_settings();
    std::ofstream(directory / "library.vtape") << description;
    ASSERT_EQ(0, vtape_configure((directory / "library.vtape").string().c_str()));
    open();
  }
  void open() { ASSERT_EQ(kErrorNone, vtape_platform()->open_device("\\\\.\\Scsi0:", &handle)); }
  void close() {
    if (handle != kInvalidPlatformHandle) vtape_platform()->close_device(handle);
    handle = kInvalidPlatformHandle;
  }
  Answer send(uint8_t target, Bytes cdb, uint32_t length = 0, Bytes out = {}, uint8_t lun = 0) const {
    return send_on(handle, target, cdb, length, out, lun);
  }
  static Answer send_on(PlatformHandle on, uint8_t target, Bytes cdb, uint32_t length = 0, Bytes out = {},
                        uint8_t lun = 0) {
    PassThroughRequest request{};
    request.target_id = target;
    request.lun = lun;
    request.cdb_length = static_cast<uint8_t>(cdb.size());
    std::memcpy(request.cdb, cdb.data(), cdb.size());
    Bytes buffer = out.empty() ? Bytes(length > 0 ? length : 1) : out;
    request.direction = out.empty() ? DataDirection::in : DataDirection::out;
    request.data = buffer.data();
    request.data_length = static_cast<uint32_t>(out.empty() ? length : out.size());
    uint8_t sense[kSenseAreaSize] = {};
    request.sense = sense;
    PassThroughReply reply{};
    vtape_platform()->pass_through(on, request, reply);
    buffer.resize(out.empty() ? reply.transferred_length : 0);
    return {reply.error, reply.scsi_status, static_cast<uint8_t>(sense[2] & 0x0F), sense[12], sense[13], buffer};
  }
};

std::string sense_of(const Answer& a) {
  char text[32];
  std::snprintf(text, sizeof text, "%u %02X %02X/%02X", a.error, a.key, a.asc, a.ascq);
  return text;
}

Bytes read_element_status(uint8_t type, bool voltag, bool dvcid, uint16_t start = 0, uint16_t count = 0xFFFF,
                          uint32_t allocation = 0x10000) {
  return {kOpReadElementStatus, static_cast<uint8_t>(type | (voltag ? 0x10 : 0)), static_cast<uint8_t>(start >> 8),
          static_cast<uint8_t>(start), static_cast<uint8_t>(count >> 8), static_cast<uint8_t>(count),
          static_cast<uint8_t>(dvcid ? 1 : 0), static_cast<uint8_t>(allocation >> 16),
          static_cast<uint8_t>(allocation >> 8), static_cast<uint8_t>(allocation), 0, 0};
}

Bytes move_medium(uint16_t source, uint16_t destination, uint16_t transport = 0, bool invert = false) {
  return {kOpMoveMedium, 0, static_cast<uint8_t>(transport >> 8), static_cast<uint8_t>(transport),
          static_cast<uint8_t>(source >> 8), static_cast<uint8_t>(source), static_cast<uint8_t>(destination >> 8),
          static_cast<uint8_t>(destination), 0, 0, static_cast<uint8_t>(invert ? 1 : 0), 0};
}

const Bytes kTestUnitReady = {kOpTestUnitReady, 0, 0, 0, 0, 0};
const Bytes kUnload = {kOpLoadUnload, 0, 0, 0, 0x00, 0};
const Bytes kLoad = {kOpLoadUnload, 0, 0, 0, 0x01, 0};
const Bytes kPrevent = {kOpPreventAllowMediumRemoval, 0, 0, 0, 0x01, 0};
const Bytes kAllow = {kOpPreventAllowMediumRemoval, 0, 0, 0, 0x00, 0};

// Element status data: the 8-byte header and page headers, descriptors
// pieced together from their fields.
Bytes header(uint16_t first, uint16_t count, uint32_t bytes) {
  return {static_cast<uint8_t>(first >> 8), static_cast<uint8_t>(first), static_cast<uint8_t>(count >> 8),
          static_cast<uint8_t>(count), 0, static_cast<uint8_t>(bytes >> 16), static_cast<uint8_t>(bytes >> 8),
          static_cast<uint8_t>(bytes)};
}
Bytes page(uint8_t type, bool voltag, uint16_t length, uint32_t bytes) {
  return {type, static_cast<uint8_t>(voltag ? 0x80 : 0), static_cast<uint8_t>(length >> 8),
          static_cast<uint8_t>(length), 0, static_cast<uint8_t>(bytes >> 16), static_cast<uint8_t>(bytes >> 8),
          static_cast<uint8_t>(bytes)};
}
// Address, flags, ASC/ASCQ, bytes 6-7 (drives: ID VALID, LU VALID, SCSI id), SVALID|type, source.
Bytes descriptor(uint16_t address, uint8_t flags, uint8_t byte9 = 0, uint16_t source = 0, uint8_t byte6 = 0,
                 uint8_t id = 0, uint8_t asc = 0) {
  return {static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address), flags, 0, asc, 0, byte6, id, 0,
          byte9, static_cast<uint8_t>(source >> 8), static_cast<uint8_t>(source)};
}
Bytes volume_tag(const std::string& barcode) {
  Bytes tag(36, 0);
  if (!barcode.empty()) {
    std::fill(tag.begin(), tag.begin() + 32, ' ');
    std::copy(barcode.begin(), barcode.end(), tag.begin());
  }
  return tag;
}
Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

// Slots 1 and 3 full (3 a cleaning cartridge), one drive, one import/export element.
const char kSmallLibrary[] = "slots = 3\nimport_export = 1\nbarcodes = AB0001L9, , AB0003L9\ncleaning_slots = 3\n";

TEST(VirtualLibrary, ChangerAnswersAsAnSmcDevice) {
  Library library("identity", kSmallLibrary);
  // Inquiry goes past the power-on unit attention; Test Unit Ready takes it.
  Answer inquiry = library.send(kChanger, {kOpInquiry, 0, 0, 0, 36, 0}, 36);
  ASSERT_EQ(36u, inquiry.data.size());
  EXPECT_EQ(0x08, inquiry.data[0]);
  EXPECT_EQ(text("VIRTUAL VTAPE LIBRARY   1.0 "), Bytes(inquiry.data.begin() + 8, inquiry.data.end()));
  const Answer serial = library.send(kChanger, {kOpInquiry, 1, 0x80, 0, 64, 0}, 64);
  EXPECT_EQ((Bytes{0x08, 0x80, 0x00, 10} + text("VL00000001")), serial.data);
  EXPECT_EQ((Bytes{0x08, 0x00, 0x00, 0x02, 0x00, 0x80}), library.send(kChanger, {kOpInquiry, 1, 0, 0, 64, 0}, 64).data);
  EXPECT_EQ("0 06 29/00", sense_of(library.send(kChanger, kTestUnitReady)));
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, kTestUnitReady)));
  EXPECT_EQ("0 05 20/00", sense_of(library.send(kChanger, {kOpRead6, 0, 0, 0, 1, 0}, 512)));
  // Mode page 1Dh: transport 1 at 0001h, 3 slots at 1000h, 1 I/E at 0010h, 1 drive at 0100h.
  EXPECT_EQ((Bytes{23, 0, 0, 0, 0x1D, 0x12, 0x00, 0x01, 0x00, 0x01, 0x10, 0x00, 0x00, 0x03, 0x00, 0x10, 0x00,
                   0x01, 0x01, 0x00, 0x00, 0x01, 0x00, 0x00}),
            library.send(kChanger, {kOpModeSense6, 0x08, 0x1D, 0, 255, 0}, 255).data);
  EXPECT_EQ("0 05 39/00", sense_of(library.send(kChanger, {kOpModeSense6, 0, 0xDD, 0, 255, 0}, 255)));  // saved values
}

TEST(VirtualLibrary, ReadElementStatusFollowsTheStandardsLayout) {
  Library library("element_status", kSmallLibrary);
  library.send(kChanger, kTestUnitReady);
  const Bytes slots = header(0x1000, 3, 8 + 3 * 48) + page(2, true, 48, 3 * 48) +
                      descriptor(0x1000, 0x09, 0x01) + volume_tag("AB0001L9") + descriptor(0x1001, 0x08) +
                      volume_tag("") + descriptor(0x1002, 0x09, 0x02) + volume_tag("CLN001L1");
  EXPECT_EQ(slots, library.send(kChanger, read_element_status(2, true, false), 0x10000).data);
  // Cut at the allocation length; the header still counts every byte.
  EXPECT_EQ(Bytes(slots.begin(), slots.begin() + 20),
            library.send(kChanger, read_element_status(2, true, false, 0, 0xFFFF, 20), 0x10000).data);
  // From a starting address that is no element, and at most one element.
  EXPECT_EQ(header(0x1001, 1, 8 + 12) + page(2, false, 12, 12) + descriptor(0x1001, 0x08),
            library.send(kChanger, read_element_status(2, false, false, 0x1001, 1), 0x10000).data);
  EXPECT_EQ(header(0, 0, 0), library.send(kChanger, read_element_status(2, false, false, 0x2000), 0x10000).data);
  EXPECT_EQ("0 05 24/00", sense_of(library.send(kChanger, read_element_status(5, false, false), 0x10000)));

  // Every type: one page each in address order, the empty drive at SCSI id 2 accessible.
  EXPECT_EQ(header(0x0001, 6, 4 * 8 + 6 * 12) + page(1, false, 12, 12) + descriptor(0x0001, 0x00) +
                page(3, false, 12, 12) + descriptor(0x0010, 0x38) + page(4, false, 12, 12) +
                descriptor(0x0100, 0x08, 0, 0, 0x30, 2) + page(2, false, 12, 36) + descriptor(0x1000, 0x09, 0x01) +
                descriptor(0x1001, 0x08) + descriptor(0x1002, 0x09, 0x02),
            library.send(kChanger, read_element_status(0, false, false), 0x10000).data);

  // The drive holding slot 1's threaded cartridge: full, not accessible, its
  // source and, with DVCID, its T10 vendor ID identifier.
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, move_medium(0x1000, 0x0100))));
  const Bytes identifier = Bytes{0x02, 0x01, 0x00, 34} + text("VIRTUAL VTAPE DRIVE     VT00000001");
  EXPECT_EQ(header(0x0100, 1, 8 + 86) + page(4, true, 86, 86) + descriptor(0x0100, 0x01, 0x81, 0x1000, 0x30, 2) +
                volume_tag("AB0001L9") + identifier,
            library.send(kChanger, read_element_status(4, true, true), 0x10000).data);
  EXPECT_EQ(header(0x0100, 1, 8 + 50) + page(4, false, 50, 50) + descriptor(0x0100, 0x01, 0x81, 0x1000, 0x30, 2) +
                identifier,
            library.send(kChanger, read_element_status(4, false, true), 0x10000).data);
  // Other elements carry the identification header with length 0.
  EXPECT_EQ(header(0x1002, 1, 8 + 16) + page(2, false, 16, 16) + descriptor(0x1002, 0x09, 0x02) + Bytes(4, 0),
            library.send(kChanger, read_element_status(2, false, true, 0x1002), 0x10000).data);

  // A library that reports no identifiers ignores DVCID.
  library.configure("slots = 1\ndvcid = no\n");
  library.send(kChanger, kTestUnitReady);
  EXPECT_EQ(header(0x0100, 1, 8 + 12) + page(4, false, 12, 12) + descriptor(0x0100, 0x08, 0, 0, 0x30, 2),
            library.send(kChanger, read_element_status(4, false, true), 0x10000).data);
}

TEST(VirtualLibrary, InventoryNotValidUntilInitializeElementStatus) {
  Library library("not_valid", "slots = 2\nimport_export = 1\ninventory_valid = no\n");
  EXPECT_EQ("0 06 29/00", sense_of(library.send(kChanger, kTestUnitReady)));
  EXPECT_EQ("0 06 28/00", sense_of(library.send(kChanger, kTestUnitReady)));
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, kTestUnitReady)));
  const Bytes unknown_slots = header(0x1000, 2, 8 + 2 * 48) + page(2, true, 48, 96) +
                              descriptor(0x1000, 0x0C, 0, 0, 0, 0, 0x83) + volume_tag("") +
                              descriptor(0x1001, 0x0C, 0, 0, 0, 0, 0x83) + volume_tag("");
  EXPECT_EQ(unknown_slots, library.send(kChanger, read_element_status(2, true, false), 0x10000).data);
  // With range: only the import/export element becomes known.
  const Bytes import_export_only = {kOpInitializeElementStatusWithRange, 0x01, 0x00, 0x10, 0, 0, 0x00, 0x01, 0, 0};
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, import_export_only)));
  EXPECT_EQ(unknown_slots, library.send(kChanger, read_element_status(2, true, false), 0x10000).data);
  EXPECT_EQ(header(0x0010, 1, 8 + 12) + page(3, false, 12, 12) + descriptor(0x0010, 0x38),
            library.send(kChanger, read_element_status(3, false, false), 0x10000).data);
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, {kOpInitializeElementStatus, 0, 0, 0, 0, 0})));
  EXPECT_EQ(header(0x1000, 2, 8 + 2 * 48) + page(2, true, 48, 96) + descriptor(0x1000, 0x09, 0x01) +
                volume_tag("VT0001L9") + descriptor(0x1001, 0x09, 0x01) + volume_tag("VT0002L9"),
            library.send(kChanger, read_element_status(2, true, false), 0x10000).data);
}

TEST(VirtualLibrary, MoveMediumRefusesAsTheStandardSays) {
  Library library("move_errors", std::string(kSmallLibrary) + "move_fails_at = 2\n");
  library.send(kChanger, kTestUnitReady);
  const Bytes before = library.send(kChanger, read_element_status(0, true, false), 0x10000).data;
  const struct {
    Bytes cdb;
    const char* sense;
  } refused[] = {
      {move_medium(0x1000, 0x2000), "0 05 21/01"},          // no such element
      {move_medium(0x0001, 0x1001), "0 05 21/01"},          // the picker holds no media
      {move_medium(0x1000, 0x1001, 0x0005), "0 05 21/01"},  // no such transport
      {move_medium(0x1000, 0x1001, 0, true), "0 05 24/00"},
      {move_medium(0x1001, 0x0010), "0 05 3B/0E"},  // source empty
      {move_medium(0x1000, 0x1002), "0 05 3B/0D"},  // destination full
  };
  for (const auto& r : refused) EXPECT_EQ(r.sense, sense_of(library.send(kChanger, r.cdb)));
  EXPECT_EQ(before, library.send(kChanger, read_element_status(0, true, false), 0x10000).data);

  // The first move goes; the second fails in the mechanics and moves nothing.
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, move_medium(0x1000, 0x0100, 0x0001))));
  EXPECT_EQ("0 04 15/01", sense_of(library.send(kChanger, move_medium(0x1002, 0x0010))));
  EXPECT_EQ(header(0x0010, 1, 8 + 12) + page(3, false, 12, 12) + descriptor(0x0010, 0x38),
            library.send(kChanger, read_element_status(3, false, false), 0x10000).data);

  // The drive keeps its cartridge while the tape is threaded and while its
  // removal is prevented.
  EXPECT_EQ("0 05 53/03", sense_of(library.send(kChanger, move_medium(0x0100, 0x1001))));
  EXPECT_EQ("0 06 28/00", sense_of(library.send(kDrive, kTestUnitReady)));
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kDrive, kPrevent)));
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kDrive, kUnload)));
  EXPECT_EQ("0 05 53/03", sense_of(library.send(kChanger, move_medium(0x0100, 0x1001))));
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kDrive, kAllow)));
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, move_medium(0x0100, 0x1001))));
  EXPECT_EQ("0 02 3A/00", sense_of(library.send(kDrive, kTestUnitReady)));
  // Back in a slot, the cartridge names the slot it last left.
  EXPECT_EQ(header(0x1001, 1, 8 + 12) + page(2, false, 12, 12) + descriptor(0x1001, 0x09, 0x81, 0x1000),
            library.send(kChanger, read_element_status(2, false, false, 0x1001, 1), 0x10000).data);
}

// One record of 512 bytes: Write(6) variable, Read(6) variable.
Bytes write_record(uint8_t fill) { return Bytes(512, fill); }
const Bytes kWrite512 = {kOpWrite6, 0, 0, 0x02, 0x00, 0};
const Bytes kRead512 = {kOpRead6, 0, 0, 0x02, 0x00, 0};
const Bytes kRewind = {kOpRewind, 0, 0, 0, 0, 0};

TEST(VirtualLibrary, CartridgesKeepTheirTapeAndTheirFaultsAcrossMoves) {
  Library library("cartridges",
                  "slots = 4\ndrives = 2\nnot_ready_polls = 1\ndamaged_slots = 2\nunloadable_slots = 3\n");
  library.send(kChanger, kTestUnitReady);
  library.send(kDrive, kTestUnitReady);
  // Slot 1 into the drive: threaded on insertion, written, taken back.
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, move_medium(0x1000, 0x0100))));
  EXPECT_EQ("0 06 28/00", sense_of(library.send(kDrive, kTestUnitReady)));
  EXPECT_EQ("0 02 04/01", sense_of(library.send(kDrive, kTestUnitReady)));
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kDrive, kWrite512, 0, write_record(0x5A))));
  library.send(kDrive, kUnload);
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, move_medium(0x0100, 0x1000))));
  // ... into the second drive (SCSI id 3): the record is still there.
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, move_medium(0x1000, 0x0101))));
  library.send(3, kTestUnitReady);
  library.send(3, kTestUnitReady);
  EXPECT_EQ(write_record(0x5A), library.send(3, kRead512, 512).data);
  library.send(3, kUnload);
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, move_medium(0x0101, 0x1000))));
  // Slot 4's cartridge gets the same record: back in its slot, the library
  // keeps that unit once, so a sweep's memory does not grow with the slots.
  library.send(kChanger, move_medium(0x1003, 0x0100));
  library.send(kDrive, kTestUnitReady);
  library.send(kDrive, kTestUnitReady);
  library.send(kDrive, kWrite512, 0, write_record(0x5A));
  library.send(kDrive, kUnload);
  library.send(kChanger, move_medium(0x0100, 0x1003));
  const std::vector<LibraryCartridge>& held = virtual_library().cartridges;
  ASSERT_EQ(4u, held.size());
  ASSERT_EQ(1u, held[3].data.runs.size());
  EXPECT_EQ(held[0].data.runs[0].data.get(), held[3].data.runs[0].data.get());

  // The damaged cartridge: the 5th Read(6) after each load has one wrong byte.
  library.send(kChanger, move_medium(0x1001, 0x0100));
  library.send(kDrive, kTestUnitReady);
  library.send(kDrive, kTestUnitReady);
  for (int i = 0; i < 5; ++i) library.send(kDrive, kWrite512, 0, write_record(0x11));
  for (int load = 0; load < 2; ++load) {
    library.send(kDrive, kRewind);
    for (int i = 1; i <= 5; ++i) {
      Bytes want = write_record(0x11);
      if (i == 5) want[0] ^= 0xFF;
      EXPECT_EQ(want, library.send(kDrive, kRead512, 512).data) << "load " << load << " read " << i;
    }
    library.send(kDrive, kUnload);
    library.send(kDrive, kLoad);  // 28/00, then one NOT READY
    library.send(kDrive, kTestUnitReady);
    library.send(kDrive, kTestUnitReady);
  }
  library.send(kDrive, kUnload);
  library.send(kChanger, move_medium(0x0100, 0x1001));

  // The unloadable cartridge never becomes ready, but unloads and goes back.
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, move_medium(0x1002, 0x0100))));
  EXPECT_EQ("0 06 28/00", sense_of(library.send(kDrive, kTestUnitReady)));
  for (int i = 0; i < 3; ++i) EXPECT_EQ("0 02 30/00", sense_of(library.send(kDrive, kTestUnitReady)));
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kDrive, kUnload)));
  EXPECT_EQ("0 00 00/00", sense_of(library.send(kChanger, move_medium(0x0100, 0x1002))));
}

TEST(VirtualLibrary, AdapterListsTheChangerAndEveryDrive) {
  Library library("adapter", "slots = 2\ndrives = 3\nchanger_tid = 2\nchanger_lun = 1\n");
  AdapterInquiry inquiry{};
  ASSERT_EQ(0, vtape_platform()->query_adapter(library.handle, &inquiry));
  ASSERT_EQ(4u, inquiry.unit_count);
  const uint8_t want[4][4] = {{2, 0, 0x01, 0}, {2, 1, 0x08, 0}, {3, 0, 0x01, 0}, {4, 0, 0x01, 0}};
  for (unsigned i = 0; i < 4; ++i) {
    const LogicalUnitInfo& unit = inquiry.units[i];
    EXPECT_EQ(want[i][0], unit.target_id);
    EXPECT_EQ(want[i][1], unit.lun);
    EXPECT_EQ(want[i][2], unit.inquiry[0]);
    EXPECT_EQ(want[i][3], unit.claimed);
  }
  EXPECT_EQ("1460 00 00/00", sense_of(library.send(5, kTestUnitReady)));  // selection timeout
  EXPECT_EQ("0 05 25/00", sense_of(library.send(3, kTestUnitReady, 0, {}, 1)));
  EXPECT_EQ("0 06 29/00", sense_of(library.send(2, kTestUnitReady, 0, {}, 1)));  // the changer
  // Each drive its own serial number.
  const Answer serial = library.send(4, {kOpInquiry, 1, 0x80, 0, 64, 0}, 64);
  EXPECT_EQ(text("VT00000003"), Bytes(serial.data.begin() + 4, serial.data.end()));
}

// A unit belongs to the first handle that commands it until that handle is
// closed; the first N changer commands of each open can be made to fail.
TEST(VirtualLibrary, UnitsBelongToOneHandleAtATime) {
  Library library("handles", "slots = 2\nchanger_held_polls = 2\n");
  PlatformHandle second = kInvalidPlatformHandle;
  ASSERT_EQ(kErrorNone, vtape_platform()->open_device("\\\\.\\Scsi0:", &second));
  EXPECT_EQ(32u, library.send(kChanger, kTestUnitReady).error);
  EXPECT_EQ(32u, library.send(kChanger, kTestUnitReady).error);
  EXPECT_EQ(0u, library.send(kChanger, kTestUnitReady).error);
  EXPECT_EQ(32u, Library::send_on(second, kChanger, kTestUnitReady).error);
  EXPECT_EQ(0u, Library::send_on(second, kDrive, kTestUnitReady).error);
  EXPECT_EQ(32u, library.send(kDrive, kTestUnitReady).error);
  library.close();
  EXPECT_EQ(32u, Library::send_on(second, kChanger, kTestUnitReady).error);  // its own held polls
  EXPECT_EQ(32u, Library::send_on(second, kChanger, kTestUnitReady).error);
  EXPECT_EQ(0u, Library::send_on(second, kChanger, kTestUnitReady).error);
  vtape_platform()->close_device(second);
}

TEST(VirtualLibrary, LibraryDirectoryKeepsCartridgesAndInventoryAcrossRuns) {
  const fs::path shelf = work_directory("shelf");
  const std::string description = "slots = 3\nbarcodes = VT0001L9, VT0002L9\nlibrary_dir = " + shelf.string() + "\n";
  {
    Library run("first_run", description);
    run.send(kChanger, kTestUnitReady);
    run.send(kChanger, move_medium(0x1000, 0x0100));
    run.send(kDrive, kTestUnitReady);
    EXPECT_EQ("0 00 00/00", sense_of(run.send(kDrive, kWrite512, 0, write_record(0xC3))));
    run.send(kDrive, kUnload);
    EXPECT_EQ("0 00 00/00", sense_of(run.send(kChanger, move_medium(0x0100, 0x1002, 0, false))));
    EXPECT_EQ("0 05 3B/0D", sense_of(run.send(kChanger, move_medium(0x1001, 0x1002))));
  }
  EXPECT_TRUE(fs::exists(shelf / "VT0001L9.vtape"));
  EXPECT_FALSE(fs::exists(shelf / "inventory.new"));
  Library again("second_run", description);
  again.send(kChanger, kTestUnitReady);
  // Slot 1 empty, slot 3 holds VT0001L9, which came from slot 1 (VT0002L9 stayed: its move was refused).
  const Answer slots = again.send(kChanger, read_element_status(2, true, false), 0x10000);
  ASSERT_EQ(8u + 8 + 3 * 48, slots.data.size());
  EXPECT_EQ(0x08, slots.data[16 + 2]);
  EXPECT_EQ(text("VT0002L9"), Bytes(slots.data.begin() + 16 + 48 + 12, slots.data.begin() + 16 + 48 + 20));
  EXPECT_EQ(Bytes{0x81}, Bytes(1, slots.data[16 + 96 + 9]));
  EXPECT_EQ(text("VT0001L9"), Bytes(slots.data.begin() + 16 + 96 + 12, slots.data.begin() + 16 + 96 + 20));
  again.send(kChanger, move_medium(0x1002, 0x0100));
  again.send(kDrive, kTestUnitReady);
  EXPECT_EQ(write_record(0xC3), again.send(kDrive, kRead512, 512).data);
  fs::remove_all(shelf);
}

// Two processes on one library directory: while one holds the changer, the
// other's changer commands fail as in use; its drives still answer.
TEST(VirtualLibrary, SecondProcessFindsTheChangerInUse) {
  const fs::path shelf = work_directory("shared_shelf");
  const std::string description = "slots = 2\ndrives = 2\nlibrary_dir = " + shelf.string() + "\n";
  int to_child[2], to_parent[2];
  ASSERT_EQ(0, pipe(to_child));
  ASSERT_EQ(0, pipe(to_parent));
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {  // holds the changer until the parent writes (or goes away)
    ::close(to_child[1]);
    ::close(to_parent[0]);
    {
      Library holder("holder", description);
      const bool holds = holder.send(kChanger, kTestUnitReady).error == 0 &&
                         holder.send(kChanger, move_medium(0x1000, 0x0101)).status == 0;
      char byte = holds ? 'h' : 'x';
      if (write(to_parent[1], &byte, 1) == 1) (void)!read(to_child[0], &byte, 1);
    }
    _exit(0);
  }
  ::close(to_child[0]);
  ::close(to_parent[1]);
  // Whatever happens here, the holder is let go and reaped.
  struct Release {
    int fd;
    pid_t child;
    int status = -1;
    void now() {
      if (fd < 0) return;
      ::close(fd);
      fd = -1;
      waitpid(child, &status, 0);
    }
    ~Release() { now(); }
  } release{to_child[1], child};
  char byte = 0;
  ASSERT_EQ(1, read(to_parent[0], &byte, 1));
  ::close(to_parent[0]);
  ASSERT_EQ('h', byte);
  {
    Library other("other", description);
    EXPECT_EQ(32u, other.send(kChanger, kTestUnitReady).error);
    EXPECT_EQ("0 06 29/00", sense_of(other.send(kDrive, kTestUnitReady)));
    // The holder closes its handle: the lock and the inventory are free.
    release.now();
    EXPECT_EQ(0, release.status);
    EXPECT_EQ("0 06 29/00", sense_of(other.send(kChanger, kTestUnitReady)));
    // ... and this process now sees the holder's move: slot 1 into drive 2.
    EXPECT_EQ("0 05 3B/0E", sense_of(other.send(kChanger, move_medium(0x1000, 0x0100))));
    EXPECT_EQ("0 05 3B/0D", sense_of(other.send(kChanger, move_medium(0x1001, 0x0101))));
  }
  fs::remove_all(shelf);
}

}  // namespace
