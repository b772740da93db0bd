#include "results/results_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>

#include "testing/golden_run.h"

namespace {

const std::string kFile = std::string(BFTDTEST_BINARY_DIR) + "/results_file_test.jsonl";

class ResultsWriter : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, results_open(kFile.c_str())); }
  void TearDown() override {
    reset_results_file();
    std::filesystem::remove(kFile);
  }
  static std::string closed_file() {
    EXPECT_EQ(0, results_close());
    return read_file_bytes(kFile);
  }
};

// Every kind of field, in the order written, with the JSON library's number
// spellings; texts that are not UTF-8 have their bytes replaced.
TEST_F(ResultsWriter, WritesTheFieldsInTheirOrderAsOneLine) {
  results_begin("sample");
  results_text("text", "a\"b\\c\x01\xff");
  results_text("missing", nullptr);
  results_unsigned("largest", std::numeric_limits<uint64_t>::max());
  results_signed("negative", -7);
  results_double("whole", 2.0);
  results_double("fraction", 0.1);
  results_double("not_a_number", std::nan(""));
  results_bool("yes", true);
  results_null("nothing");
  results_begin_object("nested");
  results_begin_array("list");
  results_unsigned(nullptr, 1);
  results_begin_object(nullptr);
  results_text("inner", "x");
  results_end_object();
  results_begin_array(nullptr);
  results_end_array();
  results_end_array();
  results_end_object();
  results_unsigned("largest", 3);  // a second value keeps the first place
  results_begin_object("left_open");
  results_end();
  results_begin("second");
  results_end();
  EXPECT_EQ(
      "{\"record\":\"sample\",\"text\":\"a\\\"b\\\\c\\u0001\xEF\xBF\xBD\",\"missing\":null,\"largest\":3,"
      "\"negative\":-7,\"whole\":2.0,\"fraction\":0.1,\"not_a_number\":null,\"yes\":true,\"nothing\":null,"
      "\"nested\":{\"list\":[1,{\"inner\":\"x\"},[]]},\"left_open\":{}}\n"
      "{\"record\":\"second\"}\n",
      closed_file());
}

// Fields outside a record, and records without an open file, write nothing;
// a record begun and not ended is dropped.
TEST_F(ResultsWriter, WritesNothingOutsideARecord) {
  results_unsigned("stray", 1);
  results_end();
  results_begin("dropped");
  results_unsigned("field", 1);
  results_begin("kept");
  results_end();
  EXPECT_EQ("{\"record\":\"kept\"}\n", closed_file());
  results_begin("no_file");
  results_end();
  EXPECT_EQ("{\"record\":\"kept\"}\n", read_file_bytes(kFile));
}

// The context field follows "record" in every record begun while it is set,
// and in the interrupted line the CTRL-C handler writes.
TEST_F(ResultsWriter, CarriesTheContextFieldWhileItIsSet) {
  results_begin("before");
  results_end();
  ASSERT_EQ(0, results_set_context("cartridge", "VT0001L9"));
  results_begin("interval");
  results_unsigned("index", 1);
  results_end();
  EXPECT_EQ(-1, results_set_context("cartridge", std::string(300, 'x').c_str()));
  results_begin("refused");
  results_end();
  ASSERT_EQ(0, results_set_context("cartridge", "VT0002L9"));
  results_begin("replaced");
  results_end();
  results_clear_context();
  results_begin("after");
  results_end();
  EXPECT_EQ(
      "{\"record\":\"before\"}\n"
      "{\"record\":\"interval\",\"cartridge\":\"VT0001L9\",\"index\":1}\n"
      "{\"record\":\"refused\"}\n"
      "{\"record\":\"replaced\",\"cartridge\":\"VT0002L9\"}\n"
      "{\"record\":\"after\"}\n",
      closed_file());

  // The handler closes the file and the process ends: done in a child.
  ASSERT_EQ(0, results_open(kFile.c_str()));
  ASSERT_EQ(0, results_set_context("cartridge", "VT0003L9"));
  results_note_totals(5, 3);
  EXPECT_EXIT(
      {
        results_write_interrupted(BreakKind::interrupt);
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "");
  const std::string line = read_file_bytes(kFile);
  EXPECT_EQ(0u, line.find("{\"record\":\"result\",\"cartridge\":\"VT0003L9\",\"exit_code\":1,"
                          "\"status\":\"interrupted\",\"reasons\":[\"interrupted by CTRL-C\"],"
                          "\"bytes_written\":                   5,\"bytes_verified\":                   3,"))
      << line;
}

}  // namespace
