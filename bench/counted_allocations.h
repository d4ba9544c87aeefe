// Counts what the program and its libraries ask of the allocator. Include it in exactly one source file of a program.
#pragma once

#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace krvbench {

struct CountedAllocations {
    static constexpr int most = 256;

    bool counts = false;
    int requests = 0; // those beyond `most` are counted and not shown
    int releases = 0;
    std::size_t sizes[most] = {};
};

inline constinit CountedAllocations countedAllocations;

inline void countRequest(std::size_t size)
{
    CountedAllocations& counted = countedAllocations;
    if (!counted.counts) return;
    if (counted.requests < CountedAllocations::most) counted.sizes[counted.requests] = size;
    ++counted.requests;
}

} // namespace krvbench

extern "C" {

void* malloc(std::size_t size) noexcept
{
    krvbench::countRequest(size);
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept
{
    krvbench::countRequest(count * size);
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) noexcept
{
    krvbench::countRequest(size);
    return __libc_realloc(block, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    krvbench::countRequest(size);
    return __libc_memalign(alignment, size);
}

void free(void* block) noexcept
{
    if (block && krvbench::countedAllocations.counts) ++krvbench::countedAllocations.releases;
    __libc_free(block);
}

} // extern "C"
