// The report's opening: the title block, the test date and time and the
// drive's identity from its Inquiry data, then a short summary of where the
// report and the CDB list go. Printed once per run, after setup.
#pragma once

// Title, "TEST DATE/TIME", then an Inquiry (allocation length 255) and the
// drive's product id, vendor id and firmware revision, each printed at its
// full field width (16, 8, 4), cut at a zero byte and padded with blanks.
// Screen and output file; ends with a flush of both report streams.
void print_report_header();

// A blank line, the output file (screen only, "(append) =" after /afile) and,
// with a CDB list, its file name. Ends with a flush of both report streams.
void print_settings_summary();
