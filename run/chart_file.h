// The file of the `/plot` chart: opened with the report files (so that a bad
// name fails before the test), written once from the command timing, at the
// end of a test or by the CTRL-C handler, whichever claims it first, and
// closed once, by either thread. A library sweep writes one chart per
// cartridge: it opens the next file after the last one was closed.
#pragma once

// Opens `name` for the chart ("wb", with a static stream buffer so that the
// CTRL-C thread does not make the stream allocate one). 0 or -1 (nothing
// printed).
int open_chart_file(const char* name);
// True while a chart file is open.
bool chart_file_open();
// Writes the chart of what the command timing measured, once per file. 0,
// or -1 when it could not be written whole.
int write_chart(bool interrupted);
// Closes the file unless it is being written or already closed. 0, or -1
// when the close lost data.
int close_chart();
// For the CTRL-C handler: writes the chart (unless the test thread is
// writing it; then lets it finish) and closes the file.
void write_chart_on_break();
// Forgets the file without closing it twice (tests, a new run).
void reset_chart_file();
