#include "vtape/cartridge.h"

#include <cstring>

namespace {

uint64_t run_objects(const TapeRun& run) { return run.units * run.blocks_per_unit; }

uint64_t run_tape_bytes(const TapeRun& run) { return run.units * run.unit_tape_bytes; }

void recount_tape_bytes(Cartridge* c) {
  c->tape_bytes = 0;
  for (const TapeRun& run : c->runs) c->tape_bytes += run_tape_bytes(run);
}

}  // namespace

void erase_cartridge(Cartridge* c) {
  c->runs.clear();
  c->tape_bytes = 0;
  rewind_cartridge(c);
}

void rewind_cartridge(Cartridge* c) {
  c->run = 0;
  c->offset = 0;
  c->object_number = 0;
}

void seek_end_of_data(Cartridge* c) {
  rewind_cartridge(c);
  for (const TapeRun& run : c->runs) c->object_number += run_objects(run);
  c->run = c->runs.size();
}

TapeObject object_ahead(const Cartridge& c) {
  if (c.run >= c.runs.size()) return TapeObject::end_of_data;
  return c.runs[c.run].filemark ? TapeObject::filemark : TapeObject::record;
}

uint64_t objects_ahead_in_run(const Cartridge& c) {
  if (c.run >= c.runs.size()) return 0;
  return run_objects(c.runs[c.run]) - c.offset;
}

void skip_ahead(Cartridge* c, uint64_t count) {
  c->offset += count;
  c->object_number += count;
  if (c->run < c->runs.size() && c->offset == run_objects(c->runs[c->run])) {
    ++c->run;
    c->offset = 0;
  }
}

TapeObject object_behind(const Cartridge& c) {
  if (c.object_number == 0) return TapeObject::beginning_of_tape;
  size_t index = c.offset > 0 ? c.run : c.run - 1;
  return c.runs[index].filemark ? TapeObject::filemark : TapeObject::record;
}

uint64_t objects_behind_in_run(const Cartridge& c) {
  if (c.object_number == 0) return 0;
  return c.offset > 0 ? c.offset : run_objects(c.runs[c.run - 1]);
}

void skip_behind(Cartridge* c, uint64_t count) {
  if (count == 0) return;
  if (c->offset == 0) {
    --c->run;
    c->offset = run_objects(c->runs[c->run]);
  }
  c->offset -= count;
  c->object_number -= count;
}

const TapeRun& run_ahead(const Cartridge& c) { return c.runs[c.run]; }

const uint8_t* record_ahead(const Cartridge& c) {
  const TapeRun& run = c.runs[c.run];
  return run.data->data() + (c.offset % run.blocks_per_unit) * run.block_length;
}

void truncate_at_position(Cartridge* c) {
  if (c->run >= c->runs.size()) return;
  TapeRun& run = c->runs[c->run];
  uint64_t whole_units = c->offset / run.blocks_per_unit;
  uint32_t loose_blocks = static_cast<uint32_t>(c->offset % run.blocks_per_unit);
  size_t keep = c->run;
  if (whole_units > 0) {
    run.units = whole_units;
    ++keep;
  }
  TapeRun tail{};
  if (loose_blocks > 0) {
    // The position lies inside a unit: its first records become a run of their own.
    tail.block_length = run.block_length;
    tail.blocks_per_unit = loose_blocks;
    tail.units = 1;
    tail.unit_tape_bytes = static_cast<uint32_t>(static_cast<uint64_t>(run.unit_tape_bytes) *
                                                 loose_blocks / run.blocks_per_unit);
    tail.data = make_unit_bytes(run.data->data(), static_cast<size_t>(loose_blocks) * run.block_length);
  }
  c->runs.resize(keep);
  if (loose_blocks > 0) c->runs.push_back(std::move(tail));
  c->run = c->runs.size();
  c->offset = 0;
  recount_tape_bytes(c);
}

bool repeats_last_unit(const Cartridge& c, const uint8_t* data, uint32_t block_length,
                       uint32_t blocks) {
  if (c.runs.empty()) return false;
  const TapeRun& last = c.runs.back();
  return !last.filemark && last.block_length == block_length && last.blocks_per_unit == blocks &&
         std::memcmp(last.data->data(), data, static_cast<size_t>(block_length) * blocks) == 0;
}

void append_unit(Cartridge* c, const uint8_t* data, uint32_t block_length, uint32_t blocks,
                 uint32_t unit_tape_bytes, bool repeat) {
  if (repeat) {
    ++c->runs.back().units;
  } else {
    TapeRun run{};
    run.block_length = block_length;
    run.blocks_per_unit = blocks;
    run.units = 1;
    run.unit_tape_bytes = unit_tape_bytes;
    run.data = make_unit_bytes(data, static_cast<size_t>(block_length) * blocks);
    c->runs.push_back(std::move(run));
  }
  c->tape_bytes += unit_tape_bytes;
  c->run = c->runs.size();
  c->offset = 0;
  c->object_number += blocks;
}

void append_filemarks(Cartridge* c, uint64_t count) {
  if (!c->runs.empty() && c->runs.back().filemark) {
    c->runs.back().units += count;
  } else {
    TapeRun run{};
    run.filemark = true;
    run.blocks_per_unit = 1;
    run.units = count;
    c->runs.push_back(std::move(run));
  }
  c->run = c->runs.size();
  c->offset = 0;
  c->object_number += count;
}

uint64_t tape_bytes_before_position(const Cartridge& c) {
  uint64_t bytes = 0;
  for (size_t i = 0; i < c.run && i < c.runs.size(); ++i) bytes += run_tape_bytes(c.runs[i]);
  if (c.run < c.runs.size()) {
    const TapeRun& run = c.runs[c.run];
    bytes += c.offset * run.unit_tape_bytes / run.blocks_per_unit;
  }
  return bytes;
}

uint64_t stored_data_bytes(const Cartridge& c) {
  uint64_t bytes = 0;
  for (const TapeRun& run : c.runs) bytes += run.data != nullptr ? run.data->size() : 0;
  return bytes;
}

UnitBytes make_unit_bytes(const uint8_t* data, size_t length) {
  return std::make_shared<const std::vector<uint8_t>>(data, data + length);
}
