// An application that has closed its standard input: the next socket has the number 0, and is one like any other.
#include <gtest/gtest.h>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "gateway_process.h"
#include "krvstats.h"
#include "krvstats_ext.h"
#include "stapi_krv_types.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

char localHost[] = "127.0.0.1";

// Descriptor 0 is free as long as this lives, and what it was before afterwards.
class FreeZero {
public:
    FreeZero() : kept(fcntl(0, F_DUPFD_CLOEXEC, 3)) { close(0); }
    ~FreeZero()
    {
        close(0);
        if (kept < 0) return;
        dup2(kept, 0);
        close(kept);
    }
    FreeZero(const FreeZero&) = delete;
    FreeZero& operator=(const FreeZero&) = delete;

    bool isOpen() const { return fcntl(0, F_GETFD) != -1; }

private:
    int kept;
};

int openAsZero(const GatewayProcess& gateway, KRV_GatewayToken_t* token)
{
    char* version = nullptr;
    const int rc = openRemoteGatewayConnection(localHost, gateway.port(), token, &version);
    if (rc == 0) {
        EXPECT_EQ(0, (*token)->socketDescriptor);
    }
    return rc;
}

} // namespace

TEST(DescriptorZero, IsConnectedAskedAndClosedLikeAnyOther)
{
    GatewayProcess gateway;
    TraceFile trace(3);
    const FreeZero zero;
    KRV_GatewayToken_t token = nullptr;
    ASSERT_EQ(0, openAsZero(gateway, &token));
    KRV_ResultSetToken_t set = nullptr;
    EXPECT_EQ(0, getStats(token, &set));
    trace.forget();
    EXPECT_EQ(0, closeGatewayConnection(&token));
    EXPECT_FALSE(zero.isOpen());
    EXPECT_EQ(1u, linesNumbered(trace.lines(), 3009).size()) << "closeConnection was not called: " << trace.text();
    EXPECT_EQ(0, gateway.stop());
}

TEST(DescriptorZero, IsInterruptedLikeAnyOther)
{
    GatewayProcess gateway;
    const FreeZero zero;
    KRV_GatewayToken_t token = nullptr;
    ASSERT_EQ(0, openAsZero(gateway, &token));
    EXPECT_EQ(0, interruptGatewayConnection(token));
    KRV_ResultSetToken_t set = nullptr;
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, getStats(token, &set));
    EXPECT_FALSE(zero.isOpen());
}

TEST(DescriptorZero, IsClosedWhenTheOpenFails)
{
    GatewayProcess gateway({"bad-eyecatcher"});
    const FreeZero zero;
    KRV_GatewayToken_t token = nullptr;
    EXPECT_NE(0, openAsZero(gateway, &token));
    EXPECT_FALSE(zero.isOpen());
}
