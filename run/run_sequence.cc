#include "run/run_sequence.h"

#include "console/log_output.h"
#include "run/options.h"
#include "run/settings.h"
#include "transport/platform/os.h"

int run_program(int argc, char** argv) {
  os_init_console();
  if (parse_options(static_cast<uint16_t>(argc), argv) != 0) return exit_code;
  // Not built yet: setup, report header, sizing, iterations and cleanup.
  error_printf("ERROR: drive setup is not built yet\n");
  return exit_code;
}

int setup_run() { return -1; }
void cleanup_run() {}
void on_break(int) { os_exit_now(1); }

void reset_program_state() {
  reset_settings();
  reset_option_parser();
}
