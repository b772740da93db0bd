// Whole runs on virtual drives described like real ones (see
// testing/golden_run.h), and the description keys of their speed and
// compression.
#include <gtest/gtest.h>

#include "testing/golden_run.h"

namespace {

const GoldenCase kVirtualDriveCases[] = {
    {"vtape_bad_host_rate", "/vtape drive.vtape", "host_rate_mb_s = 100001\n", false, 1},
    {"vtape_bad_compression_ratio", "/vtape drive.vtape", "max_compression_ratio = 90:1\n", false, 1},
};

INSTANTIATE_TEST_SUITE_P(VirtualDrive, GoldenRun, ::testing::ValuesIn(kVirtualDriveCases), golden_case_name);

}  // namespace
