#include "vtape/virtual_drive.h"

#include "console/log_output.h"

// Placeholder until the device model lands: refuses to run.
int vtape_configure(const char*) {
  error_printf("ERROR: the built-in virtual tape drive is not built yet\n");
  return -1;
}

const Platform* vtape_platform() { return native_platform(); }
