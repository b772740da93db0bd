// Fuzzes the drive status collection: the input chooses the "bftdtest.dsc"
// entries (even ones the configuration reader would refuse) and every answer
// of the drive to Log Sense, Read Position and Request Sense, including
// check conditions. Both phases of a write and a read/compare interval run
// over them; the report goes into memory and must consist of whole lines.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "console/log_output.h"
#include "drive_status/collection.h"
#include "drive_status/dsc_config.h"
#include "fuzz/fuzz_support.h"
#include "run/run_sequence.h"
#include "settings/settings.h"
#include "transport/device_table.h"
#include "transport/transport_lifecycle.h"
#include "transport/platform/fake_platform_testing.h"
#include "transport/scsi_transport.h"

namespace {

// The input not yet used; the drive's answers are taken from it in order.
const uint8_t* input = nullptr;
size_t input_left = 0;

uint8_t next_byte() {
  if (input_left == 0) return 0;
  --input_left;
  return *input++;
}

void answer_from_input(const PassThroughRequest& request, PassThroughReply& reply) {
  reply = PassThroughReply{};
  uint8_t control = next_byte();
  if ((control & 0x01) != 0) {
    // A check condition with 18 bytes of sense from the input.
    reply.scsi_status = 0x02;
    reply.sense_length = 18;
    for (unsigned i = 0; i < 18; ++i) request.sense[i] = next_byte();
  }
  if ((control & 0x02) != 0) reply.error = 1117;  // the request itself failed
  // Data-in commands get as many bytes as they asked for (or as the input
  // has), possibly fewer by the residue the input chooses.
  uint32_t length = request.direction == DataDirection::in ? request.data_length : 0;
  for (uint32_t i = 0; i < length; ++i) request.data[i] = next_byte();
  uint32_t residue = (control & 0x04) != 0 ? next_byte() : 0;
  reply.transferred_length = residue < length ? length - residue : 0;
}

// Six bytes per keyword: flags (bit 0 selected, bits 1-2 command), page,
// offset, length, multiplier (2 bytes).
void take_entries() {
  static const char* const kCommands[] = {"LSD", "RPD", "RSD", "XYZ"};
  for (DscEntry& entry : dsc_entries) {
    uint8_t flags = next_byte();
    entry.selected = flags & 1;
    std::memcpy(entry.command, kCommands[(flags >> 1) & 3], 4);
    entry.page = next_byte();
    entry.offset = next_byte();
    entry.length = next_byte();
    entry.multiplier = static_cast<uint32_t>(next_byte()) << 8;
    entry.multiplier |= next_byte();
  }
}

void check_whole_lines(const char* text, size_t length) {
  fuzz_check(length == 0 || (length >= 2 && text[length - 2] == '\r' && text[length - 1] == '\n'),
             "the report ends with a whole line");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_prepare();
  reset_program_state();
  reset_drive_status();
  input = data;
  input_left = size;

  fake_reset();
  fake_add_tape_drive(0, 0, 2, 0);
  fake_set_responder(answer_from_input);
  set_active_platform(fake_platform());
  fuzz_check(start_transport(nullptr) == 0, "the transport starts on the scriptable drive");
  fuzz_check(set_target_id(2) == 0, "the drive's address is valid");

  take_entries();
  test_settings.drive_status_enabled = 1;

  char* text = nullptr;
  size_t length = 0;
  FILE* memory = open_memstream(&text, &length);
  fuzz_check(memory != nullptr, "memory stream");
  FILE* previous_screen = screen_stream();
  set_screen_stream(memory);

  for (uint16_t kind = 0; kind < 2; ++kind) {
    double bytes = static_cast<double>(next_byte()) * 65536.0;
    if (collect_drive_status(0, kind, 0.0) != 0) break;
    if (collect_drive_status(1, kind, bytes) != 0) break;
    fuzz_check(!std::isnan(drive_status.max_rwr_percentage) &&
                   !std::isnan(drive_status.max_ecc_percentage),
               "the largest percentages are numbers");
  }

  std::fclose(memory);
  set_screen_stream(previous_screen);
  check_whole_lines(text, length);
  std::free(text);
  shutdown_transport();
  set_active_platform(nullptr);
  reset_program_state();
  return 0;
}
