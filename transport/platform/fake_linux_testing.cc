#include "transport/platform/fake_linux_testing.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "transport/platform/platform_linux.h"

namespace fs = std::filesystem;

FakeSysfs::FakeSysfs() {
  char pattern[] = "/tmp/bftdtest-sysfs-XXXXXX";
  const char* made = ::mkdtemp(pattern);
  root_ = made != nullptr ? made : "/nonexistent-bftdtest-sysfs";
}

FakeSysfs::~FakeSysfs() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

void FakeSysfs::write_file(const std::string& relative, const std::string& bytes) {
  fs::path path = fs::path(root_) / relative;
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

void FakeSysfs::add_host(unsigned host) {
  fs::create_directories(root_ + "/sys/devices/host" + std::to_string(host) + "/scsi_host");
  fs::create_directories(root_ + "/sys/class/scsi_host");
  fs::create_directory_symlink(root_ + "/sys/devices/host" + std::to_string(host) + "/scsi_host",
                               root_ + "/sys/class/scsi_host/host" + std::to_string(host));
}

std::string FakeSysfs::add_unit(const std::string& hctl, int type, const std::string& driver,
                                const std::string& sg, const std::vector<uint8_t>& inquiry) {
  const std::string host = hctl.substr(0, hctl.find(':'));
  const std::string device = root_ + "/sys/devices/host" + host + "/" + hctl;
  fs::create_directories(device);
  write_file(device.substr(root_.size() + 1) + "/type", std::to_string(type) + "\n");
  if (!inquiry.empty()) {
    write_file(device.substr(root_.size() + 1) + "/inquiry",
               std::string(inquiry.begin(), inquiry.end()));
  }
  if (!driver.empty()) {
    fs::create_directories(root_ + "/sys/bus/scsi/drivers/" + driver);
    fs::create_directory_symlink(root_ + "/sys/bus/scsi/drivers/" + driver, device + "/driver");
  }
  if (!sg.empty()) fs::create_directories(device + "/scsi_generic/" + sg);
  fs::create_directories(device + "/scsi_device/" + hctl);
  fs::create_directory_symlink(device, device + "/scsi_device/" + hctl + "/device");
  fs::create_directories(root_ + "/sys/class/scsi_device");
  fs::create_directory_symlink(device + "/scsi_device/" + hctl, root_ + "/sys/class/scsi_device/" + hctl);
  return device;
}

void FakeSysfs::add_tape(unsigned number, const std::string& hctl) {
  const std::string host = hctl.substr(0, hctl.find(':'));
  const std::string device = root_ + "/sys/devices/host" + host + "/" + hctl;
  const std::string entry = device + "/scsi_tape/nst" + std::to_string(number);
  fs::create_directories(entry);
  fs::create_directory_symlink(device, entry + "/device");
  fs::create_directories(root_ + "/sys/class/scsi_tape");
  fs::create_directory_symlink(entry, root_ + "/sys/class/scsi_tape/nst" + std::to_string(number));
}

std::vector<uint8_t> inquiry_data(uint8_t type, const char* vendor, const char* product) {
  std::vector<uint8_t> data(36, ' ');
  std::fill(data.begin(), data.begin() + 8, 0);
  data[0] = type;
  data[4] = 31;
  std::memcpy(&data[8], vendor, std::min<size_t>(std::strlen(vendor), 8));
  std::memcpy(&data[16], product, std::min<size_t>(std::strlen(product), 16));
  std::memcpy(&data[32], "0100", 4);
  return data;
}

namespace {

FakeKernel* kernel = nullptr;

int fake_open(const char* path, int flags) {
  kernel->opens.push_back({path, flags});
  auto failure = kernel->open_errors.find(path);
  if (failure != kernel->open_errors.end()) {
    errno = failure->second;
    return -1;
  }
  int fd = kernel->next_fd++;
  kernel->open_fds[fd] = path;
  return fd;
}

int fake_close(int fd) {
  auto open = kernel->open_fds.find(fd);
  if (open == kernel->open_fds.end()) {
    errno = EBADF;
    return -1;
  }
  kernel->closes.push_back(open->second);
  kernel->open_fds.erase(open);
  return 0;
}

int fake_ioctl(int fd, unsigned long request, void* argument) {
  auto open = kernel->open_fds.find(fd);
  if (open != kernel->open_fds.end() && request == SG_GET_RESERVED_SIZE && kernel->reserved_size > 0) {
    *static_cast<int*>(argument) = kernel->reserved_size;
    return 0;
  }
  if (open == kernel->open_fds.end() || request != SG_IO) {
    errno = open == kernel->open_fds.end() ? EBADF : ENOTTY;
    return -1;
  }
  auto* header = static_cast<sg_io_hdr_t*>(argument);
  const auto* cdb = header->cmdp;
  kernel->sent.push_back({open->second, *header, std::vector<uint8_t>(cdb, cdb + header->cmd_len)});
  int error = kernel->answer(*header);
  if (error != 0) {
    errno = error;
    return -1;
  }
  return 0;
}

bool fake_node_group(const char*, char* name, size_t size) {
  if (kernel->node_group.empty()) return false;
  std::snprintf(name, size, "%s", kernel->node_group.c_str());
  return true;
}

const LinuxSystem kFakeSystem = {fake_open, fake_close, fake_ioctl, fake_node_group};

}  // namespace

FakeKernel::FakeKernel() {
  kernel = this;
  set_linux_system(&kFakeSystem);
}

FakeKernel::~FakeKernel() {
  reset_linux_platform();  // closes what the platform still holds, through this fake
  kernel = nullptr;
}
