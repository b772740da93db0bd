// Test support for the Linux platform: a fake sysfs tree in a temporary
// directory, and a fake kernel behind the platform's system-call seam that
// records every open and SG_IO and answers as a test tells it.
#pragma once

#include <scsi/sg.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

// A sysfs tree laid out like the kernel's (class entries linking to device
// directories), removed when the object goes.
class FakeSysfs {
 public:
  FakeSysfs();
  ~FakeSysfs();
  FakeSysfs(const FakeSysfs&) = delete;
  FakeSysfs& operator=(const FakeSysfs&) = delete;

  const std::string& root() const { return root_; }

  void add_host(unsigned host);
  // A logical unit "H:C:T:L" with its `type`; `driver` empty for none, `sg`
  // ("sg3") empty for none; `inquiry` written as the `inquiry` attribute
  // unless empty. Returns the unit's device directory.
  std::string add_unit(const std::string& hctl, int type, const std::string& driver,
                       const std::string& sg, const std::vector<uint8_t>& inquiry);
  // Tape device N (nstN) of the unit "H:C:T:L" added before.
  void add_tape(unsigned number, const std::string& hctl);
  void write_file(const std::string& relative, const std::string& bytes);

 private:
  std::string root_;
};

// Standard inquiry data of 36 bytes: type, then vendor, product and revision.
std::vector<uint8_t> inquiry_data(uint8_t type, const char* vendor, const char* product);

// What the fake kernel saw of one SG_IO.
struct SentCommand {
  std::string node;          // path the descriptor was opened on
  sg_io_hdr_t header;        // as it reached the kernel
  std::vector<uint8_t> cdb;  // cmd_len bytes
};

struct FakeKernel {
  // Paths whose open fails with the errno given.
  std::map<std::string, int> open_errors;
  // Group that owns every node (node_group answers false when empty).
  std::string node_group = "tape";
  // Answers an SG_IO: may change the header (status, sense, resid...) and the
  // data; returns 0, or an errno for the ioctl to fail with.
  std::function<int(sg_io_hdr_t&)> answer = [](sg_io_hdr_t&) { return 0; };
  // What SG_GET_RESERVED_SIZE answers; 0 makes it fail with ENOTTY.
  int reserved_size = 0;

  struct Open {
    std::string path;
    int flags;
  };
  std::vector<Open> opens;            // successful and failed opens, in order
  std::vector<std::string> closes;    // paths of closed descriptors
  std::vector<SentCommand> sent;
  std::map<int, std::string> open_fds;
  int next_fd = 100;

  // Installs this fake as the platform's system calls (and removes it again
  // on destruction).
  FakeKernel();
  ~FakeKernel();
  FakeKernel(const FakeKernel&) = delete;
  FakeKernel& operator=(const FakeKernel&) = delete;
};
