// Fuzzes the Linux platform's discovery: a sysfs tree built from the input
// (unit directories with any names, `type`, `inquiry`, `vendor`, `model`,
// `rev` attributes, driver links, sg nodes, a tape device link) and SG_IO
// Inquiry answers for units without an `inquiry` attribute. The adapter's
// unit list and the tape's address are then read through the platform record
// as the transport reads them.
//
// Input: lines; every seven lines describe one unit (name, type, inquiry,
// vendor, model, driver, sg node); the last line feeds the system calls.
#include <fcntl.h>
#include <scsi/sg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "transport/platform/platform.h"
#include "transport/platform/platform_linux.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kFieldsPerUnit = 7;
constexpr size_t kMaxUnits = 4;

std::string answers;  // bytes the fake system calls answer with
size_t answer_at = 0;

uint8_t next_answer() { return answer_at < answers.size() ? static_cast<uint8_t>(answers[answer_at++]) : 0; }

int fake_open(const char*, int) {
  if ((next_answer() & 0x80) != 0) {
    errno = EACCES;
    return -1;
  }
  return 100;
}
int fake_close(int) { return 0; }
int fake_ioctl(int, unsigned long request, void* argument) {
  if (request != SG_IO) {
    errno = ENOTTY;
    return -1;
  }
  uint8_t control = next_answer();
  if ((control & 0x80) != 0) {
    errno = EIO;
    return -1;
  }
  auto* header = static_cast<sg_io_hdr_t*>(argument);
  header->status = (control & 1) != 0 ? 2 : 0;
  header->masked_status = next_answer();
  header->host_status = next_answer() & 0x0F;
  header->driver_status = next_answer() & 0x0F;
  header->resid = static_cast<int8_t>(next_answer()) * 8;
  header->sb_len_wr = next_answer();
  auto* data = static_cast<uint8_t*>(header->dxferp);
  for (unsigned i = 0; data != nullptr && i < header->dxfer_len && i < 64; ++i) data[i] = next_answer();
  return 0;
}
bool fake_node_group(const char*, char*, size_t) { return false; }

const LinuxSystem kFakeSystem = {fake_open, fake_close, fake_ioctl, fake_node_group};

// A name that stays one directory entry below its parent.
std::string entry_name(std::string text) {
  std::replace(text.begin(), text.end(), '/', '_');
  std::replace(text.begin(), text.end(), '\0', '_');
  if (text.size() > 64) text.resize(64);
  if (text.empty() || text == "." || text == "..") text = "x" + text;
  return text;
}

void write_attribute(const fs::path& path, const std::string& bytes) {
  fuzz_write_file(path.c_str(), reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

void build_tree(const fs::path& root, const std::vector<std::string>& fields) {
  std::error_code ignored;
  fs::remove_all(root, ignored);
  fs::create_directories(root / "sys/class/scsi_host/host0");
  fs::create_directories(root / "sys/class/scsi_device");
  bool tape_linked = false;
  for (size_t unit = 0; unit < kMaxUnits && (unit + 1) * kFieldsPerUnit <= fields.size(); ++unit) {
    const std::string* f = &fields[unit * kFieldsPerUnit];
    std::string name = entry_name(f[0]);
    fs::path unit_dir = root / "sys/class/scsi_device" / name;
    fs::path device = unit_dir / "device";
    if (fs::exists(unit_dir)) continue;
    fs::create_directories(device);
    if (!f[1].empty()) write_attribute(device / "type", f[1] + "\n");
    if (!f[2].empty()) write_attribute(device / "inquiry", f[2]);
    write_attribute(device / "vendor", f[3]);
    write_attribute(device / "model", f[4]);
    write_attribute(device / "rev", f[4].substr(0, 4));
    if (!f[5].empty()) fs::create_directory_symlink("../../drivers/" + entry_name(f[5]), device / "driver", ignored);
    if (!f[6].empty()) fs::create_directories(device / "scsi_generic" / entry_name(f[6]));
    if (!tape_linked) {
      fs::create_directories(root / "sys/class/scsi_tape/nst0");
      fs::create_directory_symlink("../../scsi_device/" + name, root / "sys/class/scsi_tape/nst0/device",
                                   ignored);
      tape_linked = true;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_prepare();
  std::vector<std::string> fields = fuzz_split(data, size, '\n', kFieldsPerUnit * kMaxUnits + 1);
  answers = fields.size() > kFieldsPerUnit * kMaxUnits ? fields.back() : "";
  answer_at = 0;
  const fs::path root = fs::current_path() / "root";
  build_tree(root, fields);

  set_linux_root(root.c_str());
  set_linux_system(&kFakeSystem);
  const Platform* platform = native_platform();

  PlatformHandle adapter = kInvalidPlatformHandle;
  fuzz_check(platform->open_device("\\\\.\\Scsi0:", &adapter) == kErrorNone, "adapter 0 exists");
  static AdapterInquiry inquiry;
  if (platform->query_adapter(adapter, &inquiry) == 0) {
    fuzz_check(inquiry.unit_count <= kMaxUnits, "no more units than directories");
    for (unsigned i = 0; i < inquiry.unit_count; ++i) {
      fuzz_check(inquiry.units[i].inquiry_length <= sizeof inquiry.units[i].inquiry,
                 "inquiry data fits its field");
      fuzz_check(inquiry.units[i].inquiry_length > 0, "a listed unit has inquiry data");
    }
  }
  platform->close_device(adapter);

  PlatformHandle tape = kInvalidPlatformHandle;
  if (platform->open_device("\\\\.\\Tape0", &tape) == kErrorNone) {
    ScsiAddress address{};
    platform->query_tape_address(tape, &address);
    platform->close_device(tape);
  }
  if (platform->describe_last_error != nullptr) platform->describe_last_error();
  reset_linux_platform();
  return 0;
}
