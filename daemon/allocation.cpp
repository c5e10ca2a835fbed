// Allocation in the forms that the daemon uses: they fail with null. Those of the C++ library are made of the
// throwing ones, and would bring all that exceptions need into a program that has none.
#include <cstdlib>
#include <new>

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return malloc(size);
}

void* operator new[](size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return malloc(size);
}

void operator delete(void* block) noexcept {
    free(block);
}

void operator delete(void* block, size_t /*size*/) noexcept {
    free(block);
}

void operator delete[](void* block) noexcept {
    free(block);
}

void operator delete[](void* block, size_t /*size*/) noexcept {
    free(block);
}
