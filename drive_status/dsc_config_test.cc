#include "drive_status/dsc_config.h"

#include <gtest/gtest.h>

#include <string>

#include "settings/settings.h"
#include "testing/work_directory_testing.h"
#include "testing/output_capture.h"

namespace {

// Loads `label` from a "bftdtest.dsc" holding `file_text`, with fresh entries
// and settings; returns the result and what reached the screen.
struct Load {
  int result;
  std::string screen;
};

Load load(const std::string& file_text, const char* label) {
  reset_settings();
  reset_dsc_entries();
  WorkDirectory directory;
  directory.write_file("bftdtest.dsc", file_text);
  OutputCapture capture;
  int result = load_drive_status_config(label);
  return {result, capture.screen()};
}

// The keywords selected, in index order, e.g. "TDWR DECC".
std::string selected() {
  static const char* const names[] = {"TDWR", "TDRD", "WCMP", "RCMP", "DRWR",
                                      "DECC", "RPOS", "RWRC", "TKRC"};
  std::string text;
  for (int i = 0; i < kDscKeywordCount; ++i) {
    if (!dsc_entries[i].selected) continue;
    if (!text.empty()) text += ' ';
    text += names[i];
  }
  return text;
}

TEST(DscConfig, ReadsEveryKeywordOfTheSection) {
  Load l = load(
      "; drive status configuration\n"
      "OTHER\n"
      "TKRC RSD 0 1 1 1\n"
      "DRIVE\n"
      "TDWR LSD 2 8 4 1\n"
      "TDRD LSD 3h 0x8 4 1\n"
      "WCMP = LSD, 0x32, 0, 4, 1024\n"
      "RCMP=LSD,0x32,8,4,1024\n"
      "\tDRWR\tLSD 2 12 4 1\x1a\n"
      "\n"
      "; comments and empty lines inside the section are skipped\n"
      "DECC LSD 3 12 4 1 extra tokens\n"
      "RPOS RPD 0 4 4 1\n"
      "RWRC RSD 0 16 2 1\n"
      "TKRC RSD 0 18 2 1\n"
      "NEXT\n"
      "TDWR LSD 9 9 1 9\n",
      "DRIVE");
  EXPECT_EQ(0, l.result);
  EXPECT_EQ("", l.screen);
  EXPECT_EQ(1, test_settings.drive_status_enabled);
  EXPECT_EQ("TDWR TDRD WCMP RCMP DRWR DECC RPOS RWRC TKRC", selected());

  const DscEntry& wcmp = dsc_entries[kDscWcmp];
  EXPECT_STREQ("LSD", wcmp.command);
  EXPECT_EQ(0x32, wcmp.page);
  EXPECT_EQ(0, wcmp.offset);
  EXPECT_EQ(4, wcmp.length);
  EXPECT_EQ(1024u, wcmp.multiplier);
  EXPECT_EQ(0x32, dsc_entries[kDscRcmp].page);
  EXPECT_EQ(8, dsc_entries[kDscRcmp].offset);
  EXPECT_EQ(3, dsc_entries[kDscTdrd].page);
  EXPECT_EQ(8, dsc_entries[kDscTdrd].offset);
  EXPECT_EQ(12, dsc_entries[kDscDrwr].offset);
  EXPECT_EQ(2, dsc_entries[kDscTdwr].page);  // not the NEXT section's values
  EXPECT_STREQ("RPD", dsc_entries[kDscRpos].command);
  EXPECT_STREQ("RSD", dsc_entries[kDscTkrc].command);
  EXPECT_EQ(18, dsc_entries[kDscTkrc].offset);  // not the OTHER section's values
  EXPECT_EQ(2, dsc_entries[kDscTkrc].length);
}

TEST(DscConfig, SectionStartAndEnd) {
  const struct {
    const char* name;
    const char* file;
    const char* label;
    const char* selected;
  } cases[] = {
      {"label inside a longer label line", "TAPE12\nTDWR LSD 2 8 4 1\nTAPE1\nDECC LSD 3 12 4 1\n",
       "TAPE1", "TDWR"},
      {"label anywhere in the line", "[ drive TAPE1 section ]\nDECC LSD 3 12 4 1\n", "TAPE1",
       "DECC"},
      {"comment naming the label", "; TAPE1 follows\nTDWR LSD 2 8 4 1\nTAPE1\nDECC LSD 3 12 4 1\n",
       "TAPE1", "DECC"},
      {"misspelt keyword ends it", "TAPE1\nTDWR LSD 2 8 4 1\nDEC LSD 3 12 4 1\nDRWR LSD 2 12 4 1\n",
       "TAPE1", "TDWR"},
      {"lower case keyword ends it", "TAPE1\nTDWR LSD 2 8 4 1\ndecc LSD 3 12 4 1\n", "TAPE1",
       "TDWR"},
      {"CR LF line ends", "TAPE1\r\nTDWR LSD 2 8 4 1\r\nDECC LSD 3 12 4 1\r\n", "TAPE1",
       "TDWR DECC"},
      {"empty section at the end", "TAPE1\n", "TAPE1", ""},
      {"line read in pieces of 82",  // the first piece ends after 66 blanks
       "TAPE1\nTDWR LSD 2 8 4 1                                                                  "
       "DECC LSD 3 12 4 1\n",
       "TAPE1", "TDWR DECC"},
  };
  for (const auto& c : cases) {
    Load l = load(c.file, c.label);
    EXPECT_EQ(0, l.result) << c.name;
    EXPECT_EQ("", l.screen) << c.name;
    EXPECT_EQ(c.selected, selected()) << c.name;
  }
}

TEST(DscConfig, BadEntriesAreRefused) {
  const std::string too_few =
      "DSC FILE ERROR: invalid option syntax in DSC file (too few arguments)\r\n";
  const struct {
    const char* entry;
    std::string message;
  } cases[] = {
      {"DECC LSD 3 12 4", too_few},
      {"DECC", too_few},
      {"DECC LSD", too_few},
      {"DECC lsd 3 12 4 1", "DSC FILE ERROR: unknown command \"lsd\" in DSC file\r\n"},
      {"DECC LOG 3 12 4 1", "DSC FILE ERROR: unknown command \"LOG\" in DSC file\r\n"},
  };
  for (const auto& c : cases) {
    Load l = load(std::string("DRIVE\nTDWR LSD 2 8 4 1\n") + c.entry + "\nRPOS RPD 0 4 4 1\n",
                  "DRIVE");
    EXPECT_EQ(-1, l.result) << c.entry;
    EXPECT_EQ(c.message, l.screen) << c.entry;
    EXPECT_EQ(0, dsc_entries[kDscRpos].selected) << c.entry;  // reading stopped there
  }
  // What was read before the missing multiplier stays.
  load("DRIVE\nDECC LSD 3 12 4\n", "DRIVE");
  EXPECT_EQ(3, dsc_entries[kDscDecc].page);
  EXPECT_EQ(12, dsc_entries[kDscDecc].offset);
  EXPECT_EQ(4, dsc_entries[kDscDecc].length);
}

TEST(DscConfig, ValuesBeyondTheDataReadAreRefused) {
  const struct {
    const char* entry;
    bool accepted;
  } cases[] = {
      {"DECC LSD 3 32 4 1", true},   {"DECC LSD 3 33 4 1", false}, {"DECC LSD 3 35 1 1", true},
      {"DECC LSD 3 36 1 1", false},  {"RPOS RPD 0 16 4 1", true},  {"RPOS RPD 0 17 4 1", false},
      {"RWRC RSD 0 251 4 1", true},  {"RWRC RSD 0 252 4 1", false}, {"RWRC RSD 0 0 0 1", false},
      {"RWRC RSD 0 0 5 1", false},   {"RWRC RSD 0 0 0x101 1", false},
      {"RWRC RSD 0 0x100 1 1", false},
  };
  for (const auto& c : cases) {
    Load l = load(std::string("DRIVE\n") + c.entry + "\n", "DRIVE");
    std::string keyword(c.entry, 4);
    EXPECT_EQ(c.accepted ? 0 : -1, l.result) << c.entry;
    EXPECT_EQ(c.accepted ? ""
                         : "DSC FILE ERROR: value out of range for \"" + keyword +
                               "\" in DSC file\r\n",
              l.screen)
        << c.entry;
  }
}

TEST(DscConfig, MissingFileOrLabel) {
  reset_settings();
  {
    WorkDirectory empty;
    OutputCapture capture;
    EXPECT_EQ(-1, load_drive_status_config("DRIVE"));
    EXPECT_EQ("DSC FILE ERROR: unable to open DSC file \"bftdtest.dsc\"\r\n", capture.screen());
    EXPECT_EQ(0, test_settings.drive_status_enabled);
  }
  Load l = load("; DRIVE only in a comment\nOTHER\n", "DRIVE");
  EXPECT_EQ(-1, l.result);
  EXPECT_EQ("DSC FILE ERROR: unable to find \"DRIVE\" in DSC file\r\n", l.screen);
  EXPECT_EQ(1, test_settings.drive_status_enabled);
}

TEST(DscConfig, LaterLinesAndLabelsAddToTheEntries) {
  const char* file =
      "ONE\nDECC LSD 3 12 4 1\nDECC LSD 3 20 2 7\n"
      "TWO\nTDWR LSD 2 8 4 1\n";
  EXPECT_EQ(0, load(file, "ONE").result);
  EXPECT_EQ(20, dsc_entries[kDscDecc].offset);  // the last line wins
  EXPECT_EQ(2, dsc_entries[kDscDecc].length);
  EXPECT_EQ(7u, dsc_entries[kDscDecc].multiplier);

  // A second label adds its keywords (no reset in between).
  WorkDirectory directory;
  directory.write_file("bftdtest.dsc", file);
  OutputCapture capture;
  EXPECT_EQ(0, load_drive_status_config("TWO"));
  EXPECT_EQ("TDWR DECC", selected());
}

TEST(DscConfig, IllegalNumberIsReportedAndTheEntryKept) {
  Load l = load("DRIVE\nDECC LSD 3 12x 4 1\n", "DRIVE");
  EXPECT_EQ(0, l.result);
  EXPECT_EQ("ERROR: illegal character(s) in number string\r\n", l.screen);
  EXPECT_EQ(12, dsc_entries[kDscDecc].offset);
}

TEST(DscConfig, KeywordMatchSetsSelected) {
  reset_dsc_entries();
  EXPECT_EQ(kDscTkrc, match_dsc_keyword("TKRC"));
  EXPECT_EQ(1, dsc_entries[kDscTkrc].selected);
  EXPECT_EQ(-1, match_dsc_keyword("TKRC2"));
  EXPECT_EQ(-1, match_dsc_keyword("tkrc"));
  EXPECT_EQ("TKRC", selected());
}

}  // namespace
