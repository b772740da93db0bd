// Test support: runs the bftdtest executable (BFTDTEST_EXE) as a child
// process in the current directory, with bounded waits that kill the child
// instead of hanging the test. POSIX only (the tests run on the build
// machine).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

// How a child ended.
struct ChildEnd {
  bool ended = false;    // false: it outlived the wait and was killed
  int exit_code = -1;    // when it exited
  int signal = 0;        // when a signal ended it
  std::string screen;    // standard output, byte for byte
  std::string errors;    // standard error, byte for byte
};

struct ChildOptions {
  // A test that runs as root runs the program as the user "nobody" (65534),
  // so that file permissions apply to it.
  bool unprivileged = false;
  // The program's address space limit in bytes (0: none), so that a large
  // allocation fails as on a machine without the memory.
  size_t address_space_limit = 0;
  int timeout_seconds = 120;
};

// Runs the program with `arguments` (argument 0 is added), standard output
// and standard error into "child_screen.txt" and "child_errors.txt" of the
// current directory, and waits at most `options.timeout_seconds`.
ChildEnd run_bftdtest_child(const std::vector<std::string>& arguments,
                            const ChildOptions& options = {});

// The program on a pseudo-terminal: its screen is line-buffered as on an
// operator's console, so a test can watch the run's progress and interrupt
// it at a chosen point. Standard error goes to "child_errors.txt". The
// destructor kills and reaps a child that is still running.
class TerminalChild {
 public:
  explicit TerminalChild(const std::vector<std::string>& arguments);
  ~TerminalChild();
  TerminalChild(const TerminalChild&) = delete;
  TerminalChild& operator=(const TerminalChild&) = delete;

  bool started() const { return pid_ > 0; }
  // Reads the screen until `text` appears in it (searched from `from`) or
  // `timeout_ms` passes; true when it appeared.
  bool wait_for_screen(const std::string& text, int timeout_ms, size_t from = 0);
  void send_signal(int signal_number);
  // Waits until the child ends, reading its screen meanwhile; after
  // `timeout_ms` it is killed and `ended` stays false.
  ChildEnd wait_for_end(int timeout_ms);
  const std::string& screen() const { return screen_; }

 private:
  // Moves what the terminal holds into `screen_`, waiting at most
  // `timeout_ms` for the first byte: 1 when bytes came, 0 when none came in
  // time, -1 when the child's side of the terminal is gone.
  int read_screen(int timeout_ms);
  bool reap(int flags);

  pid_t pid_ = -1;
  int master_ = -1;
  std::string screen_;
  ChildEnd end_;
};
