#include "vtape/backing_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "console/log_output.h"
#include "os/os.h"

namespace {

constexpr char kMagic[] = "BFTDTEST VIRTUAL TAPE 1\n";

bool put(FILE* file, uint64_t value, unsigned bytes) {
  uint8_t buffer[8];
  for (unsigned i = 0; i < bytes; ++i) buffer[i] = static_cast<uint8_t>(value >> (8 * i));
  return std::fwrite(buffer, 1, bytes, file) == bytes;
}

bool get(FILE* file, uint64_t* value, unsigned bytes) {
  uint8_t buffer[8];
  if (std::fread(buffer, 1, bytes, file) != bytes) return false;
  *value = 0;
  for (unsigned i = 0; i < bytes; ++i) *value |= static_cast<uint64_t>(buffer[i]) << (8 * i);
  return true;
}

// The bytes of a run's header in the file: filemark flag, block length,
// blocks per unit, units, tape bytes per unit.
constexpr uint64_t kRunHeaderBytes = 1 + 4 + 4 + 8 + 4;

// Reads one run; `left` is what the file holds after the position. False
// for a damaged run, with `*too_long` set when its data would reach past
// the end of the file (checked before the data is allocated).
bool read_run(FILE* file, uint64_t* left, TapeRun* run, bool* too_long) {
  uint64_t filemark, block_length, blocks, units, tape_bytes;
  if (*left < kRunHeaderBytes || !get(file, &filemark, 1) || !get(file, &block_length, 4) ||
      !get(file, &blocks, 4) || !get(file, &units, 8) || !get(file, &tape_bytes, 4)) {
    return false;
  }
  *left -= kRunHeaderBytes;
  // A filemark run holds no data: one object of no bytes per unit.
  if (filemark > 1 || blocks == 0 || units == 0 || block_length > 0xFFFFFF ||
      block_length * blocks > 0xFFFFFFFFu || (filemark == 1 && (block_length != 0 || blocks != 1))) {
    return false;
  }
  const uint64_t data_bytes = block_length * blocks;
  if (data_bytes > *left) {
    *too_long = true;
    return false;
  }
  *left -= data_bytes;
  run->filemark = filemark == 1;
  run->block_length = static_cast<uint32_t>(block_length);
  run->blocks_per_unit = static_cast<uint32_t>(blocks);
  run->units = units;
  run->unit_tape_bytes = static_cast<uint32_t>(tape_bytes);
  if (filemark == 1) return true;
  auto bytes = std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(data_bytes));
  run->data = bytes;
  return bytes->empty() || std::fread(bytes->data(), 1, bytes->size(), file) == bytes->size();
}

bool write_cartridge(FILE* file, const Cartridge& cartridge) {
  bool ok = std::fwrite(kMagic, 1, sizeof kMagic - 1, file) == sizeof kMagic - 1 &&
            put(file, cartridge.runs.size(), 8);
  for (const TapeRun& run : cartridge.runs) {
    ok = ok && put(file, run.filemark ? 1 : 0, 1) && put(file, run.block_length, 4) &&
         put(file, run.blocks_per_unit, 4) && put(file, run.units, 8) &&
         put(file, run.unit_tape_bytes, 4) &&
         (run.data == nullptr || run.data->empty() ||
          std::fwrite(run.data->data(), 1, run.data->size(), file) == run.data->size());
  }
  return ok;
}

}  // namespace

int load_backing_file(const char* path, Cartridge* cartridge) {
  erase_cartridge(cartridge);
  FILE* file = std::fopen(path, "rb");
  if (file == nullptr) {
    if (errno == ENOENT) return 0;
    error_printf("ERROR: unable to open virtual tape backing file \"%s\": %s\n", path,
                 std::strerror(errno));
    return -1;
  }
  std::error_code size_error;
  const uintmax_t size = std::filesystem::file_size(path, size_error);
  if (size_error) {
    std::fclose(file);
    error_printf("ERROR: unable to read virtual tape backing file \"%s\"\n", path);
    return -1;
  }
  char magic[sizeof kMagic] = {};
  uint64_t count = 0;
  constexpr uint64_t kFileHeaderBytes = sizeof kMagic - 1 + 8;
  bool ok = size >= kFileHeaderBytes && std::fread(magic, 1, sizeof kMagic - 1, file) == sizeof kMagic - 1 &&
            std::memcmp(magic, kMagic, sizeof kMagic - 1) == 0 && get(file, &count, 8);
  uint64_t left = ok ? size - kFileHeaderBytes : 0;
  bool too_long = ok && count > left / kRunHeaderBytes;
  ok = ok && !too_long;
  for (uint64_t i = 0; ok && i < count; ++i) {
    TapeRun run{};
    ok = read_run(file, &left, &run, &too_long);
    if (ok) {
      cartridge->tape_bytes += run.units * run.unit_tape_bytes;
      cartridge->runs.push_back(std::move(run));
    }
  }
  std::fclose(file);
  if (!ok) {
    erase_cartridge(cartridge);
    if (too_long) {
      error_printf("ERROR: virtual tape backing file \"%s\" is damaged: it claims more data than its %llu bytes\n",
                   path, static_cast<unsigned long long>(size));
    } else {
      error_printf("ERROR: virtual tape backing file \"%s\" is damaged or not a virtual tape\n", path);
    }
    return -1;
  }
  return 0;
}

int save_backing_file(const char* path, const Cartridge& cartridge, bool quiet) {
  const std::string temporary = std::string(path) + ".new";
  FILE* file = std::fopen(temporary.c_str(), "wb");
  if (file == nullptr) {
    if (!quiet) {
      error_printf("ERROR: unable to write virtual tape backing file \"%s\": %s\n", temporary.c_str(),
                   std::strerror(errno));
    }
    return -1;
  }
  bool ok = write_cartridge(file, cartridge);
  ok = os_sync_file(file) == 0 && ok;
  ok = std::fclose(file) == 0 && ok;
  ok = ok && os_replace_file(temporary.c_str(), path) == 0;
  if (!ok) {
    std::remove(temporary.c_str());
    if (!quiet) {
      error_printf("ERROR: unable to write virtual tape backing file \"%s\"; the cartridge saved before is kept\n",
                   path);
    }
    return -1;
  }
  return 0;
}
