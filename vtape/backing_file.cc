#include "vtape/backing_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console/log_output.h"

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

bool read_run(FILE* file, TapeRun* run) {
  uint64_t filemark, block_length, blocks, units, tape_bytes;
  if (!get(file, &filemark, 1) || !get(file, &block_length, 4) || !get(file, &blocks, 4) ||
      !get(file, &units, 8) || !get(file, &tape_bytes, 4)) {
    return false;
  }
  if (filemark > 1 || blocks == 0 || units == 0 || block_length > 0xFFFFFF ||
      block_length * blocks > 0xFFFFFFFFu) {
    return false;
  }
  run->filemark = filemark == 1;
  run->block_length = static_cast<uint32_t>(block_length);
  run->blocks_per_unit = static_cast<uint32_t>(blocks);
  run->units = units;
  run->unit_tape_bytes = static_cast<uint32_t>(tape_bytes);
  if (filemark == 1) return true;
  auto bytes = std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(block_length * blocks));
  run->data = bytes;
  return bytes->empty() || std::fread(bytes->data(), 1, bytes->size(), file) == bytes->size();
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
  char magic[sizeof kMagic] = {};
  uint64_t count = 0;
  bool ok = std::fread(magic, 1, sizeof kMagic - 1, file) == sizeof kMagic - 1 &&
            std::memcmp(magic, kMagic, sizeof kMagic - 1) == 0 && get(file, &count, 8);
  for (uint64_t i = 0; ok && i < count; ++i) {
    TapeRun run{};
    ok = read_run(file, &run);
    if (ok) {
      cartridge->tape_bytes += run.units * run.unit_tape_bytes;
      cartridge->runs.push_back(std::move(run));
    }
  }
  std::fclose(file);
  if (!ok) {
    erase_cartridge(cartridge);
    error_printf("ERROR: virtual tape backing file \"%s\" is damaged or not a virtual tape\n",
                 path);
    return -1;
  }
  return 0;
}

int save_backing_file(const char* path, const Cartridge& cartridge) {
  FILE* file = std::fopen(path, "wb");
  if (file == nullptr) {
    error_printf("ERROR: unable to write virtual tape backing file \"%s\": %s\n", path,
                 std::strerror(errno));
    return -1;
  }
  bool ok = std::fwrite(kMagic, 1, sizeof kMagic - 1, file) == sizeof kMagic - 1 &&
            put(file, cartridge.runs.size(), 8);
  for (const TapeRun& run : cartridge.runs) {
    ok = ok && put(file, run.filemark ? 1 : 0, 1) && put(file, run.block_length, 4) &&
         put(file, run.blocks_per_unit, 4) && put(file, run.units, 8) &&
         put(file, run.unit_tape_bytes, 4) &&
         (run.data == nullptr || run.data->empty() ||
          std::fwrite(run.data->data(), 1, run.data->size(), file) == run.data->size());
  }
  ok = (std::fclose(file) == 0) && ok;
  if (!ok) {
    error_printf("ERROR: unable to write virtual tape backing file \"%s\"\n", path);
    return -1;
  }
  return 0;
}
