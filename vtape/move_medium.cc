// Move Medium (SMC-3). The checks, in this order, each ILLEGAL REQUEST:
//   a transport other than 0 (the default) or 0001h, a source or destination
//   that is no element or is the transport (the picker holds no media)
//                                        INVALID ELEMENT ADDRESS 21/01
//   INVERT set (media have one side)     INVALID FIELD IN CDB 24/00
//   the source is empty                  MEDIUM SOURCE ELEMENT EMPTY 3B/0E
//   the destination is full              MEDIUM DESTINATION ELEMENT FULL 3B/0D
//   the source is a drive that keeps its cartridge: the tape is still
//   threaded (no Unload yet) or the drive's initiator prevents its removal
//                                        MEDIUM REMOVAL PREVENTED BY DATA
//                                        TRANSFER ELEMENT 53/03
// Then the picker moves (move_fails_at: HARDWARE ERROR, MECHANICAL
// POSITIONING ERROR 15/01, nothing moved). A cartridge put into a drive is
// threaded as on insertion; one taken out of a drive takes its tape along.
// The move acts on what the elements really hold, known or not, and makes
// both elements' status known.
#include "vtape/changer_commands.h"
#include "vtape/library_store.h"

namespace {

bool usable(const Element* element) { return element != nullptr && element->type != ElementType::transport; }

bool drive_keeps(const Element& element) {
  if (element.type != ElementType::data_transfer) return false;
  const VirtualDrive& drive = virtual_drive_at(drive_index(element));
  return drive.medium == MediumState::loaded || drive.removal_prevented;
}

}  // namespace

void move_medium(VirtualLibrary* library, const PassThroughRequest& request, CommandAnswer* answer) {
  const uint32_t transport = read_be(request.cdb + 2, 2);
  Element* from = find_element(library, static_cast<uint16_t>(read_be(request.cdb + 4, 2)));
  Element* to = find_element(library, static_cast<uint16_t>(read_be(request.cdb + 6, 2)));
  if ((transport != 0 && transport != kTransportAddress) || !usable(from) || !usable(to)) {
    return check_condition(answer, kSenseIllegalRequest, 0x21, 0x01);
  }
  if (request.cdb[10] & 0x01) return invalid_field_in_cdb(answer, 10);
  if (from->cartridge < 0) return check_condition(answer, kSenseIllegalRequest, 0x3B, 0x0E);
  if (to->cartridge >= 0) return check_condition(answer, kSenseIllegalRequest, 0x3B, 0x0D);
  if (drive_keeps(*from)) return check_condition(answer, kSenseIllegalRequest, 0x53, 0x03);
  if (++library->moves == library->description.move_fails_at) {
    return check_condition(answer, kSenseHardwareError, 0x15, 0x01);
  }
  const int32_t index = from->cartridge;
  if (from->type == ElementType::data_transfer) {
    if (take_from_drive(library, drive_index(*from), index) != 0) {
      return check_condition(answer, kSenseHardwareError, 0x44, 0x00);  // INTERNAL TARGET FAILURE
    }
  } else {
    from->cartridge = -1;
    LibraryCartridge& cartridge = library->cartridges[static_cast<size_t>(index)];
    cartridge.source_valid = true;
    cartridge.source = from->address;
  }
  if (to->type == ElementType::data_transfer) {
    insert_into_drive(library, drive_index(*to), index);
  } else {
    to->cartridge = index;
  }
  from->valid = true;
  to->valid = true;
  library->inventory_changed = true;
  // Written at once, so that a run ended by CTRL-C leaves the directory right.
  if (library->description.library_dir[0] != '\0') write_inventory(library);
}
