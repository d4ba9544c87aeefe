// Keeps forks out of AddressSanitizer's allocator while threads are in it. The child of a fork gets that allocator's locks
// as they are, and nobody there could free one that another thread held. Other allocators see to it themselves; for them
// there is nothing here.
#pragma once

#if defined(__SANITIZE_ADDRESS__)

#include <pthread.h>

#include "uninstrumented.h"

namespace krvtest {

inline constinit pthread_rwlock_t allocatorGate = PTHREAD_RWLOCK_INITIALIZER;

// The calling thread is in the allocator as long as it lives.
class InsideAllocator {
public:
    TESTS_UNINSTRUMENTED InsideAllocator() { pthread_rwlock_rdlock(&allocatorGate); }
    TESTS_UNINSTRUMENTED ~InsideAllocator() { pthread_rwlock_unlock(&allocatorGate); }
    InsideAllocator(const InsideAllocator&) = delete;
    InsideAllocator& operator=(const InsideAllocator&) = delete;
};

inline void closeAllocatorGate()
{
    pthread_rwlock_wrlock(&allocatorGate);
}

inline void openAllocatorGate()
{
    pthread_rwlock_unlock(&allocatorGate);
}

// A lock that another process closed cannot be opened.
inline void renewAllocatorGate()
{
    pthread_rwlock_init(&allocatorGate, nullptr);
}

inline const int gateIsWatched = pthread_atfork(closeAllocatorGate, openAllocatorGate, renewAllocatorGate);

} // namespace krvtest

#else

namespace krvtest {

class InsideAllocator {
public:
    InsideAllocator() {} // not trivial: it is never looked at
};

} // namespace krvtest

#endif
