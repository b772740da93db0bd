// The one road by which messages reach the screen, the output file (the "log
// file") and the standard error stream. A message is formatted once per
// stream; a stream that is none (nullptr) is skipped. Every write holds the
// output lock, so a CTRL-C that takes the lock never finds half a line.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <initializer_list>

// MinGW's plain `printf` archetype checks the Microsoft runtime's formats;
// the program is built with the C99-conforming MinGW printf there, which is
// what `gnu_printf` checks.
#if defined(__MINGW32__)
#define BFT_PRINTF_FORMAT(format_index, first_arg) \
  __attribute__((format(gnu_printf, format_index, first_arg)))
#else
#define BFT_PRINTF_FORMAT(format_index, first_arg) \
  __attribute__((format(printf, format_index, first_arg)))
#endif

// The screen: the standard output unless a test has redirected it.
FILE* screen_stream();
void set_screen_stream(FILE* stream);  // nullptr restores stdout

// Where option-parsing and file-opening errors go: standard error unless
// redirected.
FILE* error_stream();
void set_error_stream(FILE* stream);  // nullptr restores stderr

// The output file registered by setup, or nullptr before setup and after
// cleanup.
FILE* log_file();
void set_log_file(FILE* stream);

// Formats `format` onto each stream of `streams` in order.
void log_printf(std::initializer_list<FILE*> streams, const char* format, ...)
    BFT_PRINTF_FORMAT(2, 3);
void log_vprintf(std::initializer_list<FILE*> streams, const char* format, va_list args)
    BFT_PRINTF_FORMAT(2, 0);

// The usual call: the screen and the log file.
void report_printf(const char* format, ...) BFT_PRINTF_FORMAT(1, 2);
// The screen alone.
void screen_printf(const char* format, ...) BFT_PRINTF_FORMAT(1, 2);
// The error stream alone (option and file-open messages end in "\n").
void error_printf(const char* format, ...) BFT_PRINTF_FORMAT(1, 2);

// Flushes `stream` (none is skipped); a failure is reported on the error
// stream as "ERROR: unable to flush output stream\r\n".
void flush_stream(FILE* stream);

// True once a flush or close of a report stream (output file, CDB list) has
// failed since the last reset: the report on disk is incomplete, and a run
// that otherwise passed must not end with exit code 0.
bool report_write_failed();
void note_report_write_failure();
void reset_report_write_failure();

// Takes the output lock for good: after this no thread writes another byte
// through this file's routines. Used by the CTRL-C handler before it closes
// the files and ends the process.
void seal_output();
