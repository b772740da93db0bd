// The virtual drive's cartridge: the sequence of records and filemarks on
// the tape, the logical position, and how many tape bytes the data takes.
//
// Consecutive identical writes are kept once with a repeat count: a run
// holds one unit (the records of one Write(6) command, each `block_length`
// bytes) and how many times it repeats, so a test that writes the same
// buffer again and again costs the memory of one buffer. Filemarks are runs
// too. The position is (run, objects of that run before it); at the end of
// data the run index equals the number of runs.
//
// Not thread-safe; the drive serialises access.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// The bytes of one unit. Never changed once written, so cartridges may share
// them (a library keeps one copy of a unit that many cartridges hold).
using UnitBytes = std::shared_ptr<const std::vector<uint8_t>>;

struct TapeRun {
  bool filemark;
  uint32_t block_length;      // bytes of each record; 0 for filemarks
  uint32_t blocks_per_unit;   // records of one unit; 1 for filemarks
  uint64_t units;             // how often the unit repeats
  uint32_t unit_tape_bytes;   // bytes one unit takes on tape (after compression)
  UnitBytes data;             // the unit: blocks_per_unit * block_length bytes; null for filemarks
};

struct Cartridge {
  std::vector<TapeRun> runs;
  size_t run;              // position: index of the run at the position
  uint64_t offset;         // objects of runs[run] before the position
  uint64_t object_number;  // logical objects (records and filemarks) before the position
  uint64_t tape_bytes;     // tape bytes of everything up to the end of data
};

enum class TapeObject { record, filemark, end_of_data, beginning_of_tape };

// Empties the cartridge and puts the position at the beginning of tape.
void erase_cartridge(Cartridge* cartridge);
void rewind_cartridge(Cartridge* cartridge);
void seek_end_of_data(Cartridge* cartridge);

// What lies just after the position (record, filemark or end of data), and
// how many objects of that kind follow in a row within the current run.
TapeObject object_ahead(const Cartridge& cartridge);
uint64_t objects_ahead_in_run(const Cartridge& cartridge);
// Moves forward over `count` objects of the current run (count <= objects_ahead_in_run).
void skip_ahead(Cartridge* cartridge, uint64_t count);

// What lies just before the position (record, filemark or beginning of
// tape), how many of it precede in a row within its run, and the move back.
TapeObject object_behind(const Cartridge& cartridge);
uint64_t objects_behind_in_run(const Cartridge& cartridge);
void skip_behind(Cartridge* cartridge, uint64_t count);

// The run of the record ahead and the record's bytes (only when
// object_ahead is a record).
const TapeRun& run_ahead(const Cartridge& cartridge);
const uint8_t* record_ahead(const Cartridge& cartridge);

// Drops everything from the position on: the position becomes the end of data.
void truncate_at_position(Cartridge* cartridge);

// True when `data` (blocks * block_length bytes) equals the unit of the last
// run, so that appending it only raises that run's repeat count.
bool repeats_last_unit(const Cartridge& cartridge, const uint8_t* data, uint32_t block_length,
                       uint32_t blocks);

// Appends one unit at the end of data (the position must be there) and
// moves the position after it: a repeat (as repeats_last_unit found) only
// counts up the last run, otherwise the unit is copied into a new run.
// `unit_tape_bytes` is its size on tape.
void append_unit(Cartridge* cartridge, const uint8_t* data, uint32_t block_length, uint32_t blocks,
                 uint32_t unit_tape_bytes, bool repeat);
void append_filemarks(Cartridge* cartridge, uint64_t count);

// Tape bytes of everything before the position.
uint64_t tape_bytes_before_position(const Cartridge& cartridge);

// Bytes of record data the cartridge refers to (each run's unit once).
uint64_t stored_data_bytes(const Cartridge& cartridge);

// A unit's bytes, copied into a new buffer.
UnitBytes make_unit_bytes(const uint8_t* data, size_t length);
