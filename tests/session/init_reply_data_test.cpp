// A gateway that answers the init call of an exchange as if it were another call, with data: nobody asked for them, and
// they are given back, whatever comes of the exchange.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "krvstats.h"
#include "scripted_peer.h"
#include "stapi_krv_requests.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_statcomms.h"
#include "stapi_krv_types.h"
#include "watched_allocator.h"

using namespace krvtest;

namespace {

const Bytes unasked = text("data that nobody asked for");

Script behindTheInitCall(const Script& rest)
{
    return Script{expectMessage(), sendWhole(adminCallReply(5, unasked)), expectMessage()} + rest;
}

struct Outcome {
    int rc;
    int requests; // of memory
    int blocksLeft;
};

template <typename Call> Outcome play(const Script& rest, Call call)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(behindTheInitCall(rest));
    Outcome outcome;
    {
        AllocationWatch watch(1, 1000000);
        ReasonCodes reasons = {};
        outcome.rc = call(peer.clientSocket(), &reasons);
        outcome.requests = watch.requests();
        outcome.blocksLeft = watch.blocksLeft();
    }
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());
    return outcome;
}

int queryStats(int socketDesc, ReasonCodes* reasons)
{
    static char block[INITIAL_RESULT_SET_SIZE + RESULT_SET_ROOM];
    char action[] = "GET_STATS";
    char ids[] = "a";
    char* buffer = block;
    int bufferLen = INITIAL_RESULT_SET_SIZE;
    return statCommsString(socketDesc, action, ids, &buffer, &bufferLen, reasons);
}

int readVersion(int socketDesc, ReasonCodes* reasons)
{
    char version[64] = "";
    Internal_GatewayToken_t token = {};
    token.socketDescriptor = socketDesc;
    token.protocolVersion = version;
    const int rc = statProtocolVer(&token, reasons);
    if (rc == 0) {
        EXPECT_STREQ("1_0", version);
    }
    return rc;
}

} // namespace

TEST(DataOfAnInitReply, AreGivenBackWhenTheCallSucceeds)
{
    const Outcome query = play({sendWhole(adminCallReply(5, statsData("a", 0, {{"a", "1"}})))}, queryStats);
    EXPECT_EQ(0, query.rc);
    EXPECT_LT(0, query.requests);
    EXPECT_EQ(0, query.blocksLeft);
    const Outcome version = play({sendWhole(adminCallReply(1, attributeData("1_0")))}, readVersion);
    EXPECT_EQ(0, version.rc);
    EXPECT_LT(0, version.requests);
    EXPECT_EQ(0, version.blocksLeft);
}

TEST(DataOfAnInitReply, AreGivenBackOnceWhenTheCallFails)
{
    for (auto call : {queryStats, readVersion}) {
        const Outcome outcome = play({closeLink()}, call);
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, outcome.rc);
        EXPECT_LT(0, outcome.requests);
        EXPECT_EQ(0, outcome.blocksLeft);
    }
}
