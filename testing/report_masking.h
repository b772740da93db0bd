// Test support: masks the parts of a report that change from run to run (the
// "MM/DD/YY" dates, the "hh:mm:ss am" times, the SEC and KB/SEC figures) to
// their shape, so reports can be compared byte for byte.
#pragma once

#include <string>

std::string mask_report(const std::string& report);
