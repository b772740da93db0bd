// Whole runs of `/list` and `/summary` (see testing/golden_run.h): the
// listing of the virtual drive on the screen and as device records, and the
// summary of results files left by runs that passed, failed, ran together,
// swept a library, were interrupted or cut short, beside files that are no
// results files at all.
#include <gtest/gtest.h>

#include "testing/golden_run.h"

namespace {

const GoldenCase kFleetCases[] = {
    {"list_virtual_drive", "/list /vtape", nullptr, false, 0},
    // The address options place the virtual drive; the record says the same.
    {"list_json", "/list /hanum 1 /bus 2 /tid 9 /lun 3 /json devices.jsonl /vtape", nullptr, false, 0},
    // The adapter is held by another process: nothing can be listed.
    {"list_nothing_found", "/list /json devices.jsonl /vtape drive.vtape", "held = yes\n", false, 1},
    {"list_with_a_test_option", "/list /megs 3 /vtape", nullptr, false, 1},
    {"list_and_summary", "/list /summary a.jsonl", nullptr, false, 1},
    {"summary_runs",
     "/summary tape1-drive1.jsonl tape1-drive2.jsonl tape1-drive3.jsonl tape2-library.jsonl tape2-drive.jsonl "
     "tape3-crashed.jsonl notes.txt devices.jsonl missing.jsonl /plot chart.svg",
     nullptr, false, 0},
    {"summary_strict", "/summary tape1-drive1.jsonl tape1-drive2.jsonl /strict", nullptr, false, 2},
    {"summary_strict_passed", "/strict /summary tape1-drive1.jsonl", nullptr, false, 0},
    {"summary_no_run", "/summary missing.jsonl .", nullptr, false, 1},
    {"summary_without_files", "/summary /strict", nullptr, false, 1},
    {"summary_with_a_test_option", "/summary a.jsonl /megs 3", nullptr, false, 1},
    {"summary_chart_unopenable", "/summary a.jsonl /plot missing/chart.svg", nullptr, false, 1},
    // The chart would overwrite a file to be read: refused, the file kept.
    {"summary_chart_named_as_input", "/summary run.jsonl /plot run.jsonl", nullptr, false, 1},
};

INSTANTIATE_TEST_SUITE_P(Fleet, GoldenRun, ::testing::ValuesIn(kFleetCases), golden_case_name);

}  // namespace
