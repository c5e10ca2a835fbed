// Reports as a document for programs.
#pragma once

#include <vector>

#include <nlohmann/json.hpp>

#include "tools/report.h"

namespace tools {

// A report as an object. What is no UTF-8 in its texts is replaced when the object is written, and then its
// "content_is_exact" is false.
nlohmann::json json_of(const Report& report);

nlohmann::json json_of(const std::vector<Problem>& problems);
nlohmann::json json_of(const std::vector<Attachment>& attachments);

// A report as a line of its own, the same whatever other reports there are: without its number.
std::string line_of(const Report& report);

// The document as a text. It is ASCII: no character of a report reaches a terminal that would obey it.
std::string text_of(const nlohmann::json& document);

}  // namespace tools
