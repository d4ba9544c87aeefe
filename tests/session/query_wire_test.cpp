// The API over the wire: what opening, querying and closing send, and which code each misfortune becomes.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "krvstats.h"
#include "scripted_peer.h"
#include "socket_calls.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_types.h"
#include "trace_capture.h"
#include "wire_bytes.h"

using namespace krvtest;

namespace {

char loopback[] = "127.0.0.1";

KRV_GatewayToken_t const unsetToken = reinterpret_cast<KRV_GatewayToken_t>(0x10);
char* const unsetText = reinterpret_cast<char*>(0x20);

struct Opened {
    int rc = 1;
    KRV_GatewayToken_t token = unsetToken;
    char* version = unsetText;
};

Opened openAt(int port, const char* host = loopback)
{
    Opened opened;
    opened.rc = openRemoteGatewayConnection(const_cast<char*>(host), port, &opened.token, &opened.version);
    return opened;
}

void expectUnopened(const Opened& opened, int rc)
{
    EXPECT_EQ(rc, opened.rc);
    EXPECT_EQ(unsetToken, opened.token);
    EXPECT_EQ(unsetText, opened.version);
    EXPECT_EQ(nullptr, gtListHeadPtr);  // nothing stays on the list
}

// A failed opening says goodbye too; nobody has to answer.
Script goodbyeUnanswered()
{
    return {expectMessage(), closeLink()};
}

const GatewayAnswers answers;

Bytes openingRequests()
{
    return handshakeRequest() + authInitRequest() +
           authConfirmRequest(answers.protocolMap, answers.authServerVersion) + adminInitRequest() +
           getProtocolRequest(answers.adminServerVersion);
}

char someIds[] = "one:two";

struct Query {
    const char* name;
    int (*call)(KRV_GatewayToken_t token, KRV_ResultSetToken_t* set);
    const char* operation;
    const char* ids;
    bool statistics;
};

const Query queries[] = {
    {"getResourceGroupIds", getResourceGroupIds, "RESOURCE_GROUPS", "", false},
    {"getStatIds", getStatIds, "STAT_IDS", "", false},
    {"getStatIdsByStatGroupId",
     [](KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatIdsByStatGroupId(token, someIds, set); },
     "STAT_IDS", "one:two", false},
    {"getStats", getStats, "GET_STATS", "", true},
    {"getStatsByStatId",
     [](KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatsByStatId(token, someIds, set); },
     "GET_STATS", "one:two", true},
    {"getStatsByStatGroupId",
     [](KRV_GatewayToken_t token, KRV_ResultSetToken_t* set) { return getStatsByStatGroupId(token, someIds, set); },
     "GET_STATS", "one:two", true},
};

Bytes dataFor(const Query& query)
{
    if (query.statistics) return statsData(query.ids, 0, {{"CPU.load", "0.5"}, {"MEM.free", "123"}});
    return idsData(query.ids, 0, {"CPU", "MEM"});
}

}  // namespace

// ---- Opening ------------------------------------------------------------------------------------------------------

TEST(OpenOnTheWire, SendsFiveRequests)
{
    ScriptedPeer peer({wholeConversation({})});
    Opened opened = openAt(peer.port());
    ASSERT_EQ(0, opened.rc);
    EXPECT_STREQ("1_0", opened.version);
    EXPECT_EQ(0, closeGatewayConnection(&opened.token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(openingRequests() + closeRequest(), peer.received()));
    ASSERT_EQ(6u, peer.messages().size());
    const std::size_t sizes[] = {51, 37, 53, 38, 128, 33};
    for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(sizes[i], peer.messages()[i].size()) << i;
}

TEST(OpenOnTheWire, LocalConnectionGoesToTheLoopbackAddress)
{
    ScriptedPeer peer({wholeConversation({})});
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    ASSERT_EQ(0, openGatewayConnection(peer.port(), &token, &version));
    EXPECT_STREQ("1_0", version);
    EXPECT_EQ(0, closeGatewayConnection(&token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(openingRequests() + closeRequest(), peer.received()));
}

TEST(OpenOnTheWire, HandsOutAnyVersionThatFits)
{
    for (std::size_t length : {0u, 1u, 63u}) {
        GatewayAnswers odd;
        odd.version = std::string(length, 'v');
        ScriptedPeer peer({wholeConversation({}, odd)});
        Opened opened = openAt(peer.port());
        ASSERT_EQ(0, opened.rc);
        EXPECT_EQ(odd.version, opened.version);
        EXPECT_EQ(0, closeGatewayConnection(&opened.token));
        peer.finish();
        EXPECT_EQ("", peer.problem());
    }
}

TEST(OpenOnTheWire, RepliesOneByteAtATimeAreAsGood)
{
    const GatewayAnswers odd;
    ScriptedPeer peer({{expectMessage(), sendByteByByte(handshakeReply()),
                        expectMessage(), sendByteByByte(authInitReply(odd.protocolMap, odd.authServerVersion)),
                        expectMessage(), sendByteByByte(authConfirmReply(odd.returnMap)),
                        expectMessage(), sendByteByByte(adminInitReply(odd.adminServerVersion)),
                        expectMessage(), sendByteByByte(adminCallReply(1, attributeData(odd.version)))}});
    Opened opened = openAt(peer.port());
    ASSERT_EQ(0, opened.rc);
    EXPECT_STREQ("1_0", opened.version);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_EQ(0, closeGatewayConnection(&opened.token));
    EXPECT_TRUE(sameBytes(openingRequests(), peer.received()));
}

TEST(OpenOnTheWire, FailuresToConnectHaveCodesOfTheirOwn)
{
    expectUnopened(openAt(7845, "999.1.1.1.invalid"), -132);
    expectUnopened(openAt(unusedPort()), -135);

    const struct {
        int connectError;
        int rc;
    } rows[] = {{ENETUNREACH, -136}, {EHOSTUNREACH, -118}, {EACCES, -118}, {ECONNREFUSED, -135}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.connectError);
        SocketCalls calls;
        int connects = 0;
        calls.connect = [&](int, const sockaddr*, socklen_t) {
            ++connects;
            errno = row.connectError;
            return -1;
        };
        Hooked hooked(calls);
        expectUnopened(openAt(9), row.rc);
        EXPECT_EQ(1, connects);
    }
}

TEST(OpenOnTheWire, TimeOutIsMinus134)
{
    ScriptedPeer peer({{expectClose()}});
    SocketCalls calls;
    int waits = 0;
    calls.select = [&waits](int count, fd_set* reading, fd_set* writing, fd_set* exceptional, timeval* timeout) {
        if (++waits == 1) return 0;
        return ::select(count, reading, writing, exceptional, timeout);  // for the reply to the goodbye
    };
    // The goodbye of the failed token is answered by nobody: end its wait by ending the connection.
    calls.send = [](int socket, const void* bytes, size_t count, int flags) {
        ssize_t sent = ::send(socket, bytes, count, flags);
        ::shutdown(socket, SHUT_RD);
        return sent;
    };
    {
        Hooked hooked(calls);
        expectUnopened(openAt(peer.port()), -134);
    }
    EXPECT_GE(waits, 1);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(closeRequest(), peer.received()));
}

TEST(OpenOnTheWire, FailedGreetingIsMinus118)
{
    ReplyHeader bad;
    bad.name = "BASE";
    bad.eyecatcher = 0x47617466;
    const Script handshake{expectMessage(), sendWhole(handshakeReply())};
    const Script firstStep =
        handshake +
        Script{expectMessage(), sendWhole(authInitReply(answers.protocolMap, answers.authServerVersion))};
    const struct {
        const char* how;
        Script script;
        std::size_t requests;
    } rows[] = {
        {"bad eyecatcher", {expectMessage(), sendWhole(replyHeader(bad))}, 1},
        {"handshake refused", {expectMessage(), sendWhole(refusal("BASE", -4))}, 1},
        {"authorisation refused", handshake + Script{expectMessage(), sendWhole(authInitReply(zeros(8), zeros(4), 5))}, 2},
        {"authorisation cut short", handshake + Script{expectMessage(), sendWhole(reply("Auth", zeros(5)))}, 2},
        {"name too long", handshake + Script{expectMessage(), sendWhole(reply("Author", authInitBody(zeros(8), zeros(4))))}, 2},
        {"first step refused", handshake + Script{expectMessage(), sendWhole(refusal("Auth", 61444))}, 2},
        {"second step refused", firstStep + Script{expectMessage(), sendWhole(refusal("Auth", -103))}, 3},
        {"second step cut short", firstStep + Script{expectMessage(), sendWhole(reply("Auth", zeros(7)))}, 3},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.how);
        ScriptedPeer peer({row.script + goodbyeUnanswered()});
        Opened opened = openAt(peer.port());
        // Codes of the authorisation are taken for the connection's own: -103 is its time-out.
        expectUnopened(opened, std::string(row.how) == "second step refused" ? -134 : -118);
        peer.finish();
        EXPECT_EQ("", peer.problem());
        ASSERT_EQ(row.requests + 1, peer.messages().size());
        EXPECT_TRUE(sameBytes(closeRequest(), peer.messages().back()));
    }
}

TEST(OpenOnTheWire, CloseAtAnyRequestOfTheGreetingIsMinus118)
{
    Script conversation = greeting(answers);
    for (std::size_t step = 0; step < 3; ++step) {
        SCOPED_TRACE(step);
        Script cut(conversation.begin(), conversation.begin() + static_cast<std::ptrdiff_t>(2 * step));
        ScriptedPeer peer({cut + Script{expectMessage(), closeLink()}});
        expectUnopened(openAt(peer.port()), -118);
        peer.finish();
        EXPECT_EQ("", peer.problem());
    }
}

TEST(OpenOnTheWire, FailedVersionRequestIsMinus122OrMinus102)
{
    ReplyHeader bad;
    bad.eyecatcher = 5;
    const struct {
        const char* how;
        Bytes replyBytes;
        int rc;
    } rows[] = {
        {"code 61444", refusal("Admin", 61444), -122},
        {"code -4", refusal("Admin", -4), -122},
        {"code -1", refusal("Admin", -1), -102},
        {"code 3", refusal("Admin", 3), -122},
        {"failed call", reply("Admin", be32(1) + be32(61444) + hex("00")), -122},
        {"short", reply("Admin", zeros(3)), -122},
        {"bad eyecatcher", replyHeader(bad), -122},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.how);
        const Script atInit = greeting(answers) + Script{expectMessage(), sendWhole(row.replyBytes)};
        const Script atCall = greeting(answers) + Script{expectMessage(), sendWhole(adminInitReply(zeros(4))),
                                                         expectMessage(), sendWhole(row.replyBytes)};
        for (const Script& script : {atInit, atCall}) {
            ScriptedPeer peer({script + goodbyeUnanswered()});
            expectUnopened(openAt(peer.port()), row.rc);
            peer.finish();
            EXPECT_EQ("", peer.problem());
            EXPECT_TRUE(sameBytes(closeRequest(), peer.messages().back()));
        }
    }
}

TEST(OpenOnTheWire, UnfitVersionTextIsMinus122)
{
    const Bytes texts[] = {
        attributeData(std::string(64, 'v')),                  // too long
        Bytes(6, 0x5A) + be16(0xFFFF) + text("version"),      // negative
        Bytes(6, 0x5A) + be16(8) + text("version"),           // a byte is missing
        zeros(7),                                             // no length
    };
    for (const Bytes& callData : texts) {
        ScriptedPeer peer({greeting(answers) + adminExchange(answers, 1, callData) + goodbyeUnanswered()});
        expectUnopened(openAt(peer.port()), -122);
        peer.finish();
        EXPECT_EQ("", peer.problem());
    }
}

TEST(OpenOnTheWire, PeerThatVanishesAfterTheGreetingIsMinus102)
{
    // The version request cannot be sent; the process survives without a SIGPIPE handler.
    struct sigaction before {};
    struct sigaction fatal {};
    fatal.sa_handler = SIG_DFL;
    sigemptyset(&fatal.sa_mask);
    ASSERT_EQ(0, sigaction(SIGPIPE, &fatal, &before));
    ScriptedPeer peer({greeting(answers) + Script{resetLink()}});
    SocketCalls calls;
    int sends = 0;
    calls.send = [&](int socket, const void* bytes, size_t count, int flags) {
        if (++sends == 4) peer.finish();  // the reset is there
        return ::send(socket, bytes, count, flags);
    };
    {
        Hooked hooked(calls);
        expectUnopened(openAt(peer.port()), -102);
    }
    EXPECT_EQ(5, sends);  // the fourth and the goodbye fail
    EXPECT_EQ("", peer.problem());
    ASSERT_EQ(0, sigaction(SIGPIPE, &before, nullptr));
}

// ---- Queries ------------------------------------------------------------------------------------------------------

TEST(QueryOnTheWire, EachSendsAnInitCallAndItsOperation)
{
    std::vector<Bytes> data;
    Bytes expected = openingRequests();
    for (const Query& query : queries) {
        data.push_back(dataFor(query));
        expected = expected + adminInitRequest() + invokeRequest(answers.adminServerVersion, query.operation, query.ids);
    }
    ScriptedPeer peer({wholeConversation(data)});
    Opened opened = openAt(peer.port());
    ASSERT_EQ(0, opened.rc);
    KRV_ResultSetToken_t first = nullptr;
    for (const Query& query : queries) {
        SCOPED_TRACE(query.name);
        KRV_ResultSetToken_t set = nullptr;
        EXPECT_EQ(0, query.call(opened.token, &set));
        ASSERT_NE(nullptr, set);
        if (!first) first = set;
        EXPECT_EQ(first, set);
        EXPECT_EQ(0, std::memcmp(query.statistics ? "KRVSTSET" : "KRVIDSET", set->rsBuffPtr, 8));
    }
    EXPECT_EQ(0, closeGatewayConnection(&opened.token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(expected + closeRequest(), peer.received()));
}

TEST(QueryOnTheWire, IdsArePassedOnAsTheyAre)
{
    const std::string odd[] = {"", ":", std::string(32765, 'i'), "\x01\xFF\x80 \t\n"};
    std::vector<Bytes> data(std::size(odd), idsData("", 0, {}));
    ScriptedPeer peer({wholeConversation(data)});
    Opened opened = openAt(peer.port());
    ASSERT_EQ(0, opened.rc);
    Bytes expected = openingRequests();
    for (const std::string& ids : odd) {
        KRV_ResultSetToken_t set = nullptr;
        EXPECT_EQ(0, getStatIdsByStatGroupId(opened.token, const_cast<char*>(ids.c_str()), &set));
        expected = expected + adminInitRequest() + invokeRequest(answers.adminServerVersion, "STAT_IDS", ids);
    }
    EXPECT_EQ(0, closeGatewayConnection(&opened.token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(expected + closeRequest(), peer.received()));
}

TEST(QueryOnTheWire, RefusedArgumentsSendNothing)
{
    ScriptedPeer peer({wholeConversation({})});
    Opened opened = openAt(peer.port());
    ASSERT_EQ(0, opened.rc);
    KRV_ResultSetToken_t set = nullptr;
    for (const Query& query : queries) {
        SCOPED_TRACE(query.name);
        EXPECT_EQ(-100, query.call(nullptr, &set));
        EXPECT_EQ(-125, query.call(opened.token, nullptr));
    }
    EXPECT_EQ(-126, getStatIdsByStatGroupId(opened.token, nullptr, nullptr));
    EXPECT_EQ(-126, getStatsByStatId(opened.token, nullptr, &set));
    EXPECT_EQ(-126, getStatsByStatGroupId(opened.token, nullptr, &set));
    std::string tooLong(32766, 'i');
    EXPECT_EQ(-111, getStatsByStatId(opened.token, tooLong.data(), &set));
    EXPECT_EQ(0, closeGatewayConnection(&opened.token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(openingRequests() + closeRequest(), peer.received()));
}

TEST(QueryOnTheWire, LostBufferIsMinus110AndSendsNothing)
{
    ScriptedPeer peer({wholeConversation({})});
    Opened opened = openAt(peer.port());
    ASSERT_EQ(0, opened.rc);
    char* buffer = opened.token->resultSetBuf;
    opened.token->resultSetBuf = nullptr;
    for (const Query& query : queries) {
        SCOPED_TRACE(query.name);
        KRV_ResultSetToken_t set = nullptr;
        EXPECT_EQ(-110, query.call(opened.token, &set));
        EXPECT_EQ(nullptr, set);
    }
    opened.token->resultSetBuf = buffer;
    EXPECT_EQ(0, closeGatewayConnection(&opened.token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(openingRequests() + closeRequest(), peer.received()));
}

TEST(QueryOnTheWire, FailedExchangeRemovesTheConnection)
{
    ReplyHeader bad;
    bad.eyecatcher = 5;
    const struct {
        const char* how;
        Bytes replyBytes;
        int rc;
    } rows[] = {
        {"code 61444", refusal("Admin", 61444), -122},
        {"code -4", refusal("Admin", -4), -122},
        {"code -1", refusal("Admin", -1), -102},
        {"failed call", reply("Admin", be32(5) + be32(9) + hex("00")), -122},
        {"exception", adminCallReply(5, {}, 0, 1), -122},
        {"short body", reply("Admin", be32(5) + zeros(3)), -122},
        {"no data", adminCallReply(5, {}), -122},
        {"half a response", adminCallReply(5, hex("00 5A 5A 5A 5A 5A 5A 00")), -122},
        {"bad eyecatcher", replyHeader(bad), -122},
        {"no body", reply("Admin", {}), -122},
    };
    for (const Query& query : queries) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(query.name) + " " + row.how);
            ScriptedPeer peer({opening(answers) + Script{expectMessage(), sendWhole(adminInitReply(zeros(4))),
                                                         expectMessage(), sendWhole(row.replyBytes)} +
                               farewell()});
            Opened opened = openAt(peer.port());
            ASSERT_EQ(0, opened.rc);
            KRV_ResultSetToken_t set = reinterpret_cast<KRV_ResultSetToken_t>(0x30);
            EXPECT_EQ(row.rc, query.call(opened.token, &set));
            EXPECT_EQ(reinterpret_cast<KRV_ResultSetToken_t>(0x30), set);
            EXPECT_EQ(-101, query.call(opened.token, &set));
            EXPECT_EQ(-101, closeGatewayConnection(&opened.token));
            peer.finish();
            EXPECT_EQ("", peer.problem());
            EXPECT_TRUE(sameBytes(closeRequest(), peer.messages().back()));
            EXPECT_EQ(8u, peer.messages().size());
        }
    }
}

TEST(QueryOnTheWire, CloseAtAnyByteOfTheReplyIsMinus122)
{
    const Bytes whole = adminCallReply(5, idsData("", 0, {"CPU"}));
    for (std::size_t sent = 0; sent < whole.size(); sent += 3) {
        SCOPED_TRACE(sent);
        ScriptedPeer peer({opening(answers) + Script{expectMessage(), sendWhole(adminInitReply(zeros(4))),
                                                     expectMessage(), sendWhole(slice(whole, 0, sent)), closeLink()}});
        Opened opened = openAt(peer.port());
        ASSERT_EQ(0, opened.rc);
        KRV_ResultSetToken_t set = nullptr;
        errno = 0;
        EXPECT_EQ(-122, getStatIds(opened.token, &set));
        EXPECT_EQ(nullptr, gtListHeadPtr);
        peer.finish();
        EXPECT_EQ("", peer.problem());
    }
}

TEST(QueryOnTheWire, PeerThatHasGoneIsMinus102AndKillsNobody)
{
    struct sigaction before {};
    struct sigaction fatal {};
    fatal.sa_handler = SIG_DFL;
    sigemptyset(&fatal.sa_mask);
    ASSERT_EQ(0, sigaction(SIGPIPE, &fatal, &before));
    for (const Query& query : queries) {
        SCOPED_TRACE(query.name);
        ScriptedPeer peer({opening(answers) + Script{resetLink()}});
        Opened opened = openAt(peer.port());
        ASSERT_EQ(0, opened.rc);
        peer.finish();
        KRV_ResultSetToken_t set = nullptr;
        EXPECT_EQ(-102, query.call(opened.token, &set));
        EXPECT_EQ(nullptr, set);
        EXPECT_EQ(-101, query.call(opened.token, &set));
    }
    ASSERT_EQ(0, sigaction(SIGPIPE, &before, nullptr));
}

TEST(QueryOnTheWire, ConnectionsAreIndependent)
{
    ScriptedPeer one({wholeConversation({idsData("", 0, {"A"}), idsData("", 0, {"B"})})});
    ScriptedPeer two({opening(answers) + Script{expectMessage(), sendWhole(refusal("Admin", 3))} + farewell()});
    Opened first = openAt(one.port());
    Opened second = openAt(two.port());
    ASSERT_EQ(0, first.rc);
    ASSERT_EQ(0, second.rc);
    KRV_ResultSetToken_t set = nullptr;
    EXPECT_EQ(0, getStatIds(first.token, &set));
    EXPECT_EQ(-122, getStatIds(second.token, &set));
    EXPECT_EQ(0, getStatIds(first.token, &set));
    EXPECT_EQ(0, closeGatewayConnection(&first.token));
    one.finish();
    two.finish();
    EXPECT_EQ("", one.problem());
    EXPECT_EQ("", two.problem());
}

// ---- Closing ------------------------------------------------------------------------------------------------------

TEST(CloseOnTheWire, AllConnectionsSayGoodbye)
{
    std::vector<Opened> opened;
    std::vector<ScriptedPeer> peers;
    for (int i = 0; i < 3; ++i) {
        peers.emplace_back(std::vector<Script>{wholeConversation({})});
        opened.push_back(openAt(peers.back().port()));
        ASSERT_EQ(0, opened.back().rc);
    }
    EXPECT_EQ(0, closeAllGatewayConnections());
    for (ScriptedPeer& each : peers) {
        each.finish();
        EXPECT_EQ("", each.problem());
        EXPECT_TRUE(sameBytes(openingRequests() + closeRequest(), each.received()));
    }
    for (Opened& each : opened) EXPECT_EQ(-101, closeGatewayConnection(&each.token));
}

TEST(CloseOnTheWire, SucceedsWhateverTheGatewayAnswers)
{
    ReplyHeader bad;
    bad.name = "BASE";
    bad.eyecatcher = 1;
    const Script endings[] = {{expectMessage(), sendWhole(refusal("BASE", 9))},
                              {expectMessage(), sendWhole(replyHeader(bad))},
                              {expectMessage(), closeLink()},
                              {resetLink()}};
    for (const Script& ending : endings) {
        ScriptedPeer peer({opening(answers) + ending});
        Opened opened = openAt(peer.port());
        ASSERT_EQ(0, opened.rc);
        EXPECT_EQ(0, closeGatewayConnection(&opened.token));
        EXPECT_EQ(nullptr, gtListHeadPtr);
    }
}
