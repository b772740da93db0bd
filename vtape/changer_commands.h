// The virtual library's medium changer (SMC-3, peripheral device type 08h):
// one handler per operation code and the dispatcher that answers a pending
// unit attention first. Test Unit Ready, Inquiry (VPD 00h and 80h), Request
// Sense, Mode Sense(6) (pages 1Dh, 1Eh, 1Fh), Read Element Status, Move
// Medium, Initialize Element Status with and without range and Prevent/Allow
// Medium Removal; any other operation code is INVALID COMMAND OPERATION CODE.
// Handlers write their whole outcome into the command's `CommandAnswer`.
#pragma once

#include "transport/platform/platform.h"
#include "vtape/library_state.h"
#include "vtape/sense_builders.h"

// The changer's identity (Inquiry) and the address sense code with which an
// element whose status is not known (before Initialize Element Status) is
// reported, with its EXCEPT bit set.
constexpr char kChangerVendor[] = "VIRTUAL";
constexpr char kChangerProduct[] = "VTAPE LIBRARY";
constexpr char kChangerRevision[] = "1.0";
constexpr char kChangerSerial[] = "VL00000001";
constexpr uint8_t kElementUnknownAsc = 0x83;
constexpr uint8_t kElementUnknownAscq = 0x00;

// Carries out one CDB addressed to the changer.
void execute_changer_command(VirtualLibrary* library, const PassThroughRequest& request, CommandAnswer* answer);

// Read Element Status (element_status.cc) and Move Medium (move_medium.cc).
void read_element_status(VirtualLibrary* library, const PassThroughRequest& request, CommandAnswer* answer);
void move_medium(VirtualLibrary* library, const PassThroughRequest& request, CommandAnswer* answer);

// Big-endian fields of a CDB or of the data the changer returns.
uint32_t read_be(const uint8_t* bytes, unsigned count);
void write_be(uint8_t* bytes, unsigned count, uint32_t value);
