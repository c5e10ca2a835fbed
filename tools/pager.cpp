// The pager is a command of the shell, as PAGER is.
#include "tools/pager.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace tools {

Pager::Pager() {
    const char* const wanted = getenv("PAGER");
    std::string command = wanted == nullptr ? "" : wanted;
    if (command.empty()) {
        command = "if command -v less >/dev/null; then exec less -R; else exec cat; fi";
    }
    setenv("LESS", "FSXMK", 0);  // ends by itself when all fits on one screen; long lines are cut
    setenv("LESSCHARSET", "utf-8", 0);
    fflush(stdout);
    pipe_ = popen(command.c_str(), "we");
    if (pipe_ != nullptr) {
        signal(SIGINT, SIG_IGN);  // is for the pager, which the shell must not come back before
        dup2(fileno(pipe_), STDOUT_FILENO);
    }
}

Pager::~Pager() {
    if (pipe_ != nullptr) {
        close(STDOUT_FILENO);
        pclose(pipe_);
    }
}

}  // namespace tools
