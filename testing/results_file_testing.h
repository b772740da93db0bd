// Test support: reads a JSON Lines results file (`/json`) as a batch job
// would, parsing every line, and sums it up in one short text that a test
// compares: per line "run:<serial>", "<test>:<end>" (a miscompare with
// "@<command>+0x<offset>"), "iteration[:rwr=<verdict>][:ecc=<verdict>]" and
// "result:<status>:<exit code>[:<reason>;<reason>]", separated by blanks; a
// library sweep's "library:..." and "cartridge:..." records, and the records
// of a cartridge's test prefixed "<barcode>/".
#pragma once

#include <string>

// The summary, or a text starting with "PROBLEM:" naming the first line that
// does not parse, is cut, or lacks a field a batch job relies on.
std::string summarize_results_file(const std::string& text);
