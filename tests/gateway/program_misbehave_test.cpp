// Every misbehaviour over a real socket.
#include "gateway_process.h"
#include "raw_client.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

using krvgwtest::GatewayProcess;
using krvgwtest::Left;
using krvgwtest::RawClient;
using krvgwtest::Received;
using krvtest::Bytes;
using krvtest::hex;
using krvtest::operator+;
using krvtest::sameBytes;
using krvtest::slice;
using krvtest::wordAt;

namespace {

std::vector<std::string> misbehaving(const std::vector<std::string>& texts)
{
    std::vector<std::string> arguments = {"--scenario", KRVGW_SCENARIOS "/tests.yaml"};
    for (const std::string& text : texts) {
        arguments.push_back("--misbehave");
        arguments.push_back(text);
    }
    return arguments;
}

// To the handshake, as the gateway answers when it behaves: 33 + 18 bytes.
const Bytes GREETING = hex("47 61 74 65 00 70 00 00 00 00 00 05 00 00 00 00 00 00 00 00 00 00 00 04 42 41 53 45 00")
                       + hex("00 00 00 12 00 02 65 6E 00 02 47 42") + krvtest::zeros(10);

// The reply to one kind of message, from a conversation that leads there.
Received replyTo(RawClient& client, const std::string& message)
{
    if (message == "handshake") return client.exchange(krvtest::handshakeRequest(), 4);
    if (message == "close") return client.exchange(krvtest::closeRequest(), 4);
    EXPECT_TRUE(client.greet());
    const Received first = client.exchange(krvtest::authInitRequest(), 4);
    if (message == "auth1") return first;
    const Received second =
        client.exchange(krvtest::authConfirmRequest(slice(first.bytes, 41, 8), slice(first.bytes, 49, 4)), 4);
    if (message == "auth2") return second;
    const Received init = client.exchange(krvtest::adminInitRequest(), 5);
    if (message == "init") return init;
    const Bytes version = slice(init.bytes, 42, 4);
    if (message == "attribute") return client.exchange(krvtest::getProtocolRequest(version), 5);
    if (message == "get-stats") return client.exchange(krvtest::invokeRequest(version, "GET_STATS", ""), 5);
    if (message == "stat-ids") return client.exchange(krvtest::invokeRequest(version, "STAT_IDS", ""), 5);
    return client.exchange(krvtest::invokeRequest(version, "RESOURCE_GROUPS", ""), 5);
}

const char* const MESSAGES[] = {"handshake", "auth1",     "auth2",    "init",           "attribute",
                                "get-stats", "stat-ids", "resource-groups", "close"};

}  // namespace

TEST(ProgramMisbehave, NoAnswerLeavesTheConnectionOpen)
{
    const GatewayProcess gateway(misbehaving({"no-answer@auth1"}));
    RawClient client(gateway.port);
    ASSERT_TRUE(client.greet());
    ASSERT_TRUE(client.send(krvtest::authInitRequest()));
    ASSERT_TRUE(gateway.waitForLine("1 *** auth1 no-answer@auth1"));
    EXPECT_TRUE(client.isSilentFor(100));
}

TEST(ProgramMisbehave, ADelayedAnswerComesLateAndWhole)
{
    const GatewayProcess gateway(misbehaving({"delay=600@handshake"}));
    RawClient client(gateway.port);
    ASSERT_TRUE(client.send(krvtest::handshakeRequest()));
    ASSERT_TRUE(gateway.waitForLine("1 *** handshake delay=600@handshake"));
    EXPECT_TRUE(client.isSilentFor(100));
    EXPECT_TRUE(sameBytes(GREETING, client.receive(GREETING.size()).bytes));
}

TEST(ProgramMisbehave, ByteByByteComesInManyPieces)
{
    const GatewayProcess gateway(misbehaving({"byte-by-byte=20000@handshake"}));
    RawClient client(gateway.port);
    ASSERT_TRUE(client.send(krvtest::handshakeRequest()));
    const Received first = client.receiveOnce();
    EXPECT_LT(first.bytes.size(), GREETING.size());
    const Bytes whole = first.bytes + client.receive(GREETING.size() - first.bytes.size()).bytes;
    EXPECT_TRUE(sameBytes(GREETING, whole));
}

TEST(ProgramMisbehave, ASplitAnswerComesInItsParts)
{
    const GatewayProcess gateway(misbehaving({"split=1/700%1", "split=33/700%2", "split=-1/700%3"}));
    for (const std::size_t place : {std::size_t{1}, std::size_t{33}, GREETING.size() - 1}) {
        RawClient client(gateway.port);
        ASSERT_TRUE(client.send(krvtest::handshakeRequest()));
        EXPECT_TRUE(sameBytes(slice(GREETING, 0, place), client.receiveOnce().bytes));
        const std::size_t rest = GREETING.size() - place;
        EXPECT_TRUE(sameBytes(slice(GREETING, place, rest), client.receive(rest).bytes));
    }
}

TEST(ProgramMisbehave, ConnectionsAreClosedAtEveryByteOfAReply)
{
    std::vector<std::string> texts;
    for (std::size_t place = 0; place <= GREETING.size(); ++place)
        texts.push_back("close-at=" + std::to_string(place) + "%" + std::to_string(place + 1));
    const GatewayProcess gateway(misbehaving(texts));
    for (std::size_t place = 0; place <= GREETING.size(); ++place) {
        RawClient client(gateway.port);
        ASSERT_TRUE(client.send(krvtest::handshakeRequest()));
        const Received received = client.receive(GREETING.size() + 1);
        EXPECT_TRUE(sameBytes(slice(GREETING, 0, place), received.bytes));
        EXPECT_EQ(received.left, Left::Closed);
    }
}

TEST(ProgramMisbehave, ConnectionsAreClosedBeforeAndAfterAnyMessage)
{
    for (const char* message : MESSAGES) {
        SCOPED_TRACE(message);
        const std::string on = std::string("@") + message;
        const GatewayProcess gateway(misbehaving({"close-before%1" + on, "close-after%2" + on}));
        RawClient before(gateway.port);
        const Received nothing = replyTo(before, message);
        EXPECT_TRUE(nothing.bytes.empty());
        EXPECT_EQ(nothing.left, Left::Closed);
        RawClient after(gateway.port);
        EXPECT_EQ(replyTo(after, message).left, Left::Open);
        EXPECT_EQ(after.receive(1).left, Left::Closed);
    }
}

TEST(ProgramMisbehave, ConnectionsAreReset)
{
    const GatewayProcess gateway(misbehaving({"reset-before%1", "reset-after%2", "reset-at=10%3"}));
    RawClient before(gateway.port);
    EXPECT_EQ(replyTo(before, "handshake").left, Left::Reset);
    RawClient after(gateway.port);
    EXPECT_TRUE(sameBytes(GREETING, replyTo(after, "handshake").bytes));
    ASSERT_TRUE(gateway.waitForLine("2 --- - reset"));
    EXPECT_FALSE(after.send(krvtest::authInitRequest()));
    RawClient inside(gateway.port);
    const Received received = replyTo(inside, "handshake");
    EXPECT_TRUE(sameBytes(slice(GREETING, 0, 10), received.bytes));
    EXPECT_EQ(received.left, Left::Reset);
}

TEST(ProgramMisbehave, ConnectionsAreDroppedWhenTheyAreAccepted)
{
    const GatewayProcess gateway(misbehaving({"close-on-accept%1", "reset-on-accept%2"}));
    RawClient closed(gateway.port);
    ASSERT_TRUE(gateway.waitForLine("1 --- - closed"));
    EXPECT_EQ(closed.receive(1).left, Left::Closed);
    RawClient reset(gateway.port);
    ASSERT_TRUE(gateway.waitForLine("2 --- - reset"));
    EXPECT_EQ(reset.receive(1).left, Left::Reset);
    RawClient third(gateway.port);
    EXPECT_TRUE(third.open());
}

TEST(ProgramMisbehave, AStalledAnswerStopsInsideAndStaysOpen)
{
    const GatewayProcess gateway(misbehaving({"stall-at=40@handshake"}));
    RawClient client(gateway.port);
    ASSERT_TRUE(client.send(krvtest::handshakeRequest()));
    EXPECT_TRUE(sameBytes(slice(GREETING, 0, 40), client.receive(40).bytes));
    EXPECT_TRUE(client.isSilentFor(100));
}

TEST(ProgramMisbehave, HeaderCodesOfEitherSignComeOnAnyMessage)
{
    for (const char* message : MESSAGES) {
        SCOPED_TRACE(message);
        const std::string on = std::string("@") + message;
        const GatewayProcess gateway(misbehaving({"header-rc=61444%1" + on, "header-rc==-4%2" + on}));
        RawClient positive(gateway.port);
        EXPECT_EQ(wordAt(replyTo(positive, message).bytes, 16), 61444);
        RawClient negative(gateway.port);
        EXPECT_EQ(wordAt(replyTo(negative, message).bytes, 16), -4);
    }
}

TEST(ProgramMisbehave, AnyMessageCanHaveABadEyecatcherOrNoBody)
{
    for (const char* message : MESSAGES) {
        SCOPED_TRACE(message);
        const std::string on = std::string("@") + message;
        const GatewayProcess gateway(misbehaving({"bad-eyecatcher%1" + on, "no-body%2" + on}));
        RawClient strange(gateway.port);
        EXPECT_EQ(wordAt(replyTo(strange, message).bytes, 0), 0x47617464);
        RawClient empty(gateway.port);
        const Received reply = replyTo(empty, message);
        ASSERT_TRUE(reply.bytes.size() == 33 || reply.bytes.size() == 34);
        EXPECT_EQ(wordAt(reply.bytes, reply.bytes.size() - 4), 0);
        EXPECT_TRUE(empty.isSilentFor(20));
    }
}

TEST(ProgramMisbehave, AuthorisationAndAdminCallsAreRefused)
{
    const GatewayProcess gateway(misbehaving({"refuse-auth=12@auth1%1", "refuse-auth@auth2%2", "refuse-admin=13@init%3",
                                              "refuse-admin==-1@get-stats%4", "exception@stat-ids%5"}));
    RawClient first(gateway.port);
    EXPECT_EQ(wordAt(replyTo(first, "auth1").bytes, 33 + 4), 12);
    RawClient second(gateway.port);
    EXPECT_EQ(wordAt(replyTo(second, "auth2").bytes, 33 + 4), 5);
    RawClient third(gateway.port);
    EXPECT_EQ(wordAt(replyTo(third, "init").bytes, 34 + 4), 13);
    RawClient fourth(gateway.port);
    EXPECT_EQ(wordAt(replyTo(fourth, "get-stats").bytes, 34 + 4), -1);
    RawClient fifth(gateway.port);
    EXPECT_EQ(replyTo(fifth, "stat-ids").bytes.at(34 + 8), 1);
}

TEST(ProgramMisbehave, HugeClaimsComeWithLittleData)
{
    const GatewayProcess gateway(misbehaving({"huge-claim@handshake%1", "element-count=0x7fffffff@get-stats%2"}));
    RawClient client(gateway.port);
    ASSERT_TRUE(client.send(krvtest::handshakeRequest()));
    const Received received = client.receive(1000);
    EXPECT_EQ(received.left, Left::Closed);
    EXPECT_EQ(received.bytes.size(), GREETING.size());
    EXPECT_EQ(wordAt(received.bytes, 29), 0x7FFFFFFF);
    RawClient many(gateway.port);
    const Received stats = replyTo(many, "get-stats");
    // Fixed part and array flag, class names of 36 and 31 bytes with what surrounds them, an empty query element, rc.
    EXPECT_EQ(wordAt(stats.bytes, 34 + 10 + 6 + 2 + 36 + 13 + 2 + 31 + 13 + 2 + 2 + 4), 0x7FFFFFFF);
}

TEST(ProgramMisbehave, ShortAndLongBodiesAreFramed)
{
    const GatewayProcess gateway(misbehaving({"short-body=5@handshake%1", "extra-body=3@handshake%2",
                                              "data-length=+7@handshake%3", "close-after@handshake%3"}));
    RawClient shorter(gateway.port);
    EXPECT_EQ(replyTo(shorter, "handshake").bytes.size(), 33u + 5);
    RawClient longer(gateway.port);
    EXPECT_EQ(replyTo(longer, "handshake").bytes.size(), 33u + 21);
    RawClient truncated(gateway.port);
    const Received received = replyTo(truncated, "handshake");
    EXPECT_EQ(wordAt(received.bytes, 29), 25);
    EXPECT_EQ(received.bytes.size(), 33u + 18);
    EXPECT_EQ(received.left, Left::Closed);
}

TEST(ProgramMisbehave, TheNthMessageOfAConnectionIsMet)
{
    const GatewayProcess gateway(misbehaving({"header-rc=8@get-stats#2", "header-rc=9#3"}));
    RawClient client(gateway.port);
    ASSERT_TRUE(client.greet());
    const Received first = client.exchange(krvtest::authInitRequest(), 4);
    const Received second =
        client.exchange(krvtest::authConfirmRequest(slice(first.bytes, 41, 8), slice(first.bytes, 49, 4)), 4);
    EXPECT_EQ(wordAt(first.bytes, 16), 0);
    EXPECT_EQ(wordAt(second.bytes, 16), 9);
    for (const int code : {0, 8, 0}) {
        ASSERT_TRUE(client.sendInvoke("GET_STATS", "alpha"));
        EXPECT_EQ(wordAt(client.exchange({}, 5).bytes, 16), code);
    }
}

TEST(ProgramMisbehave, AScenarioCanMisbehave)
{
    std::string name = (std::filesystem::temp_directory_path() / "krvgw-bad-XXXXXX").string();
    const std::filesystem::path folder = mkdtemp(name.data());
    std::ofstream(folder / "bad.yaml") << "misbehave: ['header-rc=21@handshake']\n";
    const GatewayProcess gateway({"--scenario", folder / "bad.yaml", "--misbehave", "security=4@handshake"});
    std::filesystem::remove_all(folder);
    RawClient client(gateway.port);
    const Received reply = replyTo(client, "handshake");
    EXPECT_EQ(wordAt(reply.bytes, 16), 21);
    EXPECT_EQ(reply.bytes.at(28), 4);
}
