// Waits on descriptors beyond an fd_set need memory for a set of their own. Without it they fail, and wait for nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "failing_calls.h"
#include "stapi_krv_gwycon.h"
#include "stapi_krv_socketcomms.h"

using namespace krvtest;

namespace {

constexpr int high = 1500;

// One end of a socket pair under a high number; the other end says nothing.
class HighSocket {
public:
    HighSocket()
    {
        getrlimit(RLIMIT_NOFILE, &limit);
        rlimit raised = limit;
        raised.rlim_cur = std::max<rlim_t>(limit.rlim_cur, high + 1);
        raised.rlim_max = std::max(raised.rlim_max, raised.rlim_cur);
        setrlimit(RLIMIT_NOFILE, &raised);
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        EXPECT_EQ(high, dup2(ends[0], high));
    }
    ~HighSocket()
    {
        close(high);
        close(ends[0]);
        close(ends[1]);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    HighSocket(const HighSocket&) = delete;
    HighSocket& operator=(const HighSocket&) = delete;

private:
    rlimit limit = {};
    int ends[2] = {-1, -1};
};

} // namespace

TEST(HighDescriptor, ConnectingWithoutMemoryForEitherSetFails)
{
    const HighSocket socket;
    for (int set : {0, 1}) {
        int descriptor = high;
        int error = 0;
        const Injected injected =
            withFailing(failingMalloc, ENOMEM, [&] { return waitForConnection(&descriptor, &error); }, set);
        EXPECT_EQ(1, injected.hits) << set;
        EXPECT_EQ(-100, injected.result) << set;
        EXPECT_EQ(ENOMEM, error) << set;
    }
}

TEST(HighDescriptor, AReplyWithoutMemoryForTheSetFails)
{
    const HighSocket socket;
    char* data = static_cast<char*>(std::calloc(1, 40));
    char name[] = "BASE";
    GatewayRequest header = {};
    ReasonCodes reasons = {};
    const Injected injected =
        withFailing(failingMalloc, ENOMEM, [&] { return flow(high, 40, &data, name, &header, &reasons); });
    EXPECT_EQ(1, injected.hits);
    EXPECT_EQ(-111, injected.result);
    EXPECT_EQ(0, reasons.socketErrno);
    std::free(data);
}
