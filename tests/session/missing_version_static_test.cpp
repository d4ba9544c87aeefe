// An open whose new token has no version text. No gateway can bring that about: the calls that make and free memory are
// wrapped at link time, and when the answer with the text is freed, the token loses what was stored of it.
#include <gtest/gtest.h>

#include <cstdlib>

#include "gateway_process.h"
#include "hanging_gateways.h"
#include "stapi_krv_statcomms.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

char* versionText = nullptr; // where the newest token keeps it; empty until it is stored

} // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void __real_free(void* block);
void __wrap_free(void* block);

void* __wrap_malloc(std::size_t size)
{
    void* block = __real_malloc(size);
    if (block != nullptr && size == PROTOCOL_VERSION_SIZE) {
        versionText = static_cast<char*>(block);
        *versionText = '\0';
    }
    return block;
}

void __wrap_free(void* block)
{
    __real_free(block);
    Internal_GatewayToken_t* token = gtListHeadPtr;
    const bool isItsText = token != nullptr && versionText != nullptr && token->protocolVersion == versionText;
    if (!isItsText || *versionText == '\0') return;
    token->protocolVersion = nullptr;
    __real_free(versionText);
    versionText = nullptr;
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
