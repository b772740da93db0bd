#include "transport/transport_lifecycle.h"

#include <cstdio>

#include "console/clock.h"
#include "console/log_output.h"
#include "os/os.h"
#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "transport/executor.h"

int start_transport(void (*on_break)(BreakKind)) {
  if (init_command_buffers() != 0) return -1;
  // A freshly zeroed sense buffer has nothing for the executor to wipe.
  note_sense_buffer_clean();
  if (scan_devices() != 0) return -1;
  if (on_break != nullptr && os_install_break_handler(on_break) != 0) {
    report_printf("WARNING: CTRL-C handler could not be installed\r\n");
  }
  return 0;
}

void shutdown_transport() {
  close_device_handles();
  os_remove_break_handler();
  free_command_buffers();
  FILE* output = log_file();
  if (output != nullptr) {
    set_log_file(nullptr);
    if (std::fclose(output) != 0) note_report_write_failure();
  }
  show_cursor();
}
