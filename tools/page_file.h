// Writing a page to its file.
#pragma once

#include <string>

namespace tools {

// Writes the page to the path: whole, or not at all. Replaces nothing but a page, so that "--html pulled/*"
// does not cost the first of the pulled files. Throws std::runtime_error, and then what was there still is.
void write_page(const std::string& path, const std::string& page);

}  // namespace tools
