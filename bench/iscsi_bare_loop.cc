// The transport's own limit for scripts/iscsi-bench: a bare libiscsi loop
// that does what bftdtest's variable-block test does on the wire and
// nothing else. It logs in, rewinds, selects variable blocks (Mode Select
// with the page format bit), then times `count` Write(6) of `length` bytes
// from one buffer, writes a filemark, rewinds and times `count` Read(6) of
// `length` bytes into a second buffer, each compared with the first. One
// command at a time, through libiscsi's synchronous calls, with the
// caller's buffers registered with each task (no copies).
//
//   iscsi_bare_loop <portal> <target-iqn> <lun> <length> <count>
// prints "write_kb_per_second=N read_kb_per_second=N cpu_seconds=N.NN"
// (1 KB = 1000 bytes, as the program's report; the CPU time of the whole
// process, user and system) and exits 0, or names the failing step and
// exits 1.
#include <iscsi/iscsi.h>
#include <iscsi/scsi-lowlevel.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "scsi/operation_codes.h"

namespace {

iscsi_context* context = nullptr;
int lun = 0;

// One command; true when it ended GOOD (a first UNIT ATTENTION is no failure
// for the caller to care about: see clear_unit_attention).
bool command(const char* what, std::vector<unsigned char> cdb, int direction, unsigned char* data,
             uint32_t length) {
  scsi_task* task =
      scsi_create_task(static_cast<int>(cdb.size()), cdb.data(), direction, static_cast<int>(length));
  if (task == nullptr) {
    std::fprintf(stderr, "%s: no memory\n", what);
    return false;
  }
  if (direction == SCSI_XFER_READ) scsi_task_add_data_in_buffer(task, static_cast<int>(length), data);
  iscsi_data out{length, data};
  scsi_task* done =
      iscsi_scsi_command_sync(context, lun, task, direction == SCSI_XFER_WRITE ? &out : nullptr);
  const bool good = done != nullptr && task->status == SCSI_STATUS_GOOD;
  if (!good) std::fprintf(stderr, "%s failed: %s\n", what, iscsi_get_error(context));
  scsi_free_scsi_task(task);
  return good;
}

std::vector<unsigned char> with_length(unsigned char operation, unsigned char byte1, uint32_t length) {
  return {operation,
          byte1,
          static_cast<unsigned char>(length >> 16),
          static_cast<unsigned char>(length >> 8),
          static_cast<unsigned char>(length),
          0};
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s <portal> <target-iqn> <lun> <length> <count>\n", argv[0]);
    return 2;
  }
  lun = std::atoi(argv[3]);
  const auto length = static_cast<uint32_t>(std::strtoul(argv[4], nullptr, 0));
  const auto count = static_cast<uint32_t>(std::strtoul(argv[5], nullptr, 0));
  context = iscsi_create_context("iqn.2024-01.org.bftdtest:bare-loop");
  if (context == nullptr) return 1;
  iscsi_set_targetname(context, argv[2]);
  iscsi_set_session_type(context, ISCSI_SESSION_NORMAL);
  iscsi_set_header_digest(context, ISCSI_HEADER_DIGEST_NONE_CRC32C);
  if (iscsi_full_connect_sync(context, argv[1], lun) != 0) {
    std::fprintf(stderr, "login failed: %s\n", iscsi_get_error(context));
    return 1;
  }
  std::vector<unsigned char> pattern(length, 0), read_back(length, 0xEE);
  unsigned char none = 0;
  unsigned char mode[12] = {0, 0, 0x10, 8, 0, 0, 0, 0, 0, 0, 0, 0};  // buffered, variable blocks
  // The first command takes the target's unit attention.
  command("Test Unit Ready", {kOpTestUnitReady, 0, 0, 0, 0, 0}, SCSI_XFER_NONE, &none, 0);
  if (!command("Rewind", {kOpRewind, 0, 0, 0, 0, 0}, SCSI_XFER_NONE, &none, 0) ||
      !command("Mode Select", {kOpModeSelect6, 0x10, 0, 0, sizeof mode, 0}, SCSI_XFER_WRITE, mode,
               sizeof mode)) {
    return 1;
  }

  auto start = std::chrono::steady_clock::now();
  for (uint32_t i = 0; i < count; ++i) {
    if (!command("Write", with_length(kOpWrite6, 0, length), SCSI_XFER_WRITE, pattern.data(), length))
      return 1;
  }
  const double write_seconds = seconds_since(start);
  if (!command("Write Filemarks", {kOpWriteFilemarks6, 0, 0, 0, 1, 0}, SCSI_XFER_NONE, &none, 0) ||
      !command("Rewind", {kOpRewind, 0, 0, 0, 0, 0}, SCSI_XFER_NONE, &none, 0)) {
    return 1;
  }

  start = std::chrono::steady_clock::now();
  for (uint32_t i = 0; i < count; ++i) {
    if (!command("Read", with_length(kOpRead6, 0, length), SCSI_XFER_READ, read_back.data(), length))
      return 1;
    if (std::memcmp(read_back.data(), pattern.data(), length) != 0) {
      std::fprintf(stderr, "Read %u: data differ\n", i + 1);
      return 1;
    }
  }
  const double read_seconds = seconds_since(start);

  iscsi_logout_sync(context);
  iscsi_destroy_context(context);
  struct rusage usage {};
  getrusage(RUSAGE_SELF, &usage);
  const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  const double bytes = static_cast<double>(length) * count;
  std::printf("write_kb_per_second=%.0f read_kb_per_second=%.0f cpu_seconds=%.2f\n",
              bytes / write_seconds / 1000, bytes / read_seconds / 1000, cpu);
  return 0;
}
