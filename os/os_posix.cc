// POSIX services: pthread mutex for the output lock, nanosleep, ANSI cursor
// sequences on a terminal, and CTRL-C received with sigwait on a dedicated
// thread while SIGINT stays blocked in the test thread.
#include "os/os.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace {

pthread_mutex_t output_mutex = PTHREAD_MUTEX_INITIALIZER;

struct BreakDelivery {
  void (*handler)(int) = nullptr;
  pthread_t thread{};
  bool running = false;
  sigset_t previous_mask{};
  std::atomic<bool> stopping{false};
};
BreakDelivery delivery;

void* wait_for_break(void*) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  for (;;) {
    int signal_number = 0;
    if (sigwait(&set, &signal_number) != 0) continue;
    if (delivery.stopping.load()) return nullptr;
    delivery.handler(signal_number);  // does not return
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

int os_install_break_handler(void (*handler)(int)) {
  if (delivery.running) os_remove_break_handler();
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  // Block SIGINT in this (the test) thread; the delivery thread inherits the
  // mask and takes the signal with sigwait.
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

void os_send_break() { kill(getpid(), SIGINT); }

void os_exit_now(int code) { _exit(code); }
