// System calls of one thread that fail by a test's wish.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

// A system call, and the errors with which it can fail on a phone.
struct failing_call {
    long number;
    unsigned int flags;  // only a call with all of these in its third argument
    const char* name;
    std::vector<int> errors;
};

// Runs something on a thread of its own. Of that thread's calls that can fail, the one with the index
// `failing` fails with the error; no other does, and none of the processes that it starts. Returns these
// calls in their order; none where the kernel (before Linux 5.19) cannot do this.
std::vector<const failing_call*> run_with_failing_call(const std::function<void()>& run, size_t failing,
                                                       int error);
