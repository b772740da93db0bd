// Writes results files like the ones `/json` leaves, for the `/summary`
// benchmark: results_files <directory> <files> <intervals per file>.
// Files are runs of 8 hosts with 4 drives each, the four drives of a host
// started together; each interval record has the timing fields of a real
// run (latency, stalls, a few seconds of per-second bytes).
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: results_files <directory> <files> <intervals per file>\n");
    return 2;
  }
  const std::string directory = argv[1];
  const long files = std::atol(argv[2]);
  const long intervals = std::atol(argv[3]);
  for (long n = 0; n < files; ++n) {
    const long host = n % 8, drive = (n / 8) % 4, batch = n / 32;
    char name[64];
    std::snprintf(name, sizeof name, "/run-%06ld.jsonl", n);
    FILE* f = std::fopen((directory + name).c_str(), "wb");
    if (f == nullptr) {
      std::perror(name);
      return 1;
    }
    const long start = batch * 600;  // seconds after 2026-11-23 00:00 UTC, 10 minutes per batch
    std::fprintf(f,
                 "{\"record\":\"run\",\"version\":\"1.57CV\",\"host\":\"benchhost%ld\",\"run_id\":\"benchhost%ld-%ld\","
                 "\"options\":[\"/hanum\",\"0\",\"/tid\",\"%ld\",\"/megs\",\"100000\",\"/json\",\"run.jsonl\"],"
                 "\"settings\":{\"output_file\":\"bftdtest.out\",\"megabytes\":100000.0,\"strict\":false},"
                 "\"address\":{\"hanum\":0,\"bus\":0,\"id\":%ld,\"lun\":0},"
                 "\"access\":{\"platform\":\"linux-sg\",\"device\":\"/dev/nst%ld\"},"
                 "\"drive\":{\"vendor\":\"IBM\",\"product\":\"ULT3580-TD9\",\"revision\":\"R1A0\","
                 "\"serial\":\"10130%05ld\"},\"start_time\":\"2026-11-%02ldT%02ld:%02ld:%02ld+00:00\"}\n",
                 host, host, n, drive + 2, drive + 2, drive, n, 23 + start / 86400, start / 3600 % 24,
                 start / 60 % 60, start % 60);
    const long end = start + intervals * 3 + 10;
    for (long i = 0; i < intervals; ++i) {
      const bool write = i < intervals / 2;
      const long index = write ? i + 1 : i - intervals / 2 + 1;
      std::fprintf(f,
                   "{\"record\":\"interval\",\"iteration\":1,\"test\":\"%s\",\"index\":%ld,\"interval_count\":%ld,"
                   "\"planned_mb\":1000.0,\"planned_bytes\":1048576000,\"planned_commands\":16000,"
                   "\"actual_mb\":1000.0,\"actual_bytes\":1048576000,\"commands\":16000,\"seconds\":3.%03ld,"
                   "\"kb_per_second\":301234,\"bytes_per_second\":301234567.125,\"end\":{\"kind\":\"complete\"},"
                   "\"latency\":{\"min_ms\":0.001151,\"median_ms\":0.067584,\"p90_ms\":1.081344,\"p99_ms\":3.211264,"
                   "\"max_ms\":%ld.420145},\"stalls\":{\"count\":%ld,\"exact\":true,\"longest\":[]},"
                   "\"per_second\":[327483392,314966016,314507264,91619328]}\n",
                   write ? "write" : "read_compare", index, intervals / 2, 300 + i % 400, 5 + i % 30, i % 3);
    }
    std::fprintf(f,
                 "{\"record\":\"iteration\",\"iteration\":1,\"rwr\":null,\"ecc\":null,\"limit_percentage\":1.0}\n"
                 "{\"record\":\"result\",\"exit_code\":0,\"status\":\"passed\",\"reasons\":[],"
                 "\"bytes_written\":%ld,\"bytes_verified\":%ld,\"elapsed_seconds\":%ld.5,"
                 "\"end_time\":\"2026-11-%02ldT%02ld:%02ld:%02ld+00:00\"}\n",
                 intervals / 2 * 1048576000L, intervals / 2 * 1048576000L, intervals * 3 + 10, 23 + end / 86400,
                 end / 3600 % 24, end / 60 % 60, end % 60);
    if (std::fclose(f) != 0) {
      std::perror(name);
      return 1;
    }
  }
  return 0;
}
