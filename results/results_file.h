// The JSON Lines results file of `/json <file>`: one JSON object per line,
// each written and flushed whole when it happens, so the file is valid line
// by line at any moment, after CTRL-C and after a crash.
//
// The file knows no record but its own interrupted `result` line. Each
// producer writes its record (or its part of one) with the writer of named
// fields below, beside its own state:
//   results_begin("interval");              {"record":"interval"
//   results_unsigned("iteration", 1);         ,"iteration":1
//   results_begin_object("end");              ,"end":{
//   results_text("kind", "complete");           "kind":"complete"
//   results_end_object();                     }
//   ... (the command timing adds its fields here)
//   results_end();                          } written and flushed
// Fields keep the order they were written in; a name written twice in one
// object keeps its first place and takes the last value. Inside an array the
// elements have no names: pass nullptr. Texts need not be UTF-8 (bytes that
// are not are replaced by U+FFFD); a double that is not finite is written as
// null, as JSON has no other spelling for it.
//
// Threads: everything is called on the main thread, one record at a time,
// except results_write_interrupted, which the CTRL-C handler calls on its
// own thread after it has taken the output lock for good. The interrupted
// `result` line is prepared when the file opens and kept current by
// results_note_totals and results_set_context (under the output lock), so
// the handler only writes bytes that already exist and closes the file: no
// formatting, no heap.
#pragma once

#include <cstdint>

#include "os/os.h"

// Opens `file_name` for writing ("wb"), notes the start time and prepares the
// interrupted result line. 0, or -1 (nothing open; the caller reports it).
int results_open(const char* file_name);
// True while a results file is open.
bool results_enabled();
// Closes the file (a record begun and not ended is dropped). 0, or -1 when a
// write, flush or close failed since the open.
int results_close();
// Closes without a result line and forgets everything, the context field
// included (tests).
void reset_results_file();

// Begins a record of `kind`: {"record":kind, then the context field if one is
// set. Without an open file this and every field call below do nothing, so a
// producer need not ask first (asking saves work that is only for the file).
// A record begun and not ended is dropped by the next results_begin.
void results_begin(const char* kind);
// Typed fields of the open object, or elements of the open array (name
// nullptr there).
void results_text(const char* name, const char* text);  // null when `text` is nullptr
void results_unsigned(const char* name, uint64_t value);
void results_signed(const char* name, int64_t value);
void results_double(const char* name, double value);
void results_bool(const char* name, bool value);
void results_null(const char* name);
// The local time now in ISO 8601 with its offset ("2026-11-23T14:05:09+01:00"),
// and the seconds since the file was opened.
void results_time_now(const char* name);
void results_elapsed_seconds(const char* name);
// Nested objects and arrays; each begin needs its end.
void results_begin_object(const char* name);
void results_end_object();
void results_begin_array(const char* name);
void results_end_array();
// Closes what is still open, writes the record as one line and flushes it,
// under the output lock.
void results_end();

// The context field: while it is set, every record begun carries
// "name":"text" right after "record" (the interrupted line too), e.g. the
// cartridge a library sweep is testing. Setting it again replaces it. 0, or
// -1 (and the context cleared) when the name is empty or the field would
// take more than 256 bytes of the line.
int results_set_context(const char* name, const char* text);
void results_clear_context();

// Keeps the prepared interrupted line current: totals, elapsed time and end
// time. Cheap (no heap, a few digits); called after each whole MB and each
// interval on the main thread.
void results_note_totals(uint64_t bytes_written, uint64_t bytes_verified);
// For the break handler, which already holds the output lock: writes the
// prepared `result` line (status "interrupted", exit code 1, the reason
// "interrupted by " and the name of `kind`, os_break_name) and closes the
// file. Nothing when no file is open.
void results_write_interrupted(BreakKind kind);
