// Runs a command as a child process, its output discarded, and prints the
// child's peak resident memory, its exit code, the wall time and the CPU
// time it used (user and system):
//   peak_rss <program> [arguments...]
// prints "peak_rss_kb=N exit=N seconds=N.NNN cpu_seconds=N.NN". Linux only.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: peak_rss <program> [arguments...]\n");
    return 2;
  }
  auto start = std::chrono::steady_clock::now();
  pid_t child = fork();
  if (child < 0) {
    std::perror("fork");
    return 2;
  }
  if (child == 0) {
    int null_fd = open("/dev/null", O_WRONLY);
    if (null_fd >= 0) dup2(null_fd, STDOUT_FILENO);
    execvp(argv[1], argv + 1);
    std::perror("exec");
    _exit(127);
  }
  int status = 0;
  struct rusage usage {};
  if (wait4(child, &status, 0, &usage) != child) {
    std::perror("wait4");
    return 2;
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  std::printf("peak_rss_kb=%ld exit=%d seconds=%.3f cpu_seconds=%.2f\n", usage.ru_maxrss, code, seconds, cpu);
  return 0;
}
