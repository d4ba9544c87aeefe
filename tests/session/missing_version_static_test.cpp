// An open whose new token has no version text. No gateway can bring that about: the call that fetches the text is wrapped
// at link time, and loses it.
#include <gtest/gtest.h>

#include <cstdlib>

#include "gateway_process.h"
#include "hanging_gateways.h"
#include "stapi_krv_statcomms.h"
#include "trace_capture.h"

using namespace krvtest;

extern "C" {
int __real_statProtocolVer(Internal_GatewayToken_t* gwTokPtr, ReasonCodes* reasons);
int __wrap_statProtocolVer(Internal_GatewayToken_t* gwTokPtr, ReasonCodes* reasons);

int __wrap_statProtocolVer(Internal_GatewayToken_t* gwTokPtr, ReasonCodes* reasons)
{
    const int rc = __real_statProtocolVer(gwTokPtr, reasons);
    std::free(gwTokPtr->protocolVersion);
    gwTokPtr->protocolVersion = nullptr;
    return rc;
}
}

TEST(MissingVersion, IsHandedOutAsNullByAnOpenThatSucceeds)
{
    GatewayProcess gateway;
    for (int level : {1, 0}) {
        TraceFile trace(level);
        Connection connection;
        EXPECT_EQ(KRVSTAT_OK, connection.open(gateway.port()));
        EXPECT_EQ(nullptr, connection.version);
        ASSERT_EQ(firstOnTheList(), connection.token);
        EXPECT_EQ(level == 0 ? std::vector<std::string>()
                             : std::vector<std::string>{"1142 *EXC* API.openRemoteGatewayConnection(gwTokPtr=0x"
                                   + pointerText(connection.token) + ") New gateway token has NULL protocolVersion pointer"},
            brief(trace.lines()));
        EXPECT_EQ(KRVSTAT_OK, connection.query()) << "the connection is good";
        EXPECT_EQ(KRVSTAT_OK, connection.close());
    }
    EXPECT_EQ(0, gateway.stop());
}
