// Operating-system services that the program needs apart from SCSI
// pass-through: the output lock, the millisecond pause, the monotonic clock, the console cursor,
// the delivery of CTRL-C and of the other ways a run is stopped from outside,
// the immediate process exit, the host name and process id, and the file lock
// and atomic file replacement that the virtual library shares its directory
// with. One implementation per
// operating system (os_posix.cc, os_win32.cc), chosen by the build; no other
// file of the program asks which system it runs on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

// Prepares the standard streams: on Windows the screen stream is switched to
// binary mode, because the program writes its own "\r\n" line ends.
void os_init_console();

// Pauses the calling thread for `milliseconds`.
void os_sleep_ms(uint32_t milliseconds);

// Nanoseconds on a clock that never steps (not the time of day); only
// differences mean anything. Cheap enough to read around every command.
uint64_t os_monotonic_ns();
// A cheaper clock for timing every single command: the processor's
// time-stamp counter where it ticks at a constant rate, else the monotonic
// clock itself. Its rate is measured once against os_monotonic_ns (the first
// call of os_fast_ticks_per_ns spins for about 20 ms).
uint64_t os_fast_ticks();
double os_fast_ticks_per_ns();

// True when `stream` is an interactive terminal (console).
bool os_stream_is_terminal(FILE* stream);

// Shows or hides the console cursor of `screen`; does nothing, quietly, when
// the stream is not a console, so redirected output carries no control bytes.
void os_set_cursor_visible(FILE* screen, bool visible);

// The lock that every write to the screen, the output file and the CDB list
// file holds. Not recursive.
void os_lock_output();
void os_unlock_output();

// How a run is ended from outside: the operator's CTRL-C, a stop from a
// scheduler or `timeout` (SIGTERM; CTRL-BREAK on Windows), or the terminal
// going away (SIGHUP; the console window closed on Windows).
enum class BreakKind : uint8_t { interrupt, terminate, hangup };
constexpr unsigned kBreakKinds = 3;

// The system's name of `kind`: "CTRL-C", "SIGTERM", "SIGHUP" on POSIX;
// "CTRL-C", "CTRL-BREAK", "console close" on Windows. A constant text, safe
// to use in the handler.
const char* os_break_name(BreakKind kind);

// Break delivery. After os_install_break_handler the handler runs on a
// thread of its own (never inside a signal context and never on the thread
// that called install), so it may take locks and close files; it gets the
// first break of any kind, and later ones are swallowed while it runs (it
// ends the process). Only one handler is installed at a time.
// os_remove_break_handler restores the default handling of every kind and
// waits until the delivery thread has gone. Returns 0, or -1 when the
// delivery could not be set up.
int os_install_break_handler(void (*handler)(BreakKind kind));
void os_remove_break_handler();
// Sends this process a break of `kind`, as the operator or a scheduler
// would (the virtual drive's break fault). On Windows a closed console
// cannot be sent; the handler is then called as Windows calls it, on a
// thread of its own.
void os_send_break(BreakKind kind);

// The machine's name as the system knows it (POSIX gethostname, Windows
// GetComputerNameA), cut to `size` - 1 bytes. 0, or -1 with "" when the
// system gives none.
int os_host_name(char* name, size_t size);
// The id of this process.
uint32_t os_process_id();

// An exclusive lock on the file at `path` (created when missing) that other
// processes see, and so do other locks of this process on the same file
// (flock on POSIX, a share mode of none on Windows). Returns 0 with `lock`
// set, 1 when someone else holds it, or -1 when the file cannot be opened.
// The lock goes with os_unlock_file, or with the process.
int os_try_lock_file(const char* path, intptr_t* lock);
void os_unlock_file(intptr_t lock);

// Puts the file `from` in the place of `to` in one step, so that a reader
// sees either the old file or the new one, never a part. 0 or -1.
int os_replace_file(const char* from, const char* to);

// Creates the directory `path`; an existing directory is fine. 0 or -1.
int os_make_directory(const char* path);

// True when the names `first` and `second` stand for one file: the same
// existing file (device and inode on POSIX, volume serial number and file
// index on Windows), or, for a file not created yet, the same directory
// and the same final name (compared as the file system compares names:
// exactly on POSIX, without regard to ASCII case on Windows). A symbolic
// link that points nowhere yet stands for the file it would create. Only
// regular files and files still to be created are compared: a directory,
// a device ("/dev/null", "NUL") or a name whose directory is missing is
// never one file with anything.
bool os_same_file(const char* first, const char* second);

// Flushes `file` and has the system write its data through to the disk. 0,
// or -1 when either failed.
int os_sync_file(FILE* file);

// Ends the process at once with `code`: no static destructors, no atexit
// handlers; open C streams are not flushed (flush them first).
[[noreturn]] void os_exit_now(int code);
