#include "run/run_files.h"

#include <string>
#include <vector>

#include "console/log_output.h"
#include "drive_status/dsc_config.h"
#include "os/os.h"
#include "run/options.h"
#include "settings/settings.h"
#include "vtape/virtual_drive.h"

namespace {

struct RunFile {
  const char* what;  // for the error line
  std::string name;
  bool written;
};

// Every file the run writes, then every file it reads, in the order the
// error line names them.
std::vector<RunFile> run_files() {
  const TestSettings& s = test_settings;
  std::vector<RunFile> files;
  files.push_back({"output file", s.output_file_name, true});
  if (s.cdb_list_enabled != 0) files.push_back({"CDB list file", s.cdb_list_file_name, true});
  if (s.results_file_enabled != 0) files.push_back({"results file", s.results_file_name, true});
  if (s.chart_enabled != 0) files.push_back({"chart file", s.chart_file_name, true});
  const std::string backing = s.virtual_drive_enabled != 0 ? vtape_backing_file() : "";
  if (!backing.empty()) {
    files.push_back({"virtual tape backing file", backing, true});
    files.push_back({"virtual tape backing file's new copy", backing + ".new", true});
  }
  for (const std::string& name : config_files_read()) files.push_back({"configuration file", name, false});
  if (s.drive_status_enabled != 0) files.push_back({"drive status configuration file", kDscFileName, false});
  if (s.data_pattern_type == 2) files.push_back({"pattern file", s.pattern_file_name, false});
  if (s.virtual_drive_enabled != 0 && s.virtual_drive_file_name[0] != '\0') {
    files.push_back({"virtual tape description", s.virtual_drive_file_name, false});
  }
  return files;
}

}  // namespace

int check_run_files() {
  const std::vector<RunFile> files = run_files();
  for (size_t i = 0; i < files.size(); ++i) {
    for (size_t j = i + 1; j < files.size(); ++j) {
      if (!files[i].written && !files[j].written) continue;  // reading a file twice is fine
      if (os_same_file(files[i].name.c_str(), files[j].name.c_str())) {
        error_printf("ERROR: the %s \"%s\" and the %s \"%s\" are one file\n", files[i].what, files[i].name.c_str(),
                     files[j].what, files[j].name.c_str());
        return -1;
      }
    }
  }
  return 0;
}
