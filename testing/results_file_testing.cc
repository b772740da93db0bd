#include "testing/results_file_testing.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

using nlohmann::json;

std::string text_or_dash(const json& value) { return value.is_string() ? value.get<std::string>() : "-"; }

// One record's part of the summary, or "" when a field is missing.
std::string summarize_record(const json& r) {
  const std::string kind = r.value("record", "");
  if (kind == "run") {
    if (!r.contains("options") || !r.contains("settings") || !r.contains("start_time")) return "";
    // Which machine ran it, and a name no other run shares.
    if (!r.contains("host") || !r.contains("run_id") || !r["host"].is_string() || !r["run_id"].is_string() ||
        r["run_id"].get<std::string>().rfind(r["host"].get<std::string>() + "-", 0) != 0) {
      return "";
    }
    return "run:" + text_or_dash(r["drive"]["serial"]);
  }
  if (kind == "interval") {
    const json& end = r["end"];
    // The actual bytes are the data of the commands, as the planned ones are.
    const uint64_t planned_commands = std::max<uint64_t>(1, r["planned_commands"].get<uint64_t>());
    const uint64_t per_command = r["planned_bytes"].get<uint64_t>() / planned_commands;
    if (r["actual_bytes"] != r["commands"].get<uint64_t>() * per_command) return "";
    std::string text = r["test"].get<std::string>() + ":" + end["kind"].get<std::string>();
    if (end["kind"] == "miscompare") {
      char where[48];
      std::snprintf(where, sizeof where, "@%u+0x%X", end["command"].get<unsigned>(),
                    end["offset"].get<unsigned>());
      text += where;
    }
    return text;
  }
  if (kind == "iteration") {
    std::string text = "iteration";
    if (r["rwr"].is_object()) text += ":rwr=" + r["rwr"]["verdict"].get<std::string>();
    if (r["ecc"].is_object()) text += ":ecc=" + r["ecc"]["verdict"].get<std::string>();
    return text;
  }
  if (kind == "health") {
    // health<iteration>, the fitting /maxtl of the preflight, the TapeAlert
    // flags (+ when new) and the pages left out after a failure.
    if (!r["counters"].is_object()) return "";
    std::string text = "health" + std::to_string(r["iteration"].get<unsigned>());
    if (r.contains("preflight") && r["preflight"]["largest_fitting_transfer"].is_number()) {
      char fits[24];
      std::snprintf(fits, sizeof fits, ":fits=0x%X", r["preflight"]["largest_fitting_transfer"].get<unsigned>());
      text += fits;
    }
    for (const json& flag : r["tapealert"]) {
      text += ":" + std::to_string(flag["flag"].get<unsigned>()) + (flag["new"].get<bool>() ? "+" : "");
    }
    for (const json& page : r["failed_pages"]) text += ":failed=" + std::to_string(page.get<unsigned>());
    return text;
  }
  if (kind == "result") {
    if (!r["bytes_written"].is_number() || !r["end_time"].is_string()) return "";
    std::string text = "result:" + r["status"].get<std::string>() + ":" +
                       std::to_string(r["exit_code"].get<int>());
    for (size_t i = 0; i < r["reasons"].size(); ++i) {
      text += (i == 0 ? ":" : ";") + r["reasons"][i].get<std::string>();
    }
    return text;
  }
  if (kind == "library") {
    // library:<slots>/<drives>:drive=<element>:<cartridges chosen>
    const json& elements = r["elements"];
    if (!r["changer"]["vendor"].is_string() || !elements["slots"].is_number()) return "";
    return "library:" + std::to_string(elements["slots"].get<unsigned>()) + "/" +
           std::to_string(elements["drives"].get<unsigned>()) + ":drive=" +
           (r["drive"].is_object() ? std::to_string(r["drive"]["element"].get<unsigned>()) : "-") + ":" +
           (r["cartridges_chosen"].is_number() ? std::to_string(r["cartridges_chosen"].get<unsigned>()) : "-");
  }
  if (kind == "cartridge") {
    // cartridge:<barcode>@<slot>:<result>[:<reason>][:ta=<flag>,...]
    if (!r["bytes_verified"].is_number() || !r["element"].is_number()) return "";
    std::string text = "cartridge:" + r["barcode"].get<std::string>() + "@" + std::to_string(r["slot"].get<unsigned>()) +
                       ":" + r["result"].get<std::string>();
    if (r["reason"].is_string()) text += ":" + r["reason"].get<std::string>();
    if (r["tapealert_raised"].is_array() && !r["tapealert_raised"].empty()) {
      text += ":ta=";
      for (const json& flag : r["tapealert_raised"]) text += std::to_string(flag.get<unsigned>()) + ",";
      text.pop_back();
    }
    return text;
  }
  return "";
}

}  // namespace

std::string summarize_results_file(const std::string& text) {
  if (text.empty() || text.back() != '\n') return "PROBLEM: the last line is cut";
  std::istringstream in(text);
  std::string line;
  std::string summary;
  for (int number = 1; std::getline(in, line); ++number) {
    const json record = json::parse(line, nullptr, false);
    std::string part = record.is_object() ? summarize_record(record) : "";
    if (part.empty()) return "PROBLEM: line " + std::to_string(number) + ": " + line;
    // A record of a library sweep's cartridge test carries its barcode.
    if (record.contains("cartridge")) part = record["cartridge"].get<std::string>() + "/" + part;
    summary += (summary.empty() ? "" : " ") + part;
  }
  return summary;
}
