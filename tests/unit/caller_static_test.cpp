// Who is calling, on systems that have and that lack what it takes to remember it: the calls that tell them apart are
// wrapped at link time. Every case needs a process of its own, which ctest gives it.
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "stapi_krv_caller.h"

namespace {

bool noPages = false;
bool adviceIsAlwaysTaken = false;
bool adviceIsNeverTaken = false;
bool thatAdviceIsTaken = false;
int pagesTaken = 0;
int pagesGivenBack = 0;
int asked = 0;

} // namespace

// With 64-bit file offsets on a 32-bit machine, the call has another name at link time.
#if defined(__USE_FILE_OFFSET64) && __SIZEOF_POINTER__ == 4
#define REAL_MMAP __real_mmap64
#define WRAP_MMAP __wrap_mmap64
#else
#define REAL_MMAP __real_mmap
#define WRAP_MMAP __wrap_mmap
#endif

extern "C" {
void* REAL_MMAP(void* at, size_t size, int protection, int flags, int file, off_t offset);
void* WRAP_MMAP(void* at, size_t size, int protection, int flags, int file, off_t offset);
int __real_munmap(void* at, size_t size);
int __wrap_munmap(void* at, size_t size);
int __real_madvise(void* at, size_t size, int advice);
int __wrap_madvise(void* at, size_t size, int advice);
pid_t __real_getpid();
pid_t __wrap_getpid();

void* WRAP_MMAP(void* at, size_t size, int protection, int flags, int file, off_t offset)
{
    if (noPages) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    pagesTaken++;
    return REAL_MMAP(at, size, protection, flags, file, offset);
}

int __wrap_munmap(void* at, size_t size)
{
    pagesGivenBack++;
    return __real_munmap(at, size);
}

int __wrap_madvise(void* at, size_t size, int advice)
{
    if (adviceIsAlwaysTaken || (thatAdviceIsTaken && advice == MADV_WIPEONFORK)) return 0;
    if (adviceIsNeverTaken || thatAdviceIsTaken) {
        errno = EINVAL;
        return -1;
    }
    return __real_madvise(at, size, advice);
}

pid_t __wrap_getpid()
{
    asked++;
    return __real_getpid();
}
}

namespace {

// Where nothing can be remembered, the system is asked each time.
void expectAskedEachTime()
{
    setUpCallerMemory();
    for (int time = 1; time <= 3; ++time) {
        EXPECT_EQ(__real_getpid(), currentProcess());
        EXPECT_EQ(time, asked);
        EXPECT_EQ(0, knownProcess());
    }
}

} // namespace

TEST(CallingProcess, IsAskedForBeforeThereIsAMemory)
{
    EXPECT_EQ(0, knownProcess());
    EXPECT_EQ(__real_getpid(), currentProcess());
    EXPECT_EQ(0, knownProcess());
}

TEST(CallingProcess, IsAskedForEachTimeWithoutAPage)
{
    noPages = true;
    expectAskedEachTime();
    EXPECT_EQ(0, pagesGivenBack);
}

TEST(CallingProcess, IsAskedForEachTimeWhereThePageWouldStayInAChild)
{
    adviceIsNeverTaken = true;
    expectAskedEachTime();
    EXPECT_EQ(1, pagesGivenBack);
}

TEST(CallingProcess, IsAskedForEachTimeWhereAnyAdviceIsTaken)
{
    adviceIsAlwaysTaken = true;
    expectAskedEachTime();
    EXPECT_EQ(1, pagesGivenBack);
}

TEST(CallingProcess, IsAskedForOnceWhereThePageIsEmptiedByAFork)
{
    thatAdviceIsTaken = true;
    setUpCallerMemory();
    for (int time = 1; time <= 3; ++time) {
        EXPECT_EQ(__real_getpid(), currentProcess());
        EXPECT_EQ(1, asked);
        EXPECT_EQ(__real_getpid(), knownProcess());
    }
    EXPECT_EQ(0, pagesGivenBack);
}

TEST(CallingProcess, CanBeGivenAMemoryLater)
{
    noPages = true;
    expectAskedEachTime();
    noPages = false;
    thatAdviceIsTaken = true;
    setUpCallerMemory();
    EXPECT_EQ(__real_getpid(), currentProcess());
    setUpCallerMemory();
    EXPECT_EQ(__real_getpid(), currentProcess());
    EXPECT_EQ(1, pagesTaken) << "once is enough";
}

TEST(CallingThread, IsAskedForOnceByEach)
{
    EXPECT_NE(0, pthread_equal(pthread_self(), currentThread()));
    EXPECT_NE(0, pthread_equal(pthread_self(), rememberedThread));
    std::thread([] {
        EXPECT_EQ(ThreadId{}, rememberedThread);
        EXPECT_NE(0, pthread_equal(pthread_self(), currentThread()));
        EXPECT_NE(0, pthread_equal(pthread_self(), rememberedThread));
    }).join();
}
