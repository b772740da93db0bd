#include "run/streaming_chart.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kMegabyte = 1048576.0;
constexpr double kLeft = 80, kRight = 970;
constexpr double kRateTop = 70, kRateBottom = 370;
constexpr double kTimeTop = 450, kTimeBottom = 640;
constexpr const char* kWriteColour = "#1f63b4";
constexpr const char* kReadColour = "#e07b10";
constexpr const char* kStallColour = "#d0021b";
// Slices of a second shorter than this are folded into the one before, so
// the interval's last fraction of a second does not show as a spike.
constexpr uint32_t kShortestSliceMs = 250;
constexpr uint32_t kMostColumns = 1200;

// The intervals to draw: the finished ones and the one cut short.
struct Intervals {
  const TimingSnapshot& m;
  uint32_t size() const { return m.count + (m.has_partial ? 1 : 0); }
  const IntervalTiming& operator[](uint32_t i) const { return i < m.count ? m.intervals[i] : m.partial; }
};

// A step of 1, 2 or 5 times a power of ten giving at most `most` ticks.
double tick_step(double span, int most) {
  double step = std::pow(10.0, std::floor(std::log10(span > 0 ? span : 1)));
  while (span / step > most) step *= (span / (step * 2) <= most) ? 2 : (span / (step * 5) <= most ? 5 : 10);
  while (span / step < most / 2.5 && step > 1e-9) step /= 2;
  return step;
}

const char* test_letter(const IntervalTiming& t) { return t.kind == 0 ? "W" : "R"; }

// "12 ms", "340 us", "1.2 s".
void duration_text(char* text, size_t size, double ns) {
  if (ns >= 1e9) std::snprintf(text, size, "%g s", ns / 1e9);
  else if (ns >= 1e6) std::snprintf(text, size, "%g ms", ns / 1e6);
  else if (ns >= 1e3) std::snprintf(text, size, "%g us", ns / 1e3);
  else std::snprintf(text, size, "%g ns", ns);
}

struct RatePanel {
  double end_s;
  double top_rate;  // MB/s
  double x(double ms) const { return kLeft + (kRight - kLeft) * ms / 1000.0 / end_s; }
  double y(double rate) const { return kRateBottom - (kRateBottom - kRateTop) * rate / top_rate; }
};

// Calls `emit(start_ms, end_ms, bytes)` for the drawn slices of interval `t`:
// whole seconds, joined into columns when the test is long.
template <typename Emit>
void for_each_slice(const IntervalTiming& t, uint32_t seconds_per_column, Emit emit) {
  uint32_t from = t.start_ms;
  uint64_t bytes = 0;
  uint32_t joined = 0;
  for (uint32_t j = 0; j < t.seconds; ++j) {
    const uint32_t to = std::min(t.start_ms + (j + 1) * 1000, t.end_ms);
    bytes += timed_second_bytes(t.first_second + j);
    const bool last = j + 1 == t.seconds;
    const bool short_next = j + 2 == t.seconds && t.end_ms - to < kShortestSliceMs;
    if (++joined < seconds_per_column && !last) continue;
    if (short_next) continue;
    if (to > from) emit(from, to, bytes);
    from = to;
    bytes = 0;
    joined = 0;
  }
}

void draw_rate_panel(FILE* f, Intervals all, const RatePanel& p, uint32_t seconds_per_column) {
  // Grid and axes.
  const double time_step = tick_step(p.end_s, 10);
  for (double s = 0; s <= p.end_s + 1e-9; s += time_step) {
    std::fprintf(f, "<line x1='%.1f' y1='%.0f' x2='%.1f' y2='%.0f' stroke='#e4e4e4'/>\n", p.x(s * 1000), kRateTop,
                 p.x(s * 1000), kRateBottom);
    std::fprintf(f, "<text x='%.1f' y='%.0f' text-anchor='middle'>%g</text>\n", p.x(s * 1000), kRateBottom + 16, s);
  }
  const double rate_step = tick_step(p.top_rate, 6);
  for (double r = 0; r <= p.top_rate + 1e-9; r += rate_step) {
    std::fprintf(f, "<line x1='%.0f' y1='%.1f' x2='%.0f' y2='%.1f' stroke='#e4e4e4'/>\n", kLeft, p.y(r), kRight, p.y(r));
    std::fprintf(f, "<text x='%.0f' y='%.1f' text-anchor='end'>%g</text>\n", kLeft - 6, p.y(r) + 4, r);
  }
  std::fprintf(f, "<text x='%.0f' y='%.0f' text-anchor='middle'>time since the test started (s)</text>\n",
               (kLeft + kRight) / 2, kRateBottom + 34);
  std::fprintf(f, "<text transform='translate(24 %.0f) rotate(-90)' text-anchor='middle'>throughput (MB/s, 1 MB = "
               "1,048,576 bytes)</text>\n", (kRateTop + kRateBottom) / 2);
  // Interval boundaries, labelled where there is room.
  double last_label = -1e9;
  for (uint32_t i = 0; i < all.size(); ++i) {
    const double x = p.x(all[i].start_ms);
    std::fprintf(f, "<line x1='%.1f' y1='%.0f' x2='%.1f' y2='%.0f' stroke='#888' stroke-dasharray='3,3'/>\n", x,
                 kRateTop, x, kRateBottom);
    if (x - last_label < 26) continue;
    last_label = x;
    std::fprintf(f, "<text x='%.1f' y='%.0f' font-size='10' fill='#555'>%s%u</text>\n", x + 2, kRateTop + 10,
                 test_letter(all[i]), all[i].number);
  }
  // Throughput: one filled step line per interval.
  for (uint32_t i = 0; i < all.size(); ++i) {
    const IntervalTiming& t = all[i];
    const char* colour = t.kind == 0 ? kWriteColour : kReadColour;
    std::fprintf(f, "<path fill='%s' fill-opacity='0.25' stroke='%s' stroke-width='1.2' d='M%.1f %.1f", colour,
                 colour, p.x(t.start_ms), p.y(0));
    for_each_slice(t, seconds_per_column, [&](uint32_t from, uint32_t to, uint64_t bytes) {
      const double rate = static_cast<double>(bytes) / kMegabyte / ((to - from) / 1000.0);
      std::fprintf(f, " L%.1f %.1f L%.1f %.1f", p.x(from), p.y(rate), p.x(to), p.y(rate));
    });
    std::fprintf(f, " L%.1f %.1f Z'/>\n", p.x(std::max(t.end_ms, t.start_ms)), p.y(0));
  }
  // Stalls: a red mark above the time each one ended.
  for (uint32_t i = 0; i < all.size(); ++i) {
    const IntervalTiming& t = all[i];
    for (uint32_t s = 0; s < t.stalls.listed; ++s) {
      const StallRecord& r = t.stalls.longest[s];
      const double x = p.x(r.at_ms);
      char text[32];
      duration_text(text, sizeof text, static_cast<double>(r.duration_ns));
      std::fprintf(f, "<g class='stall'><title>%s%u command %u: %s</title><line x1='%.1f' y1='%.0f' x2='%.1f' "
                   "y2='%.0f' stroke='%s' stroke-opacity='0.5'/><path d='M%.1f %.0f l-5 -9 h10 Z' fill='%s'/></g>\n",
                   test_letter(t), t.number, r.command, text, x, kRateTop, x, kRateBottom, kStallColour, x,
                   kRateTop - 2, kStallColour);
    }
  }
  std::fprintf(f, "<rect x='%.0f' y='%.0f' width='%.0f' height='%.0f' fill='none' stroke='#333'/>\n", kLeft, kRateTop,
               kRight - kLeft, kRateBottom - kRateTop);
}

void draw_time_panel(FILE* f, Intervals all) {
  double low = 1e300, high = 0;
  for (uint32_t i = 0; i < all.size(); ++i) {
    if (all[i].latency.commands == 0) continue;
    low = std::min(low, static_cast<double>(std::max<uint64_t>(all[i].latency.min_ns, 1)));
    high = std::max(high, static_cast<double>(all[i].latency.max_ns));
  }
  if (high <= 0) return;
  const double d0 = std::floor(std::log10(low)), d1 = std::max(std::ceil(std::log10(high)), d0 + 1);
  auto y = [&](double ns) {
    return kTimeBottom - (kTimeBottom - kTimeTop) * (std::log10(std::max(ns, 1.0)) - d0) / (d1 - d0);
  };
  const double band = (kRight - kLeft) / all.size();
  auto x = [&](uint32_t i) { return kLeft + band * (i + 0.5); };
  for (uint32_t i = 0; i < all.size(); ++i) {
    std::fprintf(f, "<rect x='%.1f' y='%.0f' width='%.1f' height='%.0f' fill='%s' fill-opacity='0.08'/>\n",
                 kLeft + band * i, kTimeTop, band, kTimeBottom - kTimeTop,
                 all[i].kind == 0 ? kWriteColour : kReadColour);
    if (band >= 22 || i % static_cast<uint32_t>(std::ceil(22 / band)) == 0)
      std::fprintf(f, "<text x='%.1f' y='%.0f' text-anchor='middle' font-size='10'>%s%u</text>\n", x(i),
                   kTimeBottom + 14, test_letter(all[i]), all[i].number);
  }
  for (double d = d0; d <= d1; ++d) {
    char text[32];
    duration_text(text, sizeof text, std::pow(10.0, d));
    std::fprintf(f, "<line x1='%.0f' y1='%.1f' x2='%.0f' y2='%.1f' stroke='#e4e4e4'/>\n", kLeft, y(std::pow(10.0, d)),
                 kRight, y(std::pow(10.0, d)));
    std::fprintf(f, "<text x='%.0f' y='%.1f' text-anchor='end'>%s</text>\n", kLeft - 6, y(std::pow(10.0, d)) + 4, text);
  }
  std::fprintf(f, "<text transform='translate(24 %.0f) rotate(-90)' text-anchor='middle'>command time (log)</text>\n",
               (kTimeTop + kTimeBottom) / 2);
  std::fprintf(f, "<text x='%.0f' y='%.0f' text-anchor='middle'>status interval (W write, R read/compare)</text>\n",
               (kLeft + kRight) / 2, kTimeBottom + 32);
  struct Series {
    const char* name;
    const char* colour;
    uint64_t LatencySummary::*field;
    const char* dashes;  // the maximum dashed: it often lies on the 99th percentile
  };
  const Series series[] = {{"p99", "#8e44ad", &LatencySummary::p99_ns, "none"},
                           {"max", "#d0021b", &LatencySummary::max_ns, "6,4"},
                           {"p90", "#2a9d8f", &LatencySummary::p90_ns, "none"},
                           {"median", "#222", &LatencySummary::median_ns, "none"},
                           {"min", "#999", &LatencySummary::min_ns, "none"}};
  double legend_x = kRight - 400;
  for (const Series& s : series) {
    std::fprintf(f, "<polyline fill='none' stroke='%s' stroke-width='1.5' stroke-dasharray='%s' points='", s.colour,
                 s.dashes);
    for (uint32_t i = 0; i < all.size(); ++i) {
      if (all[i].latency.commands > 0)
        std::fprintf(f, "%.1f,%.1f ", x(i), y(static_cast<double>(all[i].latency.*s.field)));
    }
    std::fprintf(f, "'/>\n");
    for (uint32_t i = 0; i < all.size() && band >= 6; ++i) {
      if (all[i].latency.commands > 0)
        std::fprintf(f, "<circle cx='%.1f' cy='%.1f' r='2.5' fill='%s'/>\n", x(i),
                     y(static_cast<double>(all[i].latency.*s.field)), s.colour);
    }
    std::fprintf(f, "<rect x='%.0f' y='%.0f' width='14' height='3' fill='%s'/><text x='%.0f' y='%.0f'>%s</text>\n",
                 legend_x, kTimeTop - 14, s.colour, legend_x + 18, kTimeTop - 9, s.name);
    legend_x += 80;
  }
  std::fprintf(f, "<rect x='%.0f' y='%.0f' width='%.0f' height='%.0f' fill='none' stroke='#333'/>\n", kLeft, kTimeTop,
               kRight - kLeft, kTimeBottom - kTimeTop);
}

}  // namespace

int write_streaming_chart(FILE* f, const TimingSnapshot& measured, bool interrupted) {
  const Intervals all{measured};
  uint32_t stalls = 0, end_ms = measured.now_ms;
  double top_rate = 0;
  uint64_t total_seconds = 0;
  bool complete = true;
  for (uint32_t i = 0; i < all.size(); ++i) {
    stalls += all[i].stalls.count;
    end_ms = std::max(end_ms, all[i].end_ms);
    total_seconds += all[i].seconds;
    complete = complete && all[i].seconds_complete;
  }
  const uint32_t per_column = static_cast<uint32_t>(total_seconds / kMostColumns + 1);
  for (uint32_t i = 0; i < all.size(); ++i) {
    for_each_slice(all[i], per_column, [&](uint32_t from, uint32_t to, uint64_t bytes) {
      top_rate = std::max(top_rate, static_cast<double>(bytes) / kMegabyte / ((to - from) / 1000.0));
    });
  }
  const RatePanel panel{std::max(end_ms / 1000.0, 1.0), top_rate > 0 ? top_rate * 1.1 : 1.0};
  std::fprintf(f, "<?xml version='1.0' encoding='UTF-8'?>\n<svg xmlns='http://www.w3.org/2000/svg' width='%d' "
               "height='%d' viewBox='0 0 %d %d' font-family='sans-serif' font-size='12'>\n",
               kChartWidth, kChartHeight, kChartWidth, kChartHeight);
  std::fprintf(f, "<rect width='100%%' height='100%%' fill='white'/>\n");
  std::fprintf(f, "<text x='%.0f' y='26' font-size='16' font-weight='bold'>bftdtest streaming: %u interval%s, "
               "%u stall%s (over 4x the interval median and 20 ms)%s</text>\n", kLeft, all.size(),
               all.size() == 1 ? "" : "s", stalls, stalls == 1 ? "" : "s", interrupted ? ", stopped by CTRL-C" : "");
  std::fprintf(f, "<rect x='%.0f' y='40' width='14' height='10' fill='%s'/><text x='%.0f' y='49'>write</text>"
               "<rect x='%.0f' y='40' width='14' height='10' fill='%s'/><text x='%.0f' y='49'>read/compare</text>"
               "<path d='M%.0f 40 l-5 -0 l5 9 l5 -9 Z' fill='%s'/><text x='%.0f' y='49'>stall</text>\n",
               kLeft, kWriteColour, kLeft + 18, kLeft + 70, kReadColour, kLeft + 88, kLeft + 200, kStallColour,
               kLeft + 210);
  if (per_column > 1)
    std::fprintf(f, "<text x='%.0f' y='49' text-anchor='end'>each step: %u s</text>\n", kRight, per_column);
  if (!complete)
    std::fprintf(f, "<text x='%.0f' y='62' text-anchor='end' fill='%s'>per-second table full: later seconds "
                 "missing</text>\n", kRight, kStallColour);
  if (!measured.consistent)
    std::fprintf(f, "<text x='%.0f' y='62' fill='%s'>interval in progress not shown</text>\n", kLeft, kStallColour);
  if (all.size() == 0) {
    std::fprintf(f, "<text x='%.0f' y='%.0f' text-anchor='middle'>no command was timed</text>\n",
                 (kLeft + kRight) / 2, (kRateTop + kRateBottom) / 2);
  } else {
    draw_rate_panel(f, all, panel, per_column);
    draw_time_panel(f, all);
  }
  std::fprintf(f, "</svg>\n");
  std::fflush(f);
  return std::ferror(f) ? -1 : 0;
}
