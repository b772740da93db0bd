#include "testing/process_testing.h"

#include <fcntl.h>
#include <poll.h>
#include <grp.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "testing/output_capture.h"

namespace {

using Clock = std::chrono::steady_clock;

int remaining_ms(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

std::vector<char*> argument_vector(std::vector<std::string>& texts) {
  std::vector<char*> vector;
  for (std::string& text : texts) vector.push_back(text.data());
  vector.push_back(nullptr);
  return vector;
}

void record_status(int status, ChildEnd* end) {
  end->ended = true;
  if (WIFEXITED(status)) end->exit_code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) end->signal = WTERMSIG(status);
}

}  // namespace

ChildEnd run_bftdtest_child(const std::vector<std::string>& arguments,
                            const ChildOptions& options) {
  std::vector<std::string> texts{BFTDTEST_EXE};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> vector = argument_vector(texts);
  ChildEnd end;
  pid_t pid = fork();
  if (pid == 0) {
    int out = open("child_screen.txt", O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open("child_errors.txt", O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || err < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(127);
    if (options.address_space_limit != 0) {
      rlimit limit{options.address_space_limit, options.address_space_limit};
      if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(127);
    }
    if (options.unprivileged && geteuid() == 0) {
      constexpr uid_t kNobody = 65534;
      if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(127);
    }
    execv(vector[0], vector.data());
    _exit(127);
  }
  if (pid < 0) return end;
  Clock::time_point deadline = Clock::now() + std::chrono::seconds(options.timeout_seconds);
  int status = 0;
  for (;;) {
    pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) {
      record_status(status, &end);
      break;
    }
    if (remaining_ms(deadline) == 0) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  end.screen = read_file_bytes("child_screen.txt");
  end.errors = read_file_bytes("child_errors.txt");
  return end;
}

TerminalChild::TerminalChild(const std::vector<std::string>& arguments) {
  std::vector<std::string> texts{BFTDTEST_EXE};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> vector = argument_vector(texts);
  termios raw{};
  cfmakeraw(&raw);  // bytes pass unchanged: no "\n" to "\r\n" translation
  winsize size{};
  size.ws_row = 25;
  size.ws_col = 80;
  pid_ = forkpty(&master_, nullptr, &raw, &size);
  if (pid_ == 0) {
    int err = open("child_errors.txt", O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (err < 0 || dup2(err, 2) < 0) _exit(127);
    execv(vector[0], vector.data());
    _exit(127);
  }
}

TerminalChild::~TerminalChild() {
  if (pid_ > 0 && !end_.ended) {
    kill(pid_, SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
  }
  if (master_ >= 0) close(master_);
}

int TerminalChild::read_screen(int timeout_ms) {
  pollfd watch{master_, POLLIN, 0};
  if (poll(&watch, 1, timeout_ms) <= 0) return 0;
  char bytes[4096];
  ssize_t got = read(master_, bytes, sizeof bytes);
  if (got <= 0) return -1;  // EIO: every slave side is closed
  screen_.append(bytes, static_cast<size_t>(got));
  return 1;
}

bool TerminalChild::reap(int flags) {
  if (end_.ended) return true;
  int status = 0;
  if (waitpid(pid_, &status, flags) != pid_) return false;
  record_status(status, &end_);
  return true;
}

bool TerminalChild::wait_for_screen(const std::string& text, int timeout_ms, size_t from) {
  if (!started()) return false;
  Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    if (screen_.find(text, from) != std::string::npos) return true;
    int left = remaining_ms(deadline);
    if (left == 0) return false;
    if (read_screen(left < 20 ? left : 20) < 0) {
      // The child is gone; what it wrote is all there is.
      return screen_.find(text, from) != std::string::npos;
    }
  }
}

void TerminalChild::send_signal(int signal_number) {
  if (started() && !end_.ended) kill(pid_, signal_number);
}

ChildEnd TerminalChild::wait_for_end(int timeout_ms) {
  if (!started()) return end_;
  Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  bool open = true;
  while (!reap(WNOHANG)) {
    int left = remaining_ms(deadline);
    if (left == 0) {
      kill(pid_, SIGKILL);
      int status = 0;
      waitpid(pid_, &status, 0);
      end_.ended = false;
      pid_ = -pid_;  // nothing left to reap
      break;
    }
    if (open) {
      open = read_screen(left < 20 ? left : 20) >= 0;
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  while (open && read_screen(0) > 0) {
  }
  ChildEnd end = end_;
  end.screen = screen_;
  end.errors = read_file_bytes("child_errors.txt");
  return end;
}
