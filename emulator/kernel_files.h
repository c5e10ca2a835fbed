// /proc and /sys of a phone.
#pragma once

#include <string>

namespace phone {

// Makes `folder` hold a link to each entry of `real`, so that a test can add entries or replace links.
// Numbers are left out: the processes of a phone are those that it shows itself. Throws Refusal.
void link_entries(const std::string& real, const std::string& folder);

// Adds what a phone's drivers have in /proc and /sys, which are folders of links already. Throws Refusal.
void make_kernel_files();

}  // namespace phone
