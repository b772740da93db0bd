#include <algorithm>
#include <cstring>

#include "scsi/operation_codes.h"
#include "vtape/commands.h"

namespace {

struct CommandEntry {
  CommandHandler handler;  // null: INVALID COMMAND OPERATION CODE
  bool needs_ready_medium;
  bool ignores_unit_attention;
};

struct CommandTable {
  CommandEntry entries[256];
};

CommandTable make_table() {
  CommandTable t{};
  t.entries[kOpTestUnitReady] = {test_unit_ready, true, false};
  t.entries[kOpRewind] = {rewind, true, false};
  t.entries[kOpRequestSense] = {request_sense, false, true};
  t.entries[kOpReadBlockLimits] = {read_block_limits, false, false};
  t.entries[kOpRead6] = {read6, true, false};
  t.entries[kOpWrite6] = {write6, true, false};
  t.entries[kOpWriteFilemarks6] = {write_filemarks, true, false};
  t.entries[kOpSpace6] = {space6, true, false};
  t.entries[kOpInquiry] = {inquiry, false, true};
  t.entries[kOpModeSelect6] = {mode_select6, false, false};
  t.entries[kOpModeSense6] = {mode_sense6, false, false};
  t.entries[kOpLoadUnload] = {load_unload, false, false};
  t.entries[kOpPreventAllowMediumRemoval] = {prevent_allow, false, false};
  t.entries[kOpReadPosition] = {read_position, true, false};
  t.entries[kOpLogSense] = {log_sense, false, false};
  return t;
}

const CommandTable kTable = make_table();

// NOT READY for a command that needs the tape: no cartridge (3A/00), a
// cartridge that is not threaded (04/02: a Load is needed), one the drive
// cannot use (30/00, for good), or one that is still becoming ready after a
// load (04/01, counted down by Test Unit Ready).
bool report_not_ready(VirtualDrive* drive, uint8_t opcode, CommandAnswer* answer) {
  if (drive->medium == MediumState::absent) {
    check_condition(answer, kSenseNotReady, 0x3A, 0x00);
  } else if (drive->medium == MediumState::unloaded) {
    check_condition(answer, kSenseNotReady, 0x04, 0x02);
  } else if (incompatible_medium(*drive)) {
    check_condition(answer, kSenseNotReady, 0x30, 0x00);  // INCOMPATIBLE MEDIUM INSTALLED
  } else if (drive->not_ready_polls_left > 0) {
    if (opcode == kOpTestUnitReady) --drive->not_ready_polls_left;
    check_condition(answer, kSenseNotReady, 0x04, 0x01);
  } else {
    return false;
  }
  return true;
}

}  // namespace

void execute_command(VirtualDrive* drive, const PassThroughRequest& request,
                     CommandAnswer* answer) {
  start_answer(answer);
  const CommandEntry& entry = kTable.entries[request.cdb[0]];
  if (drive->unit_attention && !entry.ignores_unit_attention) {
    drive->unit_attention = false;
    check_condition(answer, kSenseUnitAttention, drive->unit_attention_asc,
                    drive->unit_attention_ascq);
    return;
  }
  if (entry.handler == nullptr) {
    invalid_operation_code(answer);
    return;
  }
  if (entry.needs_ready_medium && report_not_ready(drive, request.cdb[0], answer)) return;
  entry.handler(drive, request, answer);
}

void answer_missing_unit(const PassThroughRequest& request, CommandAnswer* answer) {
  start_answer(answer);
  if (request.cdb[0] == kOpInquiry) {
    uint8_t data[36] = {0x7F, 0x00, 0x05, 0x02, 31};
    return_data(request, request.cdb[4], data, sizeof data, answer);
    return;
  }
  check_condition(answer, kSenseIllegalRequest, 0x25, 0x00);  // LOGICAL UNIT NOT SUPPORTED
}

uint32_t cdb_transfer_length(const uint8_t* cdb) {
  return (static_cast<uint32_t>(cdb[2]) << 16) | (static_cast<uint32_t>(cdb[3]) << 8) | cdb[4];
}

void return_data(const PassThroughRequest& request, uint32_t allocation_length,
                 const uint8_t* source, uint32_t length, CommandAnswer* answer) {
  uint32_t count = std::min({allocation_length, length, request.data_length});
  std::memcpy(request.data, source, count);
  answer->transferred = count;
}
