// What the library asks of the system once, when it is set up, and can do without: memory that a fork empties, and to be
// told of a fork. Each of these calls fails with each error, in a process that has not used the library before.
#include "forked_child.h"

#include <dlfcn.h>
#include <sys/mman.h>

#include <vector>

#include "gateway_process.h"
#include "stapi_krv_impl.h"
#include "uninstrumented.h"

using namespace krvtest;

namespace {

enum class SetUpCall { None, Sysconf, Mmap, Madvise, RegisterAtfork };

struct SetUpFault {
    SetUpCall call = SetUpCall::None;
    int number = 0; // of the call that fails, from 0
    int error = 0;
    int made = 0;
    int hits = 0;
};

thread_local SetUpFault* setUpFault = nullptr;

TESTS_UNINSTRUMENTED bool failsNow(SetUpCall call)
{
    SetUpFault* fault = setUpFault;
    if (!fault || fault->call != call || fault->made++ != fault->number) return false;
    fault->hits++;
    errno = fault->error;
    return true;
}

template <typename Function>
TESTS_UNINSTRUMENTED Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// A first call during which that fails, and a conversation behind it. In a forked child.
int failedClaim(int port, SetUpFault fault)
{
    if (stapiState != 0) return 1;
    setUpFault = &fault;
    char* version = nullptr;
    const int rc = getStatsAPIVersion(&version);
    setUpFault = nullptr;
    if (fault.hits != 1) return 2;
    if (rc != KRVSTAT_OK || std::string(version) != "1_1_0_1") return 3;

    Connection connection;
    KRV_ResultSetToken_t set = nullptr;
    KRV_StatData_t stat = {};
    if (connection.open(port) != KRVSTAT_OK) return 4;
    if (getStats(connection.token, &set) != KRVSTAT_OK) return 5;
    int statistics = 0;
    for (int each = getFirstStat(set, &stat); each == KRVSTAT_OK; each = getNextStat(set, &stat)) statistics++;
    if (statistics != 3) return 6;
    // Whoever is asked who it is, a child is told from its parent.
    const int failed = failedClaimOfAFork([&] {
        if (getFirstStat(set, &stat) != KRVSTAT_PID_MISMATCH) return 11;
        return connection.query() == KRVSTAT_PID_MISMATCH ? allHold : 12;
    });
    if (failed != allHold) return failed;
    return connection.close() == KRVSTAT_OK ? allHold : 7;
}

class FailingSetUp : public ::testing::Test {
protected:
    void failWith(SetUpCall call, int number, const std::vector<int>& errors)
    {
        for (int error : errors) {
            SetUpFault fault;
            fault.call = call;
            fault.number = number;
            fault.error = error;
            EXPECT_EQ(allHold, failedClaimOfAFork([&] { return failedClaim(gateway.port(), fault); })) << "error " << error;
        }
    }

    GatewayProcess gateway;
};

} // namespace

extern "C" {

long calledSysconf(int name) __asm__("sysconf");
int calledMadvise(void* start, std::size_t length, int advice) __asm__("madvise");
int calledRegisterAtfork(void (*prepare)(), void (*parent)(), void (*child)(), void* library) __asm__("__register_atfork");

TESTS_UNINSTRUMENTED long calledSysconf(int name)
{
    if (failsNow(SetUpCall::Sysconf)) return -1;
    return next<long(int)>("sysconf")(name);
}

// With 64-bit file offsets on a 32-bit machine, the header gives it another name at link time.
#if defined(__USE_FILE_OFFSET64) && !defined(__LP64__)
#define CALL_MMAP "mmap64"
#else
#define CALL_MMAP "mmap"
#endif

void* calledMmap(void* start, std::size_t length, int protection, int flags, int file, off_t offset) __asm__(CALL_MMAP);

TESTS_UNINSTRUMENTED void* calledMmap(void* start, std::size_t length, int protection, int flags, int file, off_t offset)
{
    if (failsNow(SetUpCall::Mmap)) return MAP_FAILED;
    return next<void*(void*, std::size_t, int, int, int, off_t)>(CALL_MMAP)(start, length, protection, flags, file, offset);
}

TESTS_UNINSTRUMENTED int calledMadvise(void* start, std::size_t length, int advice)
{
    if (failsNow(SetUpCall::Madvise)) return -1;
    // Nonsense is refused, which not every emulator does.
    if (setUpFault && setUpFault->call == SetUpCall::Madvise && advice != MADV_WIPEONFORK) {
        errno = EINVAL;
        return -1;
    }
    return next<int(void*, std::size_t, int)>("madvise")(start, length, advice);
}

TESTS_UNINSTRUMENTED int calledRegisterAtfork(void (*prepare)(), void (*parent)(), void (*child)(), void* library)
{
    if (failsNow(SetUpCall::RegisterAtfork)) return ENOMEM;
    return next<int(void (*)(), void (*)(), void (*)(), void*)>("__register_atfork")(prepare, parent, child, library);
}

} // extern "C"

TEST_F(FailingSetUp, GoesOnWithoutMemoryOfItsOwn)
{
    failWith(SetUpCall::Sysconf, 0, {EINVAL});
    failWith(SetUpCall::Mmap, 0, {EACCES, EAGAIN, EBADF, EEXIST, EINVAL, ENFILE, ENODEV, ENOMEM, EOVERFLOW, EPERM, ETXTBSY});
}

TEST_F(FailingSetUp, GoesOnWhereAForkWouldNotEmptyThatMemory)
{
    // The first is asked for nonsense, to see whether it is refused.
    failWith(SetUpCall::Madvise, 1, {EACCES, EAGAIN, EBADF, EBUSY, EFAULT, EINVAL, EIO, ENOMEM, EPERM});
}

TEST_F(FailingSetUp, GoesOnWithoutBeingToldOfForks)
{
    failWith(SetUpCall::RegisterAtfork, 0, {ENOMEM});
}
