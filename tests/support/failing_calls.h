// Lets a chosen call of the C library fail, once, in the calling thread.
//
// A program that defines malloc or pthread_mutex_lock is asked first, also by the shared library: so this header
// defines them, passes calls on, and fails the one that a test armed. Include it in exactly one source file of a
// program. Assert the hits: an injection that was never met proves nothing.
#ifndef TESTS_SUPPORT_FAILING_CALLS_H
#define TESTS_SUPPORT_FAILING_CALLS_H

#include <cerrno>
#include <cstddef>
#include <ctime>

#include <dlfcn.h>
#include <pthread.h>

#include "uninstrumented.h"

namespace krvtest {

struct FailingCall {
    int passBefore;   // matching calls let through before the one that fails; -1: none fails
    int error;        // what errno becomes
    std::size_t size; // malloc and realloc: 0 matches every request, else only requests of this many bytes and a little room
    int met;          // calls that failed
    int seen;         // matching calls while armed
    int result = EDEADLK;  // what a failed mutex call returns; by default not the errno, so that the two can be told apart
    bool isMade = false;   // a failed mutex call does what it should all the same
};

constinit thread_local FailingCall failingMalloc{-1, 0, 0, 0, 0};
constinit thread_local FailingCall failingMutexInit{-1, 0, 0, 0, 0};
constinit thread_local FailingCall failingMutexLock{-1, 0, 0, 0, 0};
constinit thread_local FailingCall failingMutexWait{-1, 0, 0, 0, 0}; // with a limit
constinit thread_local FailingCall failingMutexUnlock{-1, 0, 0, 0, 0};
constinit thread_local FailingCall failingMutexDestroy{-1, 0, 0, 0, 0};

// What came of a piece of work during which a call was armed. The work asserts nothing itself: GoogleTest locks too.
struct Injected {
    int result; // of the work
    int hits;   // calls that failed: 0 means that the injection was never met
    int seen;   // calls that could have
};

template <typename Work>
Injected withFailing(FailingCall& call, int error, Work work, int passBefore = 0, std::size_t size = 0)
{
    call = FailingCall{passBefore, error, size, 0, 0};
    int result = work();
    Injected injected{result, call.met, call.seen};
    call = FailingCall{-1, 0, 0, 0, 0};
    return injected;
}

constexpr std::size_t mostRoom = 64; // what the library may ask for beyond a stated length

TESTS_UNINSTRUMENTED inline bool failsNow(FailingCall& call, std::size_t size)
{
    if (call.passBefore < 0 || call.met > 0) return false;
    if (call.size != 0 && (size < call.size || size > call.size + mostRoom)) return false;
    call.seen++;
    if (call.seen <= call.passBefore) return false;
    call.met++;
    return true;
}

// The definition behind this program's own.
template <typename Function> TESTS_UNINSTRUMENTED Function next(Function* known, const char* name)
{
    Function function = __atomic_load_n(known, __ATOMIC_RELAXED);
    if (!function) {
        function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
        __atomic_store_n(known, function, __ATOMIC_RELAXED);
    }
    return function;
}

TESTS_UNINSTRUMENTED inline int mutexCall(FailingCall& call, int (*real)(pthread_mutex_t*), pthread_mutex_t* mutex)
{
    if (failsNow(call, 0)) {
        if (call.isMade) real(mutex);
        errno = call.error;
        return call.result;
    }
    return real(mutex);
}

// For the calls that wait with a limit, which differ in their arguments.
template <typename Wait>
TESTS_UNINSTRUMENTED int mutexWait(Wait wait)
{
    FailingCall& call = failingMutexWait;
    if (failsNow(call, 0)) {
        if (call.isMade) wait();
        errno = call.error;
        return call.result;
    }
    return wait();
}

} // namespace krvtest

extern "C" {

TESTS_UNINSTRUMENTED void* malloc(std::size_t size) noexcept
{
    using Malloc = void* (*)(std::size_t);
    static Malloc real = nullptr;
    if (krvtest::failsNow(krvtest::failingMalloc, size)) {
        errno = krvtest::failingMalloc.error;
        return nullptr;
    }
    return krvtest::next(&real, "malloc")(size);
}

TESTS_UNINSTRUMENTED void* calloc(std::size_t count, std::size_t size) noexcept
{
    using Calloc = void* (*)(std::size_t, std::size_t);
    static Calloc real = nullptr;
    if (krvtest::failsNow(krvtest::failingMalloc, count * size)) {
        errno = krvtest::failingMalloc.error;
        return nullptr;
    }
    return krvtest::next(&real, "calloc")(count, size);
}

TESTS_UNINSTRUMENTED void* realloc(void* block, std::size_t size) noexcept
{
    using Realloc = void* (*)(void*, std::size_t);
    static Realloc real = nullptr;
    if (krvtest::failsNow(krvtest::failingMalloc, size)) {
        errno = krvtest::failingMalloc.error;
        return nullptr;
    }
    return krvtest::next(&real, "realloc")(block, size);
}

TESTS_UNINSTRUMENTED int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) noexcept
{
    using Init = int (*)(pthread_mutex_t*, const pthread_mutexattr_t*);
    static Init real = nullptr;
    if (krvtest::failsNow(krvtest::failingMutexInit, 0)) {
        errno = krvtest::failingMutexInit.error;
        return krvtest::failingMutexInit.result;
    }
    return krvtest::next(&real, "pthread_mutex_init")(mutex, attributes);
}

TESTS_UNINSTRUMENTED int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    using Lock = int (*)(pthread_mutex_t*);
    static Lock real = nullptr;
    return krvtest::mutexCall(krvtest::failingMutexLock, krvtest::next(&real, "pthread_mutex_lock"), mutex);
}

// With 64-bit time on a 32-bit machine, the header gives these two another name at link time.
#ifdef __USE_TIME_BITS64
#define CALL_CLOCKLOCK "__pthread_mutex_clocklock64"
#define CALL_TIMEDLOCK "__pthread_mutex_timedlock64"
#else
#define CALL_CLOCKLOCK "pthread_mutex_clocklock"
#define CALL_TIMEDLOCK "pthread_mutex_timedlock"
#endif

TESTS_UNINSTRUMENTED int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock, const timespec* until) noexcept
{
    using Clocklock = int (*)(pthread_mutex_t*, clockid_t, const timespec*);
    static Clocklock real = nullptr;
    const Clocklock next = krvtest::next(&real, CALL_CLOCKLOCK);
    return krvtest::mutexWait([&] { return next(mutex, clock, until); });
}

TESTS_UNINSTRUMENTED int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* until) noexcept
{
    using Timedlock = int (*)(pthread_mutex_t*, const timespec*);
    static Timedlock real = nullptr;
    const Timedlock next = krvtest::next(&real, CALL_TIMEDLOCK);
    return krvtest::mutexWait([&] { return next(mutex, until); });
}

TESTS_UNINSTRUMENTED int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept
{
    using Unlock = int (*)(pthread_mutex_t*);
    static Unlock real = nullptr;
    return krvtest::mutexCall(krvtest::failingMutexUnlock, krvtest::next(&real, "pthread_mutex_unlock"), mutex);
}

TESTS_UNINSTRUMENTED int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept
{
    using Destroy = int (*)(pthread_mutex_t*);
    static Destroy real = nullptr;
    return krvtest::mutexCall(krvtest::failingMutexDestroy, krvtest::next(&real, "pthread_mutex_destroy"), mutex);
}

} // extern "C"

#endif
