// The virtual drive's command set: one handler per operation code, and the
// dispatcher that runs the checks every command shares (unit attention, not
// ready) before the handler. Handlers write their whole outcome into the
// command's own `CommandAnswer`.
#pragma once

#include "transport/platform/platform.h"
#include "vtape/drive_state.h"
#include "vtape/sense_builders.h"

using CommandHandler = void (*)(VirtualDrive* drive, const PassThroughRequest& request,
                                CommandAnswer* answer);

// Carries out one CDB addressed to the drive's own logical unit.
void execute_command(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer);

// Answer of a logical unit that does not exist behind the drive's target:
// Inquiry data with qualifier 3 / type 1Fh, ILLEGAL REQUEST 25/00 otherwise.
void answer_missing_unit(const PassThroughRequest& request, CommandAnswer* answer);

// Helpers shared by the handlers.
uint32_t cdb_transfer_length(const uint8_t* cdb);  // bytes 2-4, big-endian
// Copies up to `length` bytes of `source` into the request's buffer, no more
// than the allocation length and the buffer allow; sets `transferred`.
void return_data(const PassThroughRequest& request, uint32_t allocation_length,
                 const uint8_t* source, uint32_t length, CommandAnswer* answer);

// Device handlers (device_commands.cc).
void test_unit_ready(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void request_sense(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void inquiry(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void mode_sense6(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void mode_select6(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void load_unload(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void prevent_allow(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void log_sense(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void read_block_limits(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
// Medium handlers (medium_commands.cc).
void rewind(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void read6(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void write6(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void write_filemarks(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void space6(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
void read_position(VirtualDrive*, const PassThroughRequest&, CommandAnswer*);
