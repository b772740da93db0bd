// Two library sweeps at once, one per drive of the same virtual library (a
// library_dir shared by two processes), over disjoint slots; then one sweep
// of every slot, which finds every cartridge in its slot again and writes one
// chart per cartridge.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "testing/golden_run.h"

namespace {

namespace fs = std::filesystem;

std::string sweep(const char* drive, const char* slots, const char* output) {
  return std::string("timeout -k 5 120 '") + BFTDTEST_EXE + "' /megs 2 /tid " + drive + " /slots " + slots +
         " /ofile " + output + " /vtape library.vtape /changer 0 0 1 0 >/dev/null 2>&1";
}

TEST(LibrarySweep, TwoDrivesOfOneLibraryAtOnceThenEveryCartridgeIsHome) {
  const fs::path directory = fs::path(BFTDTEST_BINARY_DIR) / "golden_runs" / "library_two_drives";
  fs::remove_all(directory);
  fs::create_directories(directory / "shelf");
  // Slow enough (2 MB at 100 MB/s per test) for the two sweeps to overlap.
  std::ofstream(directory / "library.vtape") << "slots = 6\ndrives = 2\nlibrary_dir = shelf\nrate_mb_s = 100\n";
  // Each process writes its exit code; the moves of both go through one changer.
  const std::string both = "cd '" + directory.string() + "' && (" + sweep("2", "1-3", "first.out") +
                           "; echo $? >first.code) & (cd '" + directory.string() + "' && " +
                           sweep("3", "4-6", "second.out") + "; echo $? >second.code); wait";
  ASSERT_EQ(0, std::system(both.c_str()));
  for (const char* run : {"first", "second"}) {
    const std::string report = read_file_bytes((directory / (std::string(run) + ".out")).string());
    EXPECT_EQ("0\n", read_file_bytes((directory / (std::string(run) + ".code")).string())) << report;
    EXPECT_NE(std::string::npos, report.find("3 passed, 0 failed, 0 skipped, 0 not tested")) << report;
    EXPECT_NE(std::string::npos, report.find("every tested cartridge is back in its slot (3 checked)")) << report;
  }
  EXPECT_NE(std::string::npos,
            read_file_bytes((directory / "second.out").string()).find("tested drive: drive 1 (element 257)"));

  // Every slot again, through the first drive, one chart per cartridge.
  const std::string all = "cd '" + directory.string() + "' && timeout -k 5 120 '" + BFTDTEST_EXE +
                          "' /megs 1 /plot chart.svg /vtape library.vtape /changer 0 0 1 0 >/dev/null 2>&1";
  ASSERT_EQ(0, std::system(all.c_str()));
  const std::string report = read_file_bytes((directory / "bftdtest.out").string());
  EXPECT_NE(std::string::npos, report.find("cartridges to test: 6")) << report;
  EXPECT_NE(std::string::npos, report.find("every tested cartridge is back in its slot (6 checked)")) << report;
  for (int slot = 1; slot <= 6; ++slot) {
    const std::string barcode = "VT000" + std::to_string(slot) + "L9";
    EXPECT_NE(std::string::npos, report.find("CARTRIDGE " + barcode + " (slot " + std::to_string(slot) + ",")) << slot;
    const fs::path chart = directory / ("chart_" + barcode + ".svg");
    EXPECT_EQ(0, std::system(("xmllint --noout '" + chart.string() + "'").c_str())) << chart;
  }
  EXPECT_FALSE(fs::exists(directory / "chart.svg"));
  if (!::testing::Test::HasFailure()) fs::remove_all(directory);
}

}  // namespace
