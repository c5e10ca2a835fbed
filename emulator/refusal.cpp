// The line of a refusal, as a person sees it.
#include "emulator/refusal.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace phone {

void print_refusal(const char* line) {
    // Room for two paths and what is said about them; allocates nothing, since it also tells of a lack of
    // memory.
    char out[3 * PATH_MAX];
    const int length = snprintf(out, sizeof(out), "phone: %s\n", line);
    const size_t size = std::min(static_cast<size_t>(std::max(length, 1)), sizeof(out) - 1);
    // The line may hold a file's name or what another program said.
    std::replace_if(
        out, out + size, [](char byte) { return iscntrl(static_cast<unsigned char>(byte)) != 0; }, '?');
    out[size - 1] = '\n';
    dprintf(STDERR_FILENO, "%.*s", static_cast<int>(size), out);
}

}  // namespace phone
