// Space(6) and Read Position (SSC). Spacing over blocks stops at a
// filemark (the position is then on its far side going forward, on its
// beginning-of-tape side going back); any spacing stops at end of data
// (BLANK CHECK, EOD) and at the beginning of tape (NO SENSE, EOM, 00/04).
// The information field holds the residue, the requested count minus the
// count spaced, negative when spacing back.
#include <algorithm>

#include "vtape/commands.h"

namespace {

int32_t signed_count(const uint8_t* cdb) {
  uint32_t count = cdb_transfer_length(cdb);
  if (count & 0x800000) count |= 0xFF000000u;
  return static_cast<int32_t>(count);
}

void stopped_at(CommandAnswer* answer, TapeObject object, int64_t residue) {
  if (object == TapeObject::end_of_data) {
    check_condition(answer, kSenseBlankCheck, 0x00, 0x05);  // END-OF-DATA DETECTED
  } else if (object == TapeObject::filemark) {
    check_condition(answer, kSenseNoSense, 0x00, 0x01);  // FILEMARK DETECTED
    set_filemark(answer);
  } else {
    check_condition(answer, kSenseNoSense, 0x00, 0x04);  // BEGINNING-OF-PARTITION/MEDIUM DETECTED
    set_end_of_medium(answer);
  }
  set_information(answer, residue);
}

void space_blocks_forward(Cartridge* tape, uint64_t count, CommandAnswer* answer) {
  for (uint64_t done = 0; done < count;) {
    TapeObject next = object_ahead(*tape);
    if (next != TapeObject::record) {
      if (next == TapeObject::filemark) skip_ahead(tape, 1);
      return stopped_at(answer, next, static_cast<int64_t>(count - done));
    }
    uint64_t step = std::min(count - done, objects_ahead_in_run(*tape));
    skip_ahead(tape, step);
    done += step;
  }
}

void space_blocks_back(Cartridge* tape, uint64_t count, CommandAnswer* answer) {
  for (uint64_t done = 0; done < count;) {
    TapeObject previous = object_behind(*tape);
    if (previous != TapeObject::record) {
      if (previous == TapeObject::filemark) skip_behind(tape, 1);
      return stopped_at(answer, previous, -static_cast<int64_t>(count - done));
    }
    uint64_t step = std::min(count - done, objects_behind_in_run(*tape));
    skip_behind(tape, step);
    done += step;
  }
}

void space_filemarks_forward(Cartridge* tape, uint64_t count, CommandAnswer* answer) {
  for (uint64_t done = 0; done < count;) {
    TapeObject next = object_ahead(*tape);
    if (next == TapeObject::end_of_data)
      return stopped_at(answer, next, static_cast<int64_t>(count - done));
    uint64_t ahead = objects_ahead_in_run(*tape);
    uint64_t step = next == TapeObject::filemark ? std::min(count - done, ahead) : ahead;
    skip_ahead(tape, step);
    if (next == TapeObject::filemark) done += step;
  }
}

void space_filemarks_back(Cartridge* tape, uint64_t count, CommandAnswer* answer) {
  for (uint64_t done = 0; done < count;) {
    TapeObject previous = object_behind(*tape);
    if (previous == TapeObject::beginning_of_tape)
      return stopped_at(answer, previous, -static_cast<int64_t>(count - done));
    uint64_t behind = objects_behind_in_run(*tape);
    uint64_t step = previous == TapeObject::filemark ? std::min(count - done, behind) : behind;
    skip_behind(tape, step);
    if (previous == TapeObject::filemark) done += step;
  }
}

}  // namespace

void space6(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  uint8_t code = request.cdb[1] & 0x07;
  int32_t count = signed_count(request.cdb);
  uint64_t magnitude = count < 0 ? static_cast<uint64_t>(-static_cast<int64_t>(count))
                                 : static_cast<uint64_t>(count);
  Cartridge* tape = &drive->cartridge;
  switch (code) {
    case 0:  // logical blocks
      return count < 0 ? space_blocks_back(tape, magnitude, answer)
                       : space_blocks_forward(tape, magnitude, answer);
    case 1:  // filemarks
      return count < 0 ? space_filemarks_back(tape, magnitude, answer)
                       : space_filemarks_forward(tape, magnitude, answer);
    case 3:  // end of data
      return seek_end_of_data(tape);
    default:  // sequential filemarks, setmarks
      return invalid_field_in_cdb(answer, 1);
  }
}

// Read Position, short form (20 bytes): BOP and EOP flags, first and last
// block location (the logical object number: records and filemarks before
// the position; nothing is buffered, so both are equal).
void read_position(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  uint8_t service_action = request.cdb[1] & 0x1F;
  if (service_action > 1) return invalid_field_in_cdb(answer, 1);  // long and extended forms
  const Cartridge& tape = drive->cartridge;
  uint8_t data[20] = {};
  if (tape.object_number == 0) data[0] |= 0x80;                                          // BOP
  if (tape_bytes_before_position(tape) >= early_warning_bytes(*drive)) data[0] |= 0x40;  // EOP
  if (tape.object_number > 0xFFFFFFFFu) data[0] |= 0x04;  // position beyond 32 bits: unknown
  uint32_t location = static_cast<uint32_t>(tape.object_number);
  for (int i = 0; i < 4; ++i) {
    data[4 + i] = static_cast<uint8_t>(location >> (24 - 8 * i));
    data[8 + i] = data[4 + i];
  }
  return_data(request, sizeof data, data, sizeof data, answer);
}
