// The iSCSI platform of a build without libiscsi (CMake found no libiscsi
// with pkg-config, or a static build found no archives for it).
#include <cstdio>

#include "console/log_output.h"
#include "transport/platform/iscsi_platform.h"

int iscsi_attach(const IscsiLogin&, const ScsiAddress&) {
  error_printf("ERROR: this build has no iSCSI support (built without libiscsi)\n");
  return -1;
}

int iscsi_attach_portal(const IscsiLogin& login, uint8_t) { return iscsi_attach(login, ScsiAddress{}); }

const Platform* iscsi_platform() { return nullptr; }

void iscsi_detach_all() {}
