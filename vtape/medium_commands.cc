// Commands that move data on the tape: Rewind, Read(6), Write(6) and Write
// Filemarks, following SSC for filemarks, end of data, early warning and
// overflow.
#include <algorithm>
#include <cstring>

#include "vtape/commands.h"
#include "vtape/compressor.h"

namespace {

// A damaged library cartridge returns one wrong byte in this Read(6) after each load.
constexpr uint64_t kDamagedRead = 5;

// The request's buffer cannot hold what the CDB asks for: the adapter
// refuses the request before the drive sees it.
bool buffer_too_small(const PassThroughRequest& request, uint64_t bytes, CommandAnswer* answer) {
  if (bytes <= request.data_length) return false;
  answer->error = kErrorInvalidParameter;
  return true;
}

// NO SENSE with EOM once the data ends inside the early-warning zone.
void report_early_warning(const VirtualDrive& drive, CommandAnswer* answer) {
  if (drive.cartridge.tape_bytes < early_warning_bytes(drive)) return;
  check_condition(answer, kSenseNoSense, 0x00, 0x02);  // END-OF-PARTITION/MEDIUM DETECTED
  set_end_of_medium(answer);
  set_information(answer, 0);
}

// The bytes a unit of records takes on tape with compression on: what the
// compressor makes of it, but no less than max_compression_ratio allows (a
// drive's compression format has a densest encoding of repeated bytes).
uint32_t compressed_tape_bytes(const VtapeDescription& d, const uint8_t* data, uint32_t bytes) {
  uint32_t size = compressed_size(data, bytes);
  if (d.max_compression_ratio == 0) return size;
  uint64_t densest = (uint64_t{bytes} + d.max_compression_ratio - 1) / d.max_compression_ratio;
  return size > densest ? size : static_cast<uint32_t>(densest);
}

// Reads one record in variable block mode into the request's buffer.
void read_variable(VirtualDrive* drive, const PassThroughRequest& request, uint32_t length,
                   bool sili, CommandAnswer* answer) {
  Cartridge& tape = drive->cartridge;
  TapeObject next = object_ahead(tape);
  if (next == TapeObject::end_of_data) {
    check_condition(answer, kSenseBlankCheck, 0x00, 0x05);  // END-OF-DATA DETECTED
    set_information(answer, length);
    return;
  }
  if (next == TapeObject::filemark) {
    skip_ahead(&tape, 1);
    check_condition(answer, kSenseNoSense, 0x00, 0x01);  // FILEMARK DETECTED
    set_filemark(answer);
    set_information(answer, length);
    return;
  }
  const TapeRun& run = run_ahead(tape);
  uint32_t copied = std::min(length, run.block_length);
  std::memcpy(request.data, record_ahead(tape), copied);
  drive->counters.tape_bytes_read += run.unit_tape_bytes / run.blocks_per_unit;
  drive->counters.host_bytes_read += copied;
  ++drive->counters.records_read;
  answer->transferred = copied;
  int64_t residue = static_cast<int64_t>(length) - run.block_length;
  skip_ahead(&tape, 1);
  // SILI hides a short record, and a long one while in variable block mode.
  bool report = residue != 0 && (!sili || (residue < 0 && drive->block_length != 0));
  if (report) {
    check_condition(answer, kSenseNoSense, 0x00, 0x00);
    set_incorrect_length(answer);
    set_information(answer, residue);
  }
}

// Reads `count` blocks of the mode block length, run by run; a record of
// another length ends the transfer with ILI after being read.
void read_fixed(VirtualDrive* drive, const PassThroughRequest& request, uint32_t count,
                CommandAnswer* answer) {
  Cartridge& tape = drive->cartridge;
  uint32_t block = drive->block_length;
  uint8_t* out = request.data;
  uint32_t done = 0;
  while (done < count) {
    TapeObject next = object_ahead(tape);
    if (next != TapeObject::record) {
      if (next == TapeObject::filemark) {
        skip_ahead(&tape, 1);
        check_condition(answer, kSenseNoSense, 0x00, 0x01);
        set_filemark(answer);
      } else {
        check_condition(answer, kSenseBlankCheck, 0x00, 0x05);
      }
      set_information(answer, count - done);
      break;
    }
    const TapeRun& run = run_ahead(tape);
    if (run.block_length != block) {
      uint32_t copied = std::min(block, run.block_length);
      std::memcpy(out, record_ahead(tape), copied);
      out += copied;
      drive->counters.host_bytes_read += copied;
      ++drive->counters.records_read;
      skip_ahead(&tape, 1);
      check_condition(answer, kSenseNoSense, 0x00, 0x00);
      set_incorrect_length(answer);
      set_information(answer, count - done);
      break;
    }
    uint64_t blocks = std::min<uint64_t>(count - done, objects_ahead_in_run(tape));
    uint64_t in_unit = tape.offset % run.blocks_per_unit;
    for (uint64_t left = blocks; left > 0;) {
      uint64_t piece = std::min<uint64_t>(left, run.blocks_per_unit - in_unit);
      std::memcpy(out, run.data->data() + static_cast<size_t>(in_unit * block),
                  static_cast<size_t>(piece * block));
      out += piece * block;
      left -= piece;
      in_unit = 0;
    }
    drive->counters.tape_bytes_read += run.unit_tape_bytes * blocks / run.blocks_per_unit;
    drive->counters.host_bytes_read += blocks * block;
    drive->counters.records_read += blocks;
    skip_ahead(&tape, blocks);
    done += static_cast<uint32_t>(blocks);
  }
  answer->transferred = static_cast<uint32_t>(out - request.data);
}

}  // namespace

void rewind(VirtualDrive* drive, const PassThroughRequest&, CommandAnswer*) {
  rewind_cartridge(&drive->cartridge);
}

void read6(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  uint64_t command = ++drive->read_commands;
  const bool damaged_read = ++drive->reads_since_load == kDamagedRead && (drive->medium_faults & kCartridgeDamaged);
  bool fixed = request.cdb[1] & 0x01;
  bool sili = request.cdb[1] & 0x02;
  if ((fixed && sili) || (fixed && drive->block_length == 0))
    return invalid_field_in_cdb(answer, 1);
  uint32_t length = cdb_transfer_length(request.cdb);
  uint64_t bytes = fixed ? static_cast<uint64_t>(length) * drive->block_length : length;
  if (length == 0 || buffer_too_small(request, bytes, answer)) return;
  const VtapeDescription& d = drive->description;
  if (command == d.fail_read_at) {
    ++drive->counters.read_failures;
    check_condition(answer, kSenseMediumError, 0x11, 0x00);  // UNRECOVERED READ ERROR
    set_information(answer, length);
    return;
  }
  if (command == d.filemark_at_read) {
    check_condition(answer, kSenseNoSense, 0x00, 0x01);
    set_filemark(answer);
    set_information(answer, length);
    return;
  }
  uint64_t start_object = drive->cartridge.object_number;
  uint64_t tape_before = drive->counters.tape_bytes_read;
  uint64_t host_before = drive->counters.host_bytes_read;
  if (fixed) {
    read_fixed(drive, request, length, answer);
  } else {
    read_variable(drive, request, length, sili, answer);
  }
  if (command == d.corrupt_read_at && d.corrupt_read_offset < answer->transferred) {
    request.data[d.corrupt_read_offset] ^= 0xFF;
  }
  if (damaged_read && answer->transferred > 0) request.data[0] ^= 0xFF;  // the damaged cartridge's one bad byte
  throttle_transfer(drive, start_object, drive->counters.tape_bytes_read - tape_before,
                    drive->counters.host_bytes_read - host_before, command);
}

// Write(6): one unit of records at the position, which becomes the end of
// data. A unit equal to the last one only counts up its repeat count.
void write6(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  uint64_t command = ++drive->write_commands;
  bool fixed = request.cdb[1] & 0x01;
  if ((request.cdb[1] & 0x02) || (fixed && drive->block_length == 0))
    return invalid_field_in_cdb(answer, 1);
  uint32_t length = cdb_transfer_length(request.cdb);
  const VtapeDescription& d = drive->description;
  if (!fixed && length != 0 && (length < d.min_block || length > d.max_block))
    return invalid_field_in_cdb(answer, 2);
  uint32_t block = fixed ? drive->block_length : length;
  uint32_t blocks = fixed ? length : 1;
  uint64_t bytes = static_cast<uint64_t>(block) * blocks;
  if (length == 0 || buffer_too_small(request, bytes, answer)) return;
  if (command == d.tapealert_at_write) drive->tapealert_flags |= uint64_t{1} << (d.tapealert_write_flag - 1);
  if (command == d.fail_write_at) {
    ++drive->counters.write_failures;
    check_condition(answer, kSenseMediumError, 0x0C, 0x00);  // WRITE ERROR
    set_information(answer, length);
    return;
  }
  Cartridge& tape = drive->cartridge;
  truncate_at_position(&tape);
  drive->modified = true;
  bool repeat = repeats_last_unit(tape, request.data, block, blocks);
  uint32_t tape_bytes = repeat ? tape.runs.back().unit_tape_bytes
                        : d.compression ? compressed_tape_bytes(d, request.data, static_cast<uint32_t>(bytes))
                                        : static_cast<uint32_t>(bytes);
  if (tape.tape_bytes + tape_bytes > capacity_bytes(*drive)) {
    check_condition(answer, kSenseVolumeOverflow, 0x00, 0x02);
    set_end_of_medium(answer);
    set_information(answer, length);
    return;
  }
  uint64_t start_object = tape.object_number;
  append_unit(&tape, request.data, block, blocks, tape_bytes, repeat);
  drive->counters.host_bytes_written += bytes;
  drive->counters.tape_bytes_written += tape_bytes;
  drive->counters.records_written += blocks;
  answer->transferred = static_cast<uint32_t>(bytes);
  throttle_transfer(drive, start_object, tape_bytes, bytes, command);
  report_early_warning(*drive, answer);
}

void write_filemarks(VirtualDrive* drive, const PassThroughRequest& request,
                     CommandAnswer* answer) {
  if (request.cdb[1] & 0x02) return invalid_field_in_cdb(answer, 1);  // setmarks
  uint32_t count = cdb_transfer_length(request.cdb);
  if (count == 0) return;  // only flushes the buffer, which the drive does not have
  Cartridge& tape = drive->cartridge;
  truncate_at_position(&tape);
  drive->modified = true;
  if (tape.tape_bytes >= capacity_bytes(*drive)) {
    check_condition(answer, kSenseVolumeOverflow, 0x00, 0x02);
    set_end_of_medium(answer);
    set_information(answer, count);
    return;
  }
  append_filemarks(&tape, count);
  report_early_warning(*drive, answer);
}
