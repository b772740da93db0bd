#include "vtape/vtape_testing.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "settings/settings.h"
#include "vtape/virtual_drive.h"

int32_t Answer::information() const {
  return static_cast<int32_t>((static_cast<uint32_t>(sense[3]) << 24) |
                              (static_cast<uint32_t>(sense[4]) << 16) |
                              (static_cast<uint32_t>(sense[5]) << 8) | sense[6]);
}

std::string write_temp_file(const std::string& name, const std::string& text) {
  // Named after the running test: CTest runs tests in parallel processes.
  const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string prefix =
      test != nullptr ? std::string(test->test_suite_name()) + "." + test->name() + "." : "";
  std::string path = (std::filesystem::temp_directory_path() / (prefix + name)).string();
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file != nullptr) {
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
  }
  return path;
}

int configure_vtape(const std::string& description) {
  reset_settings();
  if (description.empty()) return vtape_configure(nullptr);
  std::string path = write_temp_file("bftdtest_vtape_test.txt", description);
  return vtape_configure(path.c_str());
}

PlatformHandle open_vtape() {
  PlatformHandle handle = kInvalidPlatformHandle;
  if (vtape_platform()->open_device("\\\\.\\Scsi0:", &handle) != 0) return kInvalidPlatformHandle;
  return handle;
}

Answer send_cdb(PlatformHandle handle, std::initializer_list<uint8_t> cdb, uint8_t* data,
                uint32_t length, DataDirection direction) {
  return send_cdb_to(handle, test_settings.bus_number, test_settings.scsi_id, test_settings.lun,
                     cdb, data, length, direction);
}

Answer send_cdb_to(PlatformHandle handle, uint8_t bus, uint8_t target, uint8_t lun,
                   std::initializer_list<uint8_t> cdb, uint8_t* data, uint32_t length,
                   DataDirection direction) {
  uint8_t no_data = 0;
  PassThroughRequest request{};
  request.path_id = bus;
  request.target_id = target;
  request.lun = lun;
  request.cdb_length = static_cast<uint8_t>(cdb.size());
  unsigned i = 0;
  for (uint8_t byte : cdb) request.cdb[i++] = byte;
  request.direction = direction;
  request.data = data != nullptr ? data : &no_data;
  request.data_length = data != nullptr ? length : 0;
  request.timeout_seconds = 108000;
  Answer answer;
  request.sense = answer.sense;
  PassThroughReply reply{};
  vtape_platform()->pass_through(handle, request, reply);
  answer.error = reply.error;
  answer.status = reply.scsi_status;
  answer.transferred = reply.transferred_length;
  answer.sense_length = reply.sense_length;
  return answer;
}

PlatformHandle ready_vtape(const std::string& description) {
  if (configure_vtape(description) != 0) return kInvalidPlatformHandle;
  PlatformHandle handle = open_vtape();
  send_cdb(handle, {0x00, 0, 0, 0, 0, 0});  // takes the power-on unit attention
  return handle;
}

namespace {
uint8_t byte_of(uint32_t value, int shift) { return static_cast<uint8_t>(value >> shift); }
}  // namespace

Answer write_bytes(PlatformHandle h, const std::vector<uint8_t>& record, bool fixed,
                   uint32_t count) {
  uint32_t length = fixed ? count : static_cast<uint32_t>(record.size());
  return send_cdb(h,
                  {0x0A, static_cast<uint8_t>(fixed ? 1 : 0), byte_of(length, 16),
                   byte_of(length, 8), byte_of(length, 0), 0},
                  const_cast<uint8_t*>(record.data()), static_cast<uint32_t>(record.size()),
                  DataDirection::out);
}

Answer read_bytes(PlatformHandle h, std::vector<uint8_t>* buffer, uint32_t transfer_length,
                  bool fixed, bool sili) {
  uint8_t flags = static_cast<uint8_t>((fixed ? 1 : 0) | (sili ? 2 : 0));
  return send_cdb(h,
                  {0x08, flags, byte_of(transfer_length, 16), byte_of(transfer_length, 8),
                   byte_of(transfer_length, 0), 0},
                  buffer->data(), static_cast<uint32_t>(buffer->size()));
}

Answer write_filemarks(PlatformHandle h, uint32_t count) {
  return send_cdb(h, {0x10, 0, byte_of(count, 16), byte_of(count, 8), byte_of(count, 0), 0});
}

Answer space(PlatformHandle h, uint8_t code, int32_t count) {
  uint32_t field = static_cast<uint32_t>(count);
  return send_cdb(h, {0x11, code, byte_of(field, 16), byte_of(field, 8), byte_of(field, 0), 0});
}

Answer rewind_tape(PlatformHandle h) { return send_cdb(h, {0x01, 0, 0, 0, 0, 0}); }

Answer select_block_mode(PlatformHandle h, uint8_t density, uint32_t block_length, bool pf) {
  uint8_t list[12] = {0,
                      0,
                      0,
                      8,
                      density,
                      0,
                      0,
                      0,
                      0,
                      byte_of(block_length, 16),
                      byte_of(block_length, 8),
                      byte_of(block_length, 0)};
  return send_cdb(h, {0x15, static_cast<uint8_t>(pf ? 0x10 : 0), 0, 0, 12, 0}, list, 12,
                  DataDirection::out);
}

int64_t tape_position(PlatformHandle h) {
  uint8_t data[20] = {};
  Answer a = send_cdb(h, {0x34, 0, 0, 0, 0, 0, 0, 0, 0, 0}, data, 20);
  if (a.error != 0 || a.status != 0) return -1;
  return (static_cast<int64_t>(data[4]) << 24) | (data[5] << 16) | (data[6] << 8) | data[7];
}

int64_t log_value(PlatformHandle h, uint8_t page, unsigned offset, unsigned length) {
  uint8_t data[40] = {};
  Answer a =
      send_cdb(h, {0x4D, 0, static_cast<uint8_t>(0x40 | page), 0, 0, 0, 0, 0, 40, 0}, data, 40);
  if (a.error != 0 || a.status != 0 || (data[0] & 0x3F) != page || 4 + offset + length > 40) {
    return -1;
  }
  int64_t value = 0;
  for (unsigned i = 0; i < length; ++i) value = (value << 8) | data[4 + offset + i];
  return value;
}
