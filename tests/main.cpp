// Runs the tests; each is started in a phone of its own.
#include <gtest/gtest.h>

// Allocations that fail must be handled, not end the process.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
