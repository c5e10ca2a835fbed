// Runs the tests; each is started in a phone of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CHECKS_LEAKS
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define CHECKS_LEAKS
#endif
#ifdef CHECKS_LEAKS
#include <sanitizer/lsan_interface.h>
#endif

// Allocations that fail must be handled, not end the process.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

// A thread of the daemon that ends has nobody who joins it.
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1:detect_deadlocks=1:second_deadlock_stack=1:halt_on_error=1:"
           "report_thread_leaks=0";
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    fflush(nullptr);
#ifdef CHECKS_LEAKS
    if (__lsan_do_recoverable_leak_check() != 0) {
        result = 1;
    }
#endif
    // Not by a return: the daemon's threads never stop, and nothing may be destroyed under them.
    _exit(result);
}
