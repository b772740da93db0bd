// The iSCSI platform of the Windows builds: there is no libiscsi for
// MinGW, and Windows has an initiator of its own that presents iSCSI tapes
// as local SCSI devices.
#include <cstdio>

#include "console/log_output.h"
#include "transport/platform/iscsi_platform.h"

int iscsi_attach(const IscsiLogin&, const ScsiAddress&) {
  error_printf(
      "ERROR: this build has no iSCSI support; on Windows, log in to the target with the Microsoft iSCSI "
      "Initiator (iscsicpl.exe) and address the drive with /hanum /bus /tid /lun\n");
  return -1;
}

int iscsi_attach_portal(const IscsiLogin& login, uint8_t) { return iscsi_attach(login, ScsiAddress{}); }

const Platform* iscsi_platform() { return nullptr; }

void iscsi_detach_all() {}
