#include "run/chart_file.h"

#include <atomic>
#include <cstdio>

#include "console/clock.h"
#include "engine/command_timing.h"
#include "run/streaming_chart.h"

namespace {

FILE* chart_file = nullptr;
// 0 not yet written, 1 being written, 2 written, 3 closed.
std::atomic<int> chart_state{0};
char chart_buffer[1 << 16];

}  // namespace

int open_chart_file(const char* name) {
  chart_file = std::fopen(name, "wb");
  chart_state.store(0);
  if (chart_file == nullptr) return -1;
  std::setvbuf(chart_file, chart_buffer, _IOFBF, sizeof chart_buffer);
  return 0;
}

bool chart_file_open() { return chart_file != nullptr && chart_state.load() != 3; }

int write_chart(bool interrupted) {
  int idle = 0;
  if (chart_file == nullptr || !chart_state.compare_exchange_strong(idle, 1)) return 0;
  int result = write_streaming_chart(chart_file, take_timing_snapshot(), interrupted);
  chart_state.store(2);
  return result;
}

int close_chart() {
  if (chart_file == nullptr) return 0;
  for (int state : {0, 2}) {
    if (chart_state.compare_exchange_strong(state, 3)) return std::fclose(chart_file) == 0 ? 0 : -1;
  }
  return 0;
}

void write_chart_on_break() {
  write_chart(true);
  // The test thread may be writing the chart itself: let it finish first.
  for (int wait = 0; wait < 5000 && chart_state.load() == 1; ++wait) sleep_msec(1);
  close_chart();
}

void reset_chart_file() {
  close_chart();
  chart_file = nullptr;
  chart_state.store(0);
}
