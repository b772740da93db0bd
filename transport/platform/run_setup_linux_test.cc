// The program's setup over the Linux platform: the real executable on a
// machine without a SCSI layer, and whole runs in this process over fake sysfs
// trees and the fake kernel.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "run/run_sequence.h"
#include "testing/work_directory_testing.h"
#include "testing/output_capture.h"
#include "transport/platform/fake_linux_testing.h"
#include "transport/platform/platform.h"
#include "transport/platform/platform_linux.h"

namespace {

bool machine_has_scsi_layer() {
  struct stat info;
  return ::stat("/sys/class/scsi_host", &info) == 0 || ::stat("/sys/class/scsi_device", &info) == 0;
}

TEST(LinuxExecutable, WithoutScsiLayerEndsWithTheAccessMessageAndExitCodeOne) {
  if (machine_has_scsi_layer()) GTEST_SKIP() << "this machine has a SCSI layer";
  const struct {
    const char* arguments;
    const char* message;
  } cases[] = {
      {"", "ERROR: unable to access tape drive at SCSI id 2 LUN 0\n"},
      {"/hanum 3 /bus 1 /tid 0x0c /lun 1", "ERROR: unable to access tape drive at SCSI id C LUN 1\n"},
  };
  for (const auto& c : cases) {
    WorkDirectory directory;
    const std::string command = std::string("'") + BFTDTEST_EXE + "' " + c.arguments +
                                " >screen.txt 2>errors.txt";
    const int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status)) << c.arguments;  // no crash, no signal
    EXPECT_EQ(1, WEXITSTATUS(status)) << c.arguments;
    EXPECT_EQ(c.message, read_file_bytes("screen.txt")) << c.arguments;
    EXPECT_EQ(c.message, read_file_bytes("bftdtest.out")) << c.arguments;
    EXPECT_EQ("", read_file_bytes("errors.txt")) << c.arguments;
  }
}

class LinuxRun : public ::testing::Test {
 protected:
  void SetUp() override {
    reset_program_state();
    set_linux_root(tree.root().c_str());
    tree.add_host(0);
  }
  void TearDown() override {
    reset_program_state();
    set_active_platform(nullptr);
  }

  // Runs the program with a results file and no other options (drive at
  // adapter 0, bus 0, id 2, LUN 0) and returns what it wrote to the screen.
  std::string run(int* exit_code) {
    OutputCapture capture;
    char name[] = "bftdtest";
    char json[] = "/json";
    char results[] = "results.jsonl";
    char* argv[] = {name, json, results, nullptr};
    *exit_code = run_program(3, argv);
    return capture.screen();
  }

  // How the results file's run record says the drive was reached.
  std::string results_device() {
    const std::string text = read_file_bytes("results.jsonl");
    const nlohmann::json run = nlohmann::json::parse(text.substr(0, text.find('\n')), nullptr, false);
    return run.is_object() ? run["access"]["device"].dump() : text;
  }

  std::string node(const char* name) { return tree.root() + "/dev/" + name; }

  WorkDirectory directory;
  FakeSysfs tree;
  FakeKernel kernel;
};

TEST_F(LinuxRun, TapeWithoutPermissionSaysWhichNodeAndGroup) {
  tree.add_unit("0:0:2:0", 1, "st", "sg1", inquiry_data(0x01, "TAPECO", "ST TAPE"));
  tree.add_tape(0, "0:0:2:0");
  kernel.open_errors[node("nst0")] = EACCES;
  int exit_code = -1;
  EXPECT_EQ("ERROR: unable to access tape drive at SCSI id 2 LUN 0\n"
            "Cannot open /dev/nst0 (SCSI address 0:0:2:0): permission denied. Run bftdtest as root, or as a "
            "member of group \"tape\" (the group that owns /dev/nst0) with the CAP_SYS_RAWIO capability.\n",
            run(&exit_code));
  EXPECT_EQ(1, exit_code);
  EXPECT_TRUE(kernel.sent.empty());
}

TEST_F(LinuxRun, HeldUnclaimedTapeSaysItIsInUse) {
  tree.add_unit("0:0:2:0", 1, "", "sg1", inquiry_data(0x01, "TAPECO", "RAW TAPE"));
  kernel.open_errors[node("sg1")] = EBUSY;
  int exit_code = -1;
  EXPECT_EQ("ERROR: unable to access tape drive at SCSI id 2 LUN 0\n"
            "Cannot open /dev/sg1 (SCSI address 0:0:2:0): the device is in use by another process.\n",
            run(&exit_code));
  EXPECT_EQ(1, exit_code);
}

TEST_F(LinuxRun, SetupCommandsReachTheUnclaimedDeviceThroughItsSgNode) {
  tree.add_unit("0:0:2:0", 8, "", "sg4", inquiry_data(0x08, "ROBOCO", "FREE CHANGER"));
  const std::vector<uint8_t> changer = inquiry_data(0x08, "ROBOCO", "FREE CHANGER");
  kernel.answer = [&](sg_io_hdr_t& header) {
    if (header.cmdp[0] == 0x12) std::memcpy(header.dxferp, changer.data(), changer.size());
    return 0;
  };
  int exit_code = -1;
  EXPECT_EQ("ERROR: device at SCSI id 2 LUN 0 is not a sequential access device (type 08)\n", run(&exit_code));
  EXPECT_EQ(1, exit_code);
  ASSERT_EQ(3u, kernel.sent.size());
  const std::vector<uint8_t> expected[] = {{0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}, {0x12, 0, 0, 0, 0xFF, 0}};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(node("sg4"), kernel.sent[i].node) << i;
    EXPECT_EQ(expected[i], kernel.sent[i].cdb) << i;
  }
  // Opened once for the scan's check and once for the commands; both closed by the end.
  EXPECT_EQ(2u, kernel.opens.size());
  EXPECT_EQ(2u, kernel.closes.size());
  EXPECT_EQ("\"/dev/sg4\"", results_device());
}

}  // namespace
