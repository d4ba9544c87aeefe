// Conversations in memory that is full of something else when it is allocated, as memory may be anywhere: the answers are
// the same, and nothing is written behind a block.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "gateway_process.h"
#include "krvstats.h"
#include "scripted_peer.h"
#include "stapi_krv_requests.h"
#include "stapi_krv_socketcomms.h"
#include "trace_capture.h"
#include "watched_allocator.h"
#include "wire_bytes.h"

using namespace krvtest;

namespace {

constexpr std::size_t guard = 32;

char localHost[] = "127.0.0.1";
char groupIds[] = "alpha:beta:nosuch";
char statIds[] = "beta.one:alpha.long:nosuch";

// As smallScenario, with as many long values as make a connection's buffer grow twice.
std::string growingScenario()
{
    std::string scenario = smallScenario;
    scenario += "  - id: gamma\n    statistics:\n";
    for (int i = 0; i < 30; i++)
        scenario += "      - {id: gamma." + std::to_string(i) + ", text: {repeat: \"0123456789\", length: 3000}}\n";
    return scenario;
}

// Ids and values of a set, and refusals: "id=value;" or "element:rc;".
std::string textOf(KRV_ResultSetToken_t set, bool statistics)
{
    std::string text;
    KRV_IdData_t id = {};
    KRV_StatData_t stat = {};
    auto add = [&](const char* element, int elementLen, int rc, const char* name, int nameLen) {
        if (rc < 0) text.append(element, static_cast<std::size_t>(elementLen)).append(":" + std::to_string(rc) + ";");
        else text.append(name, static_cast<std::size_t>(nameLen));
        return rc >= 0;
    };
    if (!statistics) {
        for (int rc = getFirstId(set, &id); rc == 0; rc = getNextId(set, &id))
            if (add(id.queryElementPtr, id.queryElementLen, id.queryElementRC, id.idPtr, id.idLen)) text += ";";
        return text;
    }
    for (int rc = getFirstStat(set, &stat); rc == 0; rc = getNextStat(set, &stat)) {
        if (add(stat.queryElementPtr, stat.queryElementLen, stat.queryElementRC, stat.statIdPtr, stat.statIdLen))
            text.append("=").append(stat.statValuePtr, static_cast<std::size_t>(stat.statValueLen)).append(";");
    }
    return text;
}

int query(int number, KRV_GatewayToken_t token, KRV_ResultSetToken_t* set)
{
    switch (number) {
    case 0: return getResourceGroupIds(token, set);
    case 1: return getStatIds(token, set);
    case 2: return getStatIdsByStatGroupId(token, groupIds, set);
    case 3: return getStats(token, set);
    case 4: return getStatsByStatId(token, statIds, set);
    default: return getStatsByStatGroupId(token, groupIds, set);
    }
}

// Everything that an application gets to see of a conversation; codes too.
std::vector<std::string> conversation(int port, bool soiled)
{
    std::vector<std::string> seen;
    seen.reserve(64);
    int damaged = 0;
    auto watched = [&](auto call) {
        AllocationWatch watch(1, 10000000);
        if (soiled) watch.soil(guard);
        const int rc = call();
        damaged += watch.damaged();
        EXPECT_GT(static_cast<int>(WatchedAllocations::most), watch.requests()) << "not all blocks were watched";
        return rc;
    };
    auto note = [&](int rc, const std::string& text) { seen.push_back(std::to_string(rc) + " " + text); };

    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    const int opened = watched([&] { return openRemoteGatewayConnection(localHost, port, &token, &version); });
    note(opened, version ? version : "");
    for (int number = 0; number < 6; number++) {
        const bool statistics = number > 2;
        KRV_ResultSetToken_t set = nullptr;
        int rc = watched([&] { return query(number, token, &set); });
        if (!set) {
            note(rc, "no set");
            continue;
        }
        note(rc, textOf(set, statistics));
        char* text = nullptr;
        rc = watched([&] { return getIdQuery(set, &text); });
        note(rc, text ? text : "");
        KRV_ResultSetToken_t copy = nullptr;
        rc = watched([&] { return copyResultSet(set, &copy); });
        note(rc, textOf(copy, statistics));
        note(watched([&] { return freeResultSet(&copy); }), "");
    }
    note(watched([&] { return dumpState(); }), "");
    note(watched([&] { return closeGatewayConnection(&token); }), "");
    EXPECT_EQ(0, damaged) << "blocks were written behind their ends";
    return seen;
}

} // namespace

TEST(SoiledMemory, ChangesNoAnswer)
{
    GatewayProcess gateway({}, growingScenario());
    TraceFile trace(4);
    const std::vector<std::string> clean = conversation(gateway.port(), false);
    const std::vector<std::string> soiled = conversation(gateway.port(), true);
    EXPECT_EQ(clean, soiled);
    ASSERT_LT(1u, clean.size());
    EXPECT_EQ("0 1.1.0", clean[0]);
    EXPECT_EQ("0 alpha;beta;gamma;", clean[1]);
}

TEST(SoiledMemory, ShowsNothingOfItselfInTheDumpOfANewConnection)
{
    GatewayProcess gateway;
    TraceFile trace(0);
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    int rc = 0;
    {
        AllocationWatch watch(1, 10000000);
        watch.soil(guard);
        rc = openRemoteGatewayConnection(localHost, gateway.port(), &token, &version);
    }
    ASSERT_EQ(0, rc);
    trace.forget();
    dumpState();
    const std::string text = trace.text();
    const std::string terminator = std::endian::native == std::endian::little ? "0F0E0F0E" : "0E0F0E0F";
    EXPECT_NE(std::string::npos, text.find(": " + terminator + " 00000000 00000000 00000000 : ")) << text;
    EXPECT_EQ(std::string::npos, text.find("A5A5")) << text;
    EXPECT_EQ(0, closeGatewayConnection(&token));
}

// A body may be longer than what stands in it.
TEST(SoiledMemory, IsNotSent)
{
    constexpr std::int32_t more = 9;
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectMessage()});
    AuthRequest request = {};
    request.header.eyecatcher = 0x47617465;
    request.header.requestType = "Auth";
    request.header.requestTypeLength = 4;
    request.header.datalength = 4 + more;
    request.callType = 0x01020304;
    ReasonCodes reasons = {};
    {
        AllocationWatch watch(1, 10000000);
        watch.soil(guard);
        flowAuthRequest(peer.clientSocket(), &request, &reasons);
        EXPECT_EQ(0, watch.damaged());
    }
    peer.finish();
    const Bytes sent = peer.received();
    ASSERT_EQ(33u + 4 + more, sent.size());
    EXPECT_TRUE(sameBytes(hex("01 02 03 04 00 00 00 00 00 00 00 00 00"), Bytes(sent.begin() + 33, sent.end())));
}
