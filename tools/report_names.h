// What a team calls its error numbers and devices.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/report.h"

namespace tools {

// Read from a file with a line for each:
//   20002 no answer from the panel     an error number and its name
//   touch_panel = tp, ts_dev           a device and other names of it
//   # ...                              a remark, as are empty lines
class ReportNames {
  public:
    ReportNames() = default;
    // A line that is none of these becomes a problem. Throws std::runtime_error when the file cannot be read.
    ReportNames(const std::string& path, std::vector<Problem>* problems);

    // Gives the reports their error names, and one name to each device.
    void apply(std::vector<Report>* reports) const;

  private:
    bool take_line(const std::string& line);

    std::map<int32_t, std::string> errors_;
    std::map<std::string, std::string> devices_;  // other name to name
};

}  // namespace tools
