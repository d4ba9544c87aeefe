// Watches the allocations of the calling thread that have a certain size: counts them, lets chosen ones fail, makes
// them larger than asked for, fills them with what nobody wrote, puts them in front of memory that cannot be read, and
// knows which blocks are still there, and whether somebody wrote behind them.
//
// A program that defines malloc is asked first, also by the shared library. Include this in exactly one source file of
// a program, and assert failed(): a failure that was never met proves nothing.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include "allocator_gate.h"
#include "uninstrumented.h"

// Where a sanitizer is at work, the allocator behind this one is its own.
extern "C" {
__attribute__((weak)) void* __interceptor_malloc(std::size_t);
__attribute__((weak)) void* __interceptor_calloc(std::size_t, std::size_t);
__attribute__((weak)) void* __interceptor_realloc(void*, std::size_t);
__attribute__((weak)) void __interceptor_free(void*);
}

namespace krvtest {

struct WatchedAllocations {
    static constexpr int most = 512;
    static constexpr unsigned char soil = 0xA5;

    std::size_t leastSize = 0; // 0: nothing is watched
    std::size_t mostSize = 0;
    int failFrom = -1; // number of the first request that fails, from 0
    int failFor = 0;   // how many fail from there
    std::size_t extra = 0;
    bool soils = false;
    bool fences = false;

    int requests = 0;
    int failures = 0;
    int damaged = 0; // freed blocks in which something was written behind what was asked for
    std::size_t sizes[most] = {}; // as they were asked for
    void* blocks[most] = {};      // those still there; nullptr where one was freed
};

inline constinit thread_local WatchedAllocations watchedAllocations;

TESTS_UNINSTRUMENTED inline bool watches(std::size_t size)
{
    const WatchedAllocations& watched = watchedAllocations;
    return watched.leastSize > 0 && size >= watched.leastSize && size <= watched.mostSize
        && watched.requests < WatchedAllocations::most;
}

// Counts a request; tells whether it is to fail.
TESTS_UNINSTRUMENTED inline bool countsAndFails(std::size_t size)
{
    WatchedAllocations& watched = watchedAllocations;
    watched.sizes[watched.requests] = size;
    int number = watched.requests++;
    bool fails = watched.failFrom >= 0 && number >= watched.failFrom && number < watched.failFrom + watched.failFor;
    if (fails) {
        watched.failures++;
        errno = ENOMEM;
    }
    return fails;
}

// Notes the block of the latest request, of which the first `kept` bytes hold something.
TESTS_UNINSTRUMENTED inline void* noteBlock(void* block, std::size_t kept = 0)
{
    WatchedAllocations& watched = watchedAllocations;
    if (!block) return block;
    const int number = watched.requests - 1;
    watched.blocks[number] = block;
    if (watched.soils) {
        volatile unsigned char* bytes = static_cast<unsigned char*>(block);
        for (std::size_t i = kept; i < watched.sizes[number] + watched.extra; i++) bytes[i] = WatchedAllocations::soil;
    }
    return block;
}

TESTS_UNINSTRUMENTED inline bool isDamaged(int number)
{
    const WatchedAllocations& watched = watchedAllocations;
    if (!watched.soils || !watched.blocks[number]) return false;
    const unsigned char* behind = static_cast<const unsigned char*>(watched.blocks[number]) + watched.sizes[number];
    for (std::size_t i = 0; i < watched.extra; i++)
        if (behind[i] != WatchedAllocations::soil) return true;
    return false;
}

// Returns the size that the block was asked for, 0 for one that is not watched.
TESTS_UNINSTRUMENTED inline std::size_t forgetBlock(const void* block)
{
    WatchedAllocations& watched = watchedAllocations;
    if (watched.leastSize == 0 || !block) return 0;
    for (int i = 0; i < watched.requests; i++) {
        if (watched.blocks[i] != block) continue;
        watched.damaged += isDamaged(i);
        watched.blocks[i] = nullptr;
        return watched.sizes[i];
    }
    return 0;
}

// A block whose last byte is the last of a page; behind it lies one that cannot be read. Whatever its alignment: for
// blocks of bytes alone.
TESTS_UNINSTRUMENTED inline void* fencedBlock(std::size_t size)
{
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t held = (size + page - 1) / page * page;
    void* pages = mmap(nullptr, held + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return nullptr;
    char* const fence = static_cast<char*>(pages) + held;
    mprotect(fence, page, PROT_NONE);
    return fence - size;
}

TESTS_UNINSTRUMENTED inline void freeFencedBlock(void* block, std::size_t size)
{
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t held = (size + page - 1) / page * page;
    munmap(static_cast<char*>(block) + size - held, held + page);
}

template <typename Function> TESTS_UNINSTRUMENTED Function realCall(Function sanitizers, const char* name)
{
    return sanitizers ? sanitizers : reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Watches requests of leastSize to mostSize bytes as long as it lives.
class AllocationWatch {
public:
    AllocationWatch(std::size_t leastSize, std::size_t mostSize)
    {
        watchedAllocations = WatchedAllocations{};
        watch(leastSize, mostSize);
    }
    ~AllocationWatch() { watchedAllocations = WatchedAllocations{}; }
    AllocationWatch(const AllocationWatch&) = delete;
    AllocationWatch& operator=(const AllocationWatch&) = delete;

    // From here on, blocks of other sizes. Fenced: a compiler knows that allocating does not look at a program's
    // variables, and would drop what is written for it alone.
    void watch(std::size_t leastSize, std::size_t mostSize)
    {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        watchedAllocations.mostSize = mostSize;
        watchedAllocations.leastSize = leastSize;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }

    // The given request and those behind it, `count` in all, fail.
    void fail(int from, int count)
    {
        watchedAllocations.failFrom = from;
        watchedAllocations.failFor = count;
    }
    void enlarge(std::size_t extra) { watchedAllocations.extra = extra; }

    // Blocks come full of something, as they may anywhere, with `guard` bytes behind them that nobody may write.
    void soil(std::size_t guard)
    {
        watchedAllocations.extra = guard;
        watchedAllocations.soils = true;
    }
    int damaged() const
    {
        int all = watchedAllocations.damaged;
        for (int i = 0; i < watchedAllocations.requests; i++) all += isDamaged(i);
        return all;
    }

    // What malloc hands out ends where memory that cannot be read begins. It has to be freed while this lives.
    void fence() { watchedAllocations.fences = true; }

    int requests() const { return watchedAllocations.requests; }
    int failures() const { return watchedAllocations.failures; }
    std::size_t size(int number) const { return watchedAllocations.sizes[number]; }
    int blocksLeft() const
    {
        int left = 0;
        for (const void* block : watchedAllocations.blocks) left += block != nullptr;
        return left;
    }
};

} // namespace krvtest

extern "C" {

TESTS_UNINSTRUMENTED void* malloc(std::size_t size) noexcept
{
    using Malloc = void* (*)(std::size_t);
    static Malloc real = nullptr;
    if (!real) real = krvtest::realCall<Malloc>(__interceptor_malloc, "malloc");
    const krvtest::InsideAllocator inside;
    if (!krvtest::watches(size)) return real(size);
    if (krvtest::countsAndFails(size)) return nullptr;
    if (krvtest::watchedAllocations.fences) return krvtest::noteBlock(krvtest::fencedBlock(size));
    return krvtest::noteBlock(real(size + krvtest::watchedAllocations.extra));
}

TESTS_UNINSTRUMENTED void* calloc(std::size_t count, std::size_t size) noexcept
{
    using Calloc = void* (*)(std::size_t, std::size_t);
    static Calloc real = nullptr;
    if (!real) real = krvtest::realCall<Calloc>(__interceptor_calloc, "calloc");
    const krvtest::InsideAllocator inside;
    if (!krvtest::watches(count * size)) return real(count, size);
    if (krvtest::countsAndFails(count * size)) return nullptr;
    return krvtest::noteBlock(real(1, count * size + krvtest::watchedAllocations.extra), count * size);
}

TESTS_UNINSTRUMENTED void* realloc(void* block, std::size_t size) noexcept
{
    using Realloc = void* (*)(void*, std::size_t);
    static Realloc real = nullptr;
    if (!real) real = krvtest::realCall<Realloc>(__interceptor_realloc, "realloc");
    const krvtest::InsideAllocator inside;
    if (!krvtest::watches(size)) return real(block, size);
    if (krvtest::countsAndFails(size)) return nullptr;
    const std::size_t before = krvtest::forgetBlock(block);
    const std::size_t kept = block && before == 0 ? size : before < size ? before : size; // all of one that was not watched
    return krvtest::noteBlock(real(block, size + krvtest::watchedAllocations.extra), kept);
}

TESTS_UNINSTRUMENTED void free(void* block) noexcept
{
    using Free = void (*)(void*);
    static Free real = nullptr;
    static bool looking = false;
    static void* postponed = nullptr;
    if (looking) { // dlsym gives back the text of an earlier error
        postponed = block;
        return;
    }
    if (!real) {
        looking = true;
        real = krvtest::realCall<Free>(__interceptor_free, "free");
        looking = false;
        real(postponed);
    }
    const krvtest::InsideAllocator inside;
    const std::size_t size = krvtest::forgetBlock(block);
    if (size > 0 && krvtest::watchedAllocations.fences) {
        krvtest::freeFencedBlock(block, size);
    } else {
        real(block);
    }
}

} // extern "C"
