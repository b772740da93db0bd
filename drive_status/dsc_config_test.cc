#include "drive_status/dsc_config.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "settings/settings.h"
#include "testing/screen_capture.h"

namespace {

namespace fs = std::filesystem;

// The selected entries, in index order, as "TDWR LSD 2 8 4 1; ...".
std::string selected() {
  static const char* const names[] = {"TDWR", "TDRD", "WCMP", "RCMP", "DRWR", "DECC", "RPOS", "RWRC", "TKRC"};
  std::string text;
  for (int i = 0; i < kDscKeywordCount; ++i) {
    const DscEntry& e = dsc_entries[i];
    if (!e.selected) continue;
    text += std::string(text.empty() ? "" : "; ") + names[i] + " " + e.command + " " + std::to_string(e.page) + " " +
            std::to_string(e.offset) + " " + std::to_string(e.length) + " " + std::to_string(e.multiplier);
  }
  return text;
}

TEST(DscConfig, SectionsKeywordsAndBadEntries) {
  const std::string too_few = "DSC FILE ERROR: invalid option syntax in DSC file (too few arguments)\r\n";
  const std::string range = "DSC FILE ERROR: value out of range for \"";
  const struct {
    const char* file;  // nullptr: no bftdtest.dsc
    int result;
    std::string screen, selected;
  } cases[] = {
      {"; drive status configuration\nOTHER\nTKRC RSD 0 1 1 1\nT1\nTDWR LSD 2 8 4 1\nTDRD LSD 3h 0x8 4 1\n"
       "WCMP = LSD, 0x32, 0, 4, 1024\nRCMP=LSD,0x32,8,4,1024\n\tDRWR\tLSD 2 12 4 1\x1a\n\n; comment\n"
       "DECC LSD 3 12 4 1 extra tokens\nRPOS RPD 0 4 4 1\nRWRC RSD 0 16 2 1\nTKRC RSD 0 18 2 1\nNEXT\nTDWR LSD 9 9 1 9\n",
       0, "", "TDWR LSD 2 8 4 1; TDRD LSD 3 8 4 1; WCMP LSD 50 0 4 1024; RCMP LSD 50 8 4 1024; DRWR LSD 2 12 4 1; "
       "DECC LSD 3 12 4 1; RPOS RPD 0 4 4 1; RWRC RSD 0 16 2 1; TKRC RSD 0 18 2 1"},
      {"T12\nTDWR LSD 2 8 4 1\nT1\nDECC LSD 3 12 4 1\n", 0, "", "TDWR LSD 2 8 4 1"},  // label inside a longer one
      {"[ drive T1 section ]\nDECC LSD 3 12 4 1\n", 0, "", "DECC LSD 3 12 4 1"},
      {"; T1 follows\nTDWR LSD 2 8 4 1\nT1\nDECC LSD 3 12 4 1\n", 0, "", "DECC LSD 3 12 4 1"},
      {"T1\nTDWR LSD 2 8 4 1\nDEC LSD 3 12 4 1\nDRWR LSD 2 12 4 1\n", 0, "", "TDWR LSD 2 8 4 1"},  // misspelt: ends
      {"T1\nTDWR LSD 2 8 4 1\ndecc LSD 3 12 4 1\n", 0, "", "TDWR LSD 2 8 4 1"},
      {"T1\r\nTDWR LSD 2 8 4 1\r\nDECC LSD 3 12 4 1\r\n", 0, "", "TDWR LSD 2 8 4 1; DECC LSD 3 12 4 1"},
      {"T1\n", 0, "", ""},
      {"T1\nTDWR LSD 2 8 4 1                                                                  DECC LSD 3 12 4 1\n",
       0, "", "TDWR LSD 2 8 4 1; DECC LSD 3 12 4 1"},  // read in pieces of 82
      {"T1\nDECC LSD 3 12 4 1\nDECC LSD 3 20 2 7\n", 0, "", "DECC LSD 3 20 2 7"},  // the last line wins
      {"T1\nDECC LSD 3 12x 4 1\n", 0, "ERROR: illegal character(s) in number string\r\n", "DECC LSD 3 12 4 1"},
      {nullptr, -1, "DSC FILE ERROR: unable to open DSC file \"bftdtest.dsc\"\r\n", ""},
      {"; T1 only in a comment\nOTHER\n", -1, "DSC FILE ERROR: unable to find \"T1\" in DSC file\r\n", ""},
      {"T1\nTDWR LSD 2 8 4 1\nDECC LSD 3 12 4\nRPOS RPD 0 4 4 1\n", -1, too_few, "TDWR LSD 2 8 4 1; DECC LSD 3 12 4 0"},
      {"T1\nDECC\n", -1, too_few, "DECC  0 0 0 0"},
      {"T1\nDECC LSD\n", -1, too_few, "DECC LSD 0 0 0 0"},
      {"T1\nDECC lsd 3 12 4 1\n", -1, "DSC FILE ERROR: unknown command \"lsd\" in DSC file\r\n", "DECC  0 0 0 0"},
      {"T1\nDECC LOG 3 12 4 1\n", -1, "DSC FILE ERROR: unknown command \"LOG\" in DSC file\r\n", "DECC  0 0 0 0"},
      {"T1\nDECC LSD 3 32 4 1\nRPOS RPD 0 16 4 1\nRWRC RSD 0 251 4 1\n", 0, "",
       "DECC LSD 3 32 4 1; RPOS RPD 0 16 4 1; RWRC RSD 0 251 4 1"},  // the last bytes the commands read
      {"T1\nDECC LSD 3 33 4 1\n", -1, range + "DECC\" in DSC file\r\n", "DECC LSD 3 33 4 1"},
      {"T1\nDECC LSD 3 36 1 1\n", -1, range + "DECC\" in DSC file\r\n", "DECC LSD 3 36 1 1"},
      {"T1\nRPOS RPD 0 17 4 1\n", -1, range + "RPOS\" in DSC file\r\n", "RPOS RPD 0 17 4 1"},
      {"T1\nRWRC RSD 0 252 4 1\n", -1, range + "RWRC\" in DSC file\r\n", "RWRC RSD 0 252 4 1"},
      {"T1\nRWRC RSD 0 0 0 1\n", -1, range + "RWRC\" in DSC file\r\n", "RWRC RSD 0 0 0 1"},
      {"T1\nRWRC RSD 0 0 5 1\n", -1, range + "RWRC\" in DSC file\r\n", "RWRC RSD 0 0 5 1"},
      {"T1\nRWRC RSD 0 0x100 1 1\n", -1, range + "RWRC\" in DSC file\r\n", "RWRC RSD 0 0 1 1"},
  };
  const fs::path previous = fs::current_path();
  const fs::path directory = previous / "dsc_config_test_files";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file != nullptr ? c.file : "no file");
    fs::remove_all(directory);
    fs::create_directories(directory);
    fs::current_path(directory);
    if (c.file != nullptr) std::ofstream("bftdtest.dsc", std::ios::binary) << c.file;
    reset_settings();
    reset_dsc_entries();
    int result = 0;
    EXPECT_EQ(c.screen, screen_of([&] { result = load_drive_status_config("T1"); }));
    fs::current_path(previous);
    EXPECT_EQ(c.result, result);  // a refused entry ends the run, whatever it holds
    EXPECT_EQ(c.selected, selected());
  }
  fs::remove_all(directory);
  reset_dsc_entries();
  EXPECT_EQ(kDscTkrc, match_dsc_keyword("TKRC"));
  EXPECT_EQ(-1, match_dsc_keyword("TKRC2"));
  EXPECT_EQ(-1, match_dsc_keyword("tkrc"));
  EXPECT_EQ("TKRC  0 0 0 0", selected());
  reset_settings();
}

}  // namespace
