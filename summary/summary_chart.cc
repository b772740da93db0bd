#include "summary/summary_chart.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace {

constexpr double kLabelLeft = 10, kLabelRight = 330;
constexpr double kBarLeft = 340, kBarRight = 930;
constexpr double kTop = 70;
constexpr double kRowHeight = 30, kBarHeight = 11, kGroupHeading = 22;
constexpr double kBottomMargin = 40;
constexpr const char* kWriteColour = "#1f63b4";
constexpr const char* kReadColour = "#e07b10";

// Text for an SVG text node or attribute: markup characters as entities,
// control characters (not allowed in XML 1.0) as '?'.
std::string escaped(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '\'': out += "&apos;"; break;
      case '"': out += "&quot;"; break;
      default: out += static_cast<unsigned char>(c) < 0x20 && c != '\t' ? '?' : c;
    }
  }
  return out;
}

// A step of 1, 2 or 5 times a power of ten giving at most `most` ticks.
double tick_step(double span, int most) {
  double step = std::pow(10.0, std::floor(std::log10(span > 0 ? span : 1)));
  while (span / step > most) step *= (span / (step * 2) <= most) ? 2 : (span / (step * 5) <= most ? 5 : 10);
  while (span / step < most / 2.5 && step > 1e-9) step /= 2;
  return step;
}

std::string rate_label(double rate) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", rate);
  return text;
}

struct Scale {
  double top;  // MB/s at the right end
  double x(double rate) const { return kBarLeft + (kBarRight - kBarLeft) * rate / top; }
};

void draw_bar(FILE* f, const Scale& scale, double y, double rate, const char* colour, const char* what) {
  if (rate < 0) {
    std::fprintf(f, "<text x='%.0f' y='%.1f' font-size='10' fill='#777'>%s not measured</text>\n", kBarLeft + 4,
                 y + kBarHeight - 2, what);
    return;
  }
  const double x = scale.x(rate);
  std::fprintf(f, "<rect x='%.0f' y='%.1f' width='%.1f' height='%.0f' fill='%s'><title>%s %s MB/s</title></rect>\n",
               kBarLeft, y, std::max(x - kBarLeft, 0.5), kBarHeight, colour, what, rate_label(rate).c_str());
  std::fprintf(f, "<text x='%.1f' y='%.1f' font-size='10'>%s</text>\n", x + 4, y + kBarHeight - 2,
               rate_label(rate).c_str());
}

}  // namespace

int summary_chart_height(const SummaryData& data, const std::vector<SummaryGroup>& groups) {
  double height = kTop + kBottomMargin + static_cast<double>(data.rows.size()) * kRowHeight;
  for (const SummaryGroup& group : groups) {
    if (group.runs.size() > 1) height += kGroupHeading;
  }
  return static_cast<int>(height);
}

int write_summary_chart(FILE* f, const SummaryData& data, const std::vector<SummaryGroup>& groups) {
  const int height = summary_chart_height(data, groups);
  double top_rate = 0;
  for (const SummaryRow& row : data.rows) {
    top_rate = std::max({top_rate, summary_rate(row.write_bytes, row.write_seconds),
                         summary_rate(row.read_bytes, row.read_seconds)});
  }
  const Scale scale{top_rate > 0 ? top_rate * 1.1 : 1.0};
  std::fprintf(f, "<?xml version='1.0' encoding='UTF-8'?>\n<svg xmlns='http://www.w3.org/2000/svg' width='%d' "
               "height='%d' viewBox='0 0 %d %d' font-family='sans-serif' font-size='12'>\n",
               kSummaryChartWidth, height, kSummaryChartWidth, height);
  std::fprintf(f, "<rect width='100%%' height='100%%' fill='white'/>\n");
  std::fprintf(f, "<clipPath id='labels'><rect x='0' y='0' width='%.0f' height='%d'/></clipPath>\n", kLabelRight,
               height);
  std::fprintf(f, "<text x='%.0f' y='26' font-size='16' font-weight='bold'>bftdtest summary: %zu run%s, "
               "MB/s writing and reading (1 MB = 1,048,576 bytes)</text>\n",
               kLabelLeft, data.runs.size(), data.runs.size() == 1 ? "" : "s");
  std::fprintf(f, "<rect x='%.0f' y='40' width='14' height='10' fill='%s'/><text x='%.0f' y='49'>write</text>"
               "<rect x='%.0f' y='40' width='14' height='10' fill='%s'/><text x='%.0f' y='49'>read/compare</text>\n",
               kBarLeft, kWriteColour, kBarLeft + 18, kBarLeft + 70, kReadColour, kBarLeft + 88);
  std::fprintf(f, "<text x='%.0f' y='49' fill='#d0021b'>red name: the run or cartridge failed</text>\n",
               kBarLeft + 200);
  const double bottom = height - kBottomMargin;
  const double step = tick_step(scale.top, 8);
  for (double rate = 0; rate <= scale.top + 1e-9; rate += step) {
    std::fprintf(f, "<line x1='%.1f' y1='%.0f' x2='%.1f' y2='%.1f' stroke='#e4e4e4'/>\n", scale.x(rate), kTop,
                 scale.x(rate), bottom);
    std::fprintf(f, "<text x='%.1f' y='%.1f' text-anchor='middle'>%g</text>\n", scale.x(rate), bottom + 16, rate);
  }
  std::fprintf(f, "<line x1='%.0f' y1='%.0f' x2='%.0f' y2='%.0f' stroke='#333'/>\n", kBarLeft, kTop, kBarLeft, bottom);
  double y = kTop;
  for (const SummaryGroup& group : groups) {
    const bool together = group.runs.size() > 1;
    double group_rows = 0;
    for (uint32_t run : group.runs) group_rows += data.runs[run].row_count;
    if (together) {
      std::fprintf(f, "<rect x='0' y='%.1f' width='%d' height='%.1f' fill='#dfe6f0' fill-opacity='0.5'/>\n", y,
                   kSummaryChartWidth,
                   kGroupHeading + group_rows * kRowHeight);
      std::fprintf(f, "<text x='%.0f' y='%.1f' font-weight='bold'>%zu runs at the same time: together %s MB/s "
                   "writing, %s MB/s reading</text>\n",
                   kLabelLeft, y + 15, group.runs.size(), group.write_rate < 0 ? "-" : rate_label(group.write_rate).c_str(),
                   group.read_rate < 0 ? "-" : rate_label(group.read_rate).c_str());
      y += kGroupHeading;
    }
    for (uint32_t run : group.runs) {
      const SummaryRun& r = data.runs[run];
      for (uint32_t i = r.first_row; i < r.first_row + r.row_count; ++i) {
        const SummaryRow& row = data.rows[i];
        std::string label = r.host + "  " + r.drive;
        if (!row.cartridge.empty()) label += "  " + row.cartridge;
        std::fprintf(f, "<text x='%.0f' y='%.1f' clip-path='url(#labels)'%s>%s</text>\n", kLabelLeft,
                     y + kRowHeight / 2 + 4, row.failed ? " fill='#d0021b'" : "", escaped(label).c_str());
        draw_bar(f, scale, y + 3, summary_rate(row.write_bytes, row.write_seconds), kWriteColour, "write");
        draw_bar(f, scale, y + 4 + kBarHeight, summary_rate(row.read_bytes, row.read_seconds), kReadColour,
                 "read");
        y += kRowHeight;
      }
    }
  }
  std::fprintf(f, "</svg>\n");
  std::fflush(f);
  return std::ferror(f) ? -1 : 0;
}
