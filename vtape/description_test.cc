// The virtual drive's description file: every key, the number syntax and
// the error lines for bad input.
#include "vtape/description.h"

#include <gtest/gtest.h>

#include <string>

#include "testing/output_capture.h"
#include "vtape/vtape_testing.h"

namespace {

struct ReadResult {
  int result;
  VtapeDescription description;
  std::string errors;
};

ReadResult read_text(const std::string& text) {
  std::string path = write_temp_file("vtape.txt", text);
  OutputCapture capture;
  ReadResult r{};
  r.result = read_vtape_description(path.c_str(), &r.description);
  r.errors = capture.errors();
  return r;
}

TEST(VtapeDescription, EveryKeyIsRead) {
  ReadResult r = read_text(
      "# a drive of another generation\n"
      "capacity_mb = 800000\n"
      "early_warning_mb = 0x40   # 64 MB\n"
      "min_block = 2\n"
      "max_block = 10000h\n"
      "densities = 0x42, 44h 0b1000110\n"
      "vendor = ACME\n"
      "product = SUPER TAPE\n"
      "revision = 7b\n"
      "rate_mb_s = 160\n"
      "compression = off\n"
      "backing_file = /tmp/cart.vtape\n"
      "\n"
      "device_type = 0\n"
      "lun_supported = no\n"
      "held = yes\n"
      "claimed_without_tape_device = yes\n"
      "medium = none\n"
      "not_ready_polls = 3\n"
      "fail_write_at = 10\n"
      "fail_read_at = 11\n"
      "corrupt_read_at = 12:0x100\n"
      "filemark_at_read = 13\n"
      "load_unload = unsupported\n"
      "prevent_allow = unsupported\n"
      "mode_select_pf = required\n"
      "rewrite_percent = 5\n"
      "corrected_percent = 7.25\n"
      "rate_jitter_percent = 25\n"
      "backhitch_every = 1000\n"
      "backhitch_ms = 250\n");
  ASSERT_EQ(0, r.result) << r.errors;
  const VtapeDescription& d = r.description;
  EXPECT_EQ(800000u, d.capacity_mb);
  EXPECT_EQ(64u, d.early_warning_mb);
  EXPECT_EQ(2u, d.min_block);
  EXPECT_EQ(0x10000u, d.max_block);
  ASSERT_EQ(3, d.density_count);
  EXPECT_EQ(0x42, d.densities[0]);
  EXPECT_EQ(0x44, d.densities[1]);
  EXPECT_EQ(0x46, d.densities[2]);
  EXPECT_STREQ("ACME", d.vendor);
  EXPECT_STREQ("SUPER TAPE", d.product);
  EXPECT_STREQ("7b", d.revision);
  EXPECT_EQ(160u, d.rate_mb_s);
  EXPECT_FALSE(d.compression);
  EXPECT_STREQ("/tmp/cart.vtape", d.backing_file);
  EXPECT_EQ(0, d.device_type);
  EXPECT_FALSE(d.lun_supported);
  EXPECT_TRUE(d.held);
  EXPECT_TRUE(d.claimed_without_tape_device);
  EXPECT_FALSE(d.medium_present);
  EXPECT_EQ(3u, d.not_ready_polls);
  EXPECT_EQ(10u, d.fail_write_at);
  EXPECT_EQ(11u, d.fail_read_at);
  EXPECT_EQ(12u, d.corrupt_read_at);
  EXPECT_EQ(0x100u, d.corrupt_read_offset);
  EXPECT_EQ(13u, d.filemark_at_read);
  EXPECT_FALSE(d.load_unload_supported);
  EXPECT_FALSE(d.prevent_allow_supported);
  EXPECT_TRUE(d.mode_select_pf_required);
  EXPECT_EQ(500u, d.rewrite_percent);  // hundredths
  EXPECT_EQ(725u, d.corrected_percent);
  EXPECT_EQ(25u, d.rate_jitter_percent);
  EXPECT_EQ(1000u, d.backhitch_every);
  EXPECT_EQ(250u, d.backhitch_ms);
  EXPECT_EQ("", r.errors);
}

TEST(VtapeDescription, BadLinesNameTheFileTheLineAndTheKey) {
  const struct {
    const char* text;
    const char* error;  // after "ERROR: virtual tape description \"<path>\""
  } cases[] = {
      {"capacity_mb = 10\ncapacity = 5\n", " line 2: unknown key \"capacity\"\n"},
      {"capacity_mb = 12x\n",
       " line 1: bad value \"12x\" for key \"capacity_mb\" (expected a "
       "number from 1 to 1099511627776)\n"},
      {"compression = yes\n",
       " line 1: bad value \"yes\" for key \"compression\" (expected on "
       "or off)\n"},
      {"\n# c\nvendor = MUCH TOO LONG\n",
       " line 3: bad value \"MUCH TOO LONG\" for key "
       "\"vendor\" (expected at most 8 characters)\n"},
      {"rewrite_percent = 100.01\n",
       " line 1: bad value \"100.01\" for key \"rewrite_percent\" "
       "(expected a percentage from 0 to 100 with at most two decimals)\n"},
      {"tapealert_at_write = 3:65\n",
       " line 1: bad value \"3:65\" for key \"tapealert_at_write\" "
       "(expected N:flag with a flag from 1 to 64)\n"},
      {"rate_jitter_percent = 91\n",
       " line 1: bad value \"91\" for key \"rate_jitter_percent\" "
       "(expected a number from 0 to 90)\n"},
      {"corrupt_read_at = 5\n",
       " line 1: bad value \"5\" for key \"corrupt_read_at\" "
       "(expected N:offset)\n"},
      {"densities = 0x42 0\n",
       " line 1: bad value \"0x42 0\" for key \"densities\" (expected "
       "a list of up to 8 density codes from 1 to 255)\n"},
      {"held\n", " line 1: expected key = value\n"},
      {"medium =\n", " line 1: bad value \"\" for key \"medium\" (expected a value)\n"},
      {"min_block = 100\nmax_block = 10\n", ": min_block 100 is above max_block 10\n"},
      {"capacity_mb = 10\nearly_warning_mb = 10\n",
       ": early_warning_mb must be below capacity_mb\n"},
  };
  std::string path = write_temp_file("vtape.txt", "");
  for (const auto& c : cases) {
    ReadResult r = read_text(c.text);
    EXPECT_EQ(-1, r.result) << c.text;
    EXPECT_EQ("ERROR: virtual tape description \"" + path + "\"" + c.error, r.errors) << c.text;
  }
}

TEST(VtapeDescription, WindowsLineEndsAndBlanksAroundValuesAreAccepted) {
  ReadResult r = read_text("compression = off\r\n\tvendor=ACME  \r\n# end\r\n");
  ASSERT_EQ(0, r.result) << r.errors;
  EXPECT_FALSE(r.description.compression);
  EXPECT_STREQ("ACME", r.description.vendor);
}

TEST(VtapeDescription, MissingFileIsAnError) {
  OutputCapture capture;
  VtapeDescription d;
  EXPECT_EQ(-1, read_vtape_description("/nonexistent/vtape.txt", &d));
  EXPECT_EQ("ERROR: unable to open virtual tape description \"/nonexistent/vtape.txt\"\n",
            capture.errors());
}

TEST(VtapeDescription, NumbersFollowTheProgramsSyntaxStrictly) {
  const struct {
    const char* text;
    int result;
    uint64_t value;
  } cases[] = {
      {"100", 0, 100},
      {"0x1F", 0, 31},
      {"1Fh", 0, 31},
      {"0o17", 0, 15},
      {"17o", 0, 15},
      {"0b101", 0, 5},
      {"101b", 0, 5},
      {"0d99", 0, 99},
      {"99d", 0, 99},
      {"0b", 0, 11},
      {"0d", 0, 13},
      {"12x", -1, 0},
      {"", -1, 0},
      {"0x", -1, 0},
      {"-1", -1, 0},
      {"1 2", -1, 0},
      {"99999999999999999999", -1, 0},
  };
  for (const auto& c : cases) {
    uint64_t value = 0;
    EXPECT_EQ(c.result, read_description_number(c.text, &value)) << c.text;
    if (c.result == 0) {
      EXPECT_EQ(c.value, value) << c.text;
    }
  }
}

}  // namespace
