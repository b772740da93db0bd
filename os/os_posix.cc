// POSIX services: pthread mutex for the output lock, nanosleep, ANSI cursor
// sequences on a terminal, CTRL-C, SIGTERM and SIGHUP received with sigwait
// on a dedicated thread while they stay blocked in the test thread, flock for
// the file lock and rename for the atomic replacement.
#include "os/os.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <x86intrin.h>
#define BFTDTEST_HAVE_TSC 1
#endif

namespace {

pthread_mutex_t output_mutex = PTHREAD_MUTEX_INITIALIZER;

struct BreakDelivery {
  void (*handler)(BreakKind) = nullptr;
  pthread_t thread{};
  bool running = false;
  sigset_t previous_mask{};
  std::atomic<bool> stopping{false};
};
BreakDelivery delivery;

// The signal of each BreakKind, in its order.
constexpr int kBreakSignals[kBreakKinds] = {SIGINT, SIGTERM, SIGHUP};

sigset_t break_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (int signal_number : kBreakSignals) sigaddset(&set, signal_number);
  return set;
}

void* wait_for_break(void*) {
  const sigset_t set = break_signals();
  for (;;) {
    int signal_number = 0;
    if (sigwait(&set, &signal_number) != 0) continue;
    if (delivery.stopping.load()) return nullptr;
    for (unsigned kind = 0; kind < kBreakKinds; ++kind) {
      if (kBreakSignals[kind] == signal_number) delivery.handler(static_cast<BreakKind>(kind));  // does not return
    }
  }
}

}  // namespace

void os_init_console() {}

void os_sleep_ms(uint32_t milliseconds) {
  timespec wait;
  wait.tv_sec = static_cast<time_t>(milliseconds / 1000);
  wait.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
  while (nanosleep(&wait, &wait) != 0) {
  }
}

uint64_t os_monotonic_ns() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

namespace {

// The time-stamp counter can time commands when it runs at one rate in
// every power state (the "invariant TSC" bit, CPUID 80000007h EDX bit 8).
bool invariant_tsc() {
#ifdef BFTDTEST_HAVE_TSC
  unsigned a = 0, b = 0, c = 0, d = 0;
  // The result type differs between compilers (int or unsigned).
  if (static_cast<unsigned>(__get_cpuid_max(0x80000000u, nullptr)) < 0x80000007u) return false;
  __get_cpuid(0x80000007u, &a, &b, &c, &d);
  return (d & (1u << 8)) != 0;
#else
  return false;
#endif
}

const bool use_tsc = invariant_tsc();

}  // namespace

uint64_t os_fast_ticks() {
#ifdef BFTDTEST_HAVE_TSC
  if (use_tsc) return __rdtsc();
#endif
  return os_monotonic_ns();
}

double os_fast_ticks_per_ns() {
  static const double rate = [] {
    if (!use_tsc) return 1.0;
    const uint64_t ns0 = os_monotonic_ns(), ticks0 = os_fast_ticks();
    uint64_t ns1 = ns0, ticks1 = ticks0;
    while (ns1 - ns0 < 20000000) ns1 = os_monotonic_ns(), ticks1 = os_fast_ticks();
    return static_cast<double>(ticks1 - ticks0) / static_cast<double>(ns1 - ns0);
  }();
  return rate;
}

bool os_stream_is_terminal(FILE* stream) {
  if (stream == nullptr) return false;
  int fd = fileno(stream);
  return fd >= 0 && isatty(fd) == 1;
}

void os_set_cursor_visible(FILE* screen, bool visible) {
  if (!os_stream_is_terminal(screen)) return;
  std::fputs(visible ? "\x1b[?25h" : "\x1b[?25l", screen);
  std::fflush(screen);
}

void os_lock_output() { pthread_mutex_lock(&output_mutex); }
void os_unlock_output() { pthread_mutex_unlock(&output_mutex); }

const char* os_break_name(BreakKind kind) {
  switch (kind) {
    case BreakKind::interrupt: return "CTRL-C";
    case BreakKind::terminate: return "SIGTERM";
    case BreakKind::hangup: return "SIGHUP";
  }
  return "CTRL-C";
}

int os_install_break_handler(void (*handler)(BreakKind)) {
  if (delivery.running) os_remove_break_handler();
  const sigset_t set = break_signals();
  // Block the signals in this (the test) thread; the delivery thread
  // inherits the mask and takes them with sigwait.
  if (pthread_sigmask(SIG_BLOCK, &set, &delivery.previous_mask) != 0) return -1;
  delivery.handler = handler;
  delivery.stopping.store(false);
  if (pthread_create(&delivery.thread, nullptr, wait_for_break, nullptr) != 0) {
    pthread_sigmask(SIG_SETMASK, &delivery.previous_mask, nullptr);
    return -1;
  }
  delivery.running = true;
  return 0;
}

void os_remove_break_handler() {
  if (!delivery.running) return;
  delivery.stopping.store(true);
  pthread_kill(delivery.thread, SIGINT);  // wakes sigwait; seen as a stop
  pthread_join(delivery.thread, nullptr);
  delivery.running = false;
  pthread_sigmask(SIG_SETMASK, &delivery.previous_mask, nullptr);
}

void os_send_break(BreakKind kind) { kill(getpid(), kBreakSignals[static_cast<unsigned>(kind)]); }

int os_host_name(char* name, size_t size) {
  if (size == 0) return -1;
  // gethostname need not terminate a name that it cut.
  if (gethostname(name, size) != 0) {
    name[0] = '\0';
    return -1;
  }
  name[size - 1] = '\0';
  return name[0] != '\0' ? 0 : -1;
}

uint32_t os_process_id() { return static_cast<uint32_t>(getpid()); }

namespace {

// What a name stands for, as os_same_file compares it.
struct FileIdentity {
  bool comparable = false;
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;         // of the file, or of its directory when it does not exist
  std::string final_name;  // when it does not exist
};

FileIdentity identity_of(std::string path) {
  FileIdentity identity;
  for (int links = 0; links < 40; ++links) {  // as many as the kernel follows
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
      identity.comparable = S_ISREG(status.st_mode);
      identity.exists = true;
      identity.device = status.st_dev;
      identity.inode = status.st_ino;
      return identity;
    }
    if (errno != ENOENT) return identity;
    const size_t slash = path.find_last_of('/');
    const std::string directory = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    // A link that points nowhere yet: opening it creates its target.
    char target[4096];
    const ssize_t length = readlink(path.c_str(), target, sizeof target - 1);
    if (length > 0) {
      target[length] = '\0';
      path = target[0] == '/' ? std::string(target) : directory + "/" + target;
      continue;
    }
    identity.final_name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (identity.final_name.empty() || identity.final_name == "." || identity.final_name == "..") return identity;
    if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return identity;
    identity.comparable = true;
    identity.device = status.st_dev;
    identity.inode = status.st_ino;
    return identity;
  }
  return identity;
}

}  // namespace

bool os_same_file(const char* first, const char* second) {
  const FileIdentity a = identity_of(first);
  const FileIdentity b = identity_of(second);
  return a.comparable && b.comparable && a.exists == b.exists && a.device == b.device && a.inode == b.inode &&
         a.final_name == b.final_name;
}

int os_sync_file(FILE* file) {
  if (std::fflush(file) != 0) return -1;
  return fsync(fileno(file)) == 0 ? 0 : -1;
}

void os_exit_now(int code) { _exit(code); }

int os_try_lock_file(const char* path, intptr_t* lock) {
  const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return -1;
  // flock belongs to the open file, so a second open in this process conflicts too.
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    close(fd);
    return error == EWOULDBLOCK ? 1 : -1;
  }
  *lock = fd;
  return 0;
}

void os_unlock_file(intptr_t lock) { close(static_cast<int>(lock)); }

int os_replace_file(const char* from, const char* to) { return rename(from, to) == 0 ? 0 : -1; }

int os_make_directory(const char* path) {
  if (mkdir(path, 0777) == 0) return 0;
  struct stat info;
  return errno == EEXIST && stat(path, &info) == 0 && S_ISDIR(info.st_mode) ? 0 : -1;
}
