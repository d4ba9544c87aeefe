// Whole conversations in memory: order, echoes, refusals.
#include "conversation.h"

#include "fixed_width_reader.h"
#include "replies.h"
#include "scenario.h"

#include <gtest/gtest.h>

using krvgw::Ending;
using krvgw::MessageKind;
using krvgw::Turn;
using krvtest::Bytes;
using krvtest::hex;
using krvtest::operator+;
using krvtest::sameBytes;
using krvtest::slice;

namespace {

struct Talk {
    explicit Talk(const std::vector<std::string>& misbehaviours = {}, std::uint64_t seed = 1,
                  std::size_t connection = 1)
    {
        std::string complaint;
        const auto scenario =
            krvgw::parseScenario("groups: [{ id: g, statistics: [{ id: g.s, value: v }] }]", complaint);
        source = krvgw::scenarioSource(scenario.value());
        settings.source = source.get();
        settings.counters = &counters;
        settings.seed = seed;
        for (const std::string& text : misbehaviours)
            settings.misbehaviours.push_back(krvgw::parseMisbehaviour(text, complaint).value());
        conversation = krvgw::startConversation(settings, connection);
    }

    Turn say(const Bytes& request)
    {
        Turn turn = krvgw::takeRequest(conversation, settings, request);
        reply = turn.delivery.reply.bytes;
        return turn;
    }

    // The opaque bytes in the last reply: behind call type and result.
    Bytes opaque(std::size_t nameLength, std::size_t from, std::size_t count) const
    {
        return slice(reply, 29 + nameLength + 8 + from, count);
    }

    void authorise()
    {
        EXPECT_EQ(complaints(say(krvtest::handshakeRequest())), "");
        EXPECT_EQ(complaints(say(krvtest::authInitRequest())), "");
        EXPECT_EQ(complaints(say(krvtest::authConfirmRequest(opaque(4, 0, 8), opaque(4, 8, 4)))), "");
    }

    Turn invoke(const std::string& operation, const std::string& query)
    {
        EXPECT_EQ(complaints(say(krvtest::adminInitRequest())), "");
        return say(krvtest::invokeRequest(opaque(5, 0, 4), operation, query));
    }

    static std::string complaints(const Turn& turn)
    {
        std::string joined;
        for (const std::string& each : turn.complaints) joined += each + "\n";
        return joined;
    }

    krvgw::Counters counters;
    std::unique_ptr<krvgw::Source> source;
    krvgw::GatewaySettings settings;
    krvgw::Conversation conversation;
    Bytes reply;
};

// A refusal: header return code 9001 (0x2329), no body, and the connection ends.
void expectRefused(const Talk& talk, const Turn& turn)
{
    ASSERT_GE(talk.reply.size(), 33u);
    EXPECT_TRUE(sameBytes(hex("00 00 23 29"), slice(talk.reply, 16, 4)));
    EXPECT_TRUE(sameBytes(hex("00 00 00 00"), slice(talk.reply, talk.reply.size() - 4, 4)));
    EXPECT_EQ(turn.delivery.ending, Ending::Close);
}

}  // namespace

TEST(Conversation, AWholeOneGoesThroughWithoutComplaint)
{
    Talk talk;
    talk.authorise();
    talk.say(krvtest::adminInitRequest());
    EXPECT_EQ(Talk::complaints(talk.say(krvtest::getProtocolRequest(talk.opaque(5, 0, 4)))), "");
    const Bytes versionBody = hex("00 00 00 01 00 00 00 00 00 00 AC ED 00 05 74 00 05 31 2E 31 2E 30");
    EXPECT_TRUE(sameBytes(krvtest::reply("Admin", versionBody), talk.reply));
    EXPECT_EQ(Talk::complaints(talk.invoke("RESOURCE_GROUPS", "")), "");
    EXPECT_EQ(Talk::complaints(talk.invoke("STAT_IDS", "g")), "");
    EXPECT_EQ(Talk::complaints(talk.invoke("GET_STATS", "g:x")), "");
    const Bytes data = slice(talk.reply, 34 + 9, talk.reply.size() - 43);
    const auto result = krvgwtest::readResult(data, krvgwtest::ResultKind::Stats);
    EXPECT_TRUE(result.isWhole);
    const std::vector<krvgwtest::ReadResponse> expected = {{"g", 0, {{"g.s", "v"}}}, {"x", -1001, {}}};
    EXPECT_EQ(result.responses, expected);

    const Turn last = talk.say(krvtest::closeRequest());
    EXPECT_EQ(Talk::complaints(last), "");
    EXPECT_EQ(last.message, MessageKind::Close);
    EXPECT_TRUE(sameBytes(hex("47 61 74 65 00 70 00 00 00 00 00 0A")     // eyecatcher, flow version, flow type
                              + hex("FF FF FF FF 00 00 00 00")           // message id, return code
                              + hex("00 00 00 04 42 41 53 45 00")        // name, security
                              + hex("00 00 00 00"),                      // no body
                          talk.reply));
    EXPECT_EQ(talk.counters.requests[static_cast<std::size_t>(MessageKind::Init)], 4u);
    EXPECT_EQ(talk.counters.requests[static_cast<std::size_t>(MessageKind::GetStats)], 1u);
}

TEST(Conversation, TheRequestsAreNamed)
{
    Talk talk;
    EXPECT_EQ(talk.say(krvtest::handshakeRequest()).message, MessageKind::Handshake);
    EXPECT_EQ(talk.say(krvtest::authInitRequest()).message, MessageKind::Auth1);
    const Bytes second = krvtest::authConfirmRequest(talk.opaque(4, 0, 8), talk.opaque(4, 8, 4));
    EXPECT_EQ(talk.say(second).message, MessageKind::Auth2);
    EXPECT_EQ(talk.say(krvtest::adminInitRequest()).message, MessageKind::Init);
    EXPECT_EQ(talk.say(krvtest::getProtocolRequest(talk.opaque(5, 0, 4))).message, MessageKind::Attribute);
    EXPECT_EQ(talk.invoke("STAT_IDS", "").message, MessageKind::StatIds);
    EXPECT_EQ(talk.invoke("GET_STATS", "").message, MessageKind::GetStats);
    EXPECT_EQ(talk.invoke("RESOURCE_GROUPS", "").message, MessageKind::ResourceGroups);
}

TEST(Conversation, OpaqueBytesDifferByReplyConnectionAndSeedButNotByRun)
{
    const auto firstOpaque = [](std::uint64_t seed, std::size_t connection) {
        Talk talk({}, seed, connection);
        talk.say(krvtest::handshakeRequest());
        talk.say(krvtest::authInitRequest());
        return talk.opaque(4, 0, 12);
    };
    EXPECT_EQ(firstOpaque(1, 1), firstOpaque(1, 1));
    EXPECT_NE(firstOpaque(1, 1), firstOpaque(1, 2));
    EXPECT_NE(firstOpaque(1, 1), firstOpaque(2, 1));

    Talk talk;
    talk.authorise();
    talk.say(krvtest::adminInitRequest());
    const Bytes once = talk.opaque(5, 0, 4);
    talk.say(krvtest::adminInitRequest());
    EXPECT_NE(once, talk.opaque(5, 0, 4));
}

TEST(Conversation, DifferentOpaqueBytesAreRefused)
{
    Talk talk;
    talk.say(krvtest::handshakeRequest());
    talk.say(krvtest::authInitRequest());
    Bytes map = talk.opaque(4, 0, 8);
    const Bytes version = talk.opaque(4, 8, 4);
    map[0] = static_cast<unsigned char>(map[0] ^ 1);
    const Turn turn = talk.say(krvtest::authConfirmRequest(map, version));
    EXPECT_TRUE(Talk::complaints(turn).starts_with("body: protocol map is "));
    expectRefused(talk, turn);
}

TEST(Conversation, TheServerVersionOfTheLastInitMustComeBack)
{
    Talk talk;
    talk.authorise();
    talk.say(krvtest::adminInitRequest());
    const Bytes old = talk.opaque(5, 0, 4);
    talk.say(krvtest::adminInitRequest());
    const Turn turn = talk.say(krvtest::invokeRequest(old, "GET_STATS", ""));
    EXPECT_TRUE(Talk::complaints(turn).starts_with("body: server version is "));
    expectRefused(talk, turn);
}

TEST(Conversation, RequestsOutOfOrderAreRefused)
{
    struct Row {
        Bytes request;
        std::string complaint;
    };
    const Bytes any = hex("00 00 00 00");
    const Row rows[] = {
        {krvtest::authInitRequest(), "out of order: handshake was awaited\n"},
        {krvtest::authConfirmRequest(any + any, any), "out of order: handshake was awaited\n"},
        {krvtest::adminInitRequest(), "out of order: handshake was awaited\n"},
        {krvtest::invokeRequest(any, "GET_STATS", ""), "out of order: handshake was awaited\n"},
    };
    for (const Row& row : rows) {
        Talk talk;
        const Turn turn = talk.say(row.request);
        EXPECT_EQ(Talk::complaints(turn), row.complaint);
        expectRefused(talk, turn);
    }

    Talk again;
    again.say(krvtest::handshakeRequest());
    EXPECT_EQ(Talk::complaints(again.say(krvtest::handshakeRequest())), "out of order: auth1 was awaited\n");

    Talk withoutInit;
    withoutInit.authorise();
    EXPECT_EQ(Talk::complaints(withoutInit.say(krvtest::getProtocolRequest(any))), "out of order: init was awaited\n");

    Talk twice;
    twice.authorise();
    twice.invoke("GET_STATS", "");
    EXPECT_EQ(Talk::complaints(twice.say(krvtest::invokeRequest(any, "GET_STATS", ""))),
              "out of order: init was awaited\n");

    Talk closed;
    closed.authorise();
    closed.say(krvtest::closeRequest());
    EXPECT_EQ(Talk::complaints(closed.say(krvtest::closeRequest())), "out of order: nothing was awaited\n");
}

TEST(Conversation, CloseIsAcceptedAtAnyPoint)
{
    Talk atOnce;
    EXPECT_EQ(Talk::complaints(atOnce.say(krvtest::closeRequest())), "");
    Talk greeted;
    greeted.say(krvtest::handshakeRequest());
    EXPECT_EQ(Talk::complaints(greeted.say(krvtest::closeRequest())), "");
    Talk halfAuthorised;
    halfAuthorised.say(krvtest::handshakeRequest());
    halfAuthorised.say(krvtest::authInitRequest());
    EXPECT_EQ(Talk::complaints(halfAuthorised.say(krvtest::closeRequest())), "");
    Talk prepared;
    prepared.authorise();
    prepared.say(krvtest::adminInitRequest());
    EXPECT_EQ(Talk::complaints(prepared.say(krvtest::closeRequest())), "");
}

TEST(Conversation, UnknownOperationsRaiseAnExceptionAndGoOn)
{
    Talk talk;
    talk.authorise();
    const Turn turn = talk.invoke("PUT_STATS", "");
    EXPECT_EQ(Talk::complaints(turn), "there is no operation \"PUT_STATS\"\n");
    EXPECT_EQ(turn.delivery.ending, Ending::None);
    EXPECT_TRUE(sameBytes(hex("00 00 00 05 00 00 00 00 01"), slice(talk.reply, 34, 9)));
    EXPECT_EQ(Talk::complaints(talk.invoke("GET_STATS", "")), "");
}

TEST(Conversation, OddHeadersOfAReplyMustBeEchoed)
{
    const std::vector<std::string> odd = {"message-id=0x01020304@auth1", "flow-version=0x55@auth1", "security=9@auth1"};
    Talk talk(odd);
    talk.say(krvtest::handshakeRequest());
    talk.say(krvtest::authInitRequest());
    const Bytes opaque = talk.opaque(4, 0, 12);
    const Bytes echo = hex("47 61 74 65 00 00 00 55 00 00 00 01")            // eyecatcher, flow version, flow type
                       + hex("00 00 00 00 01 02 03 04")                      // return code, message id
                       + hex("00 00 00 04 41 75 74 68 09 00 00 00 14")       // name, security, data length
                       + hex("00 00 00 01") + opaque + hex("00 00 00 00");   // call type, opaque, zeros
    EXPECT_EQ(Talk::complaints(talk.say(echo)), "");

    Talk other(odd);
    other.say(krvtest::handshakeRequest());
    other.say(krvtest::authInitRequest());
    const Turn turn = other.say(krvtest::authConfirmRequest(other.opaque(4, 0, 8), other.opaque(4, 8, 4)));
    EXPECT_EQ(Talk::complaints(turn), "header: flow version is 0x00700000 instead of 0x00000055\n"
                                      "header: message id is 0x00000000 instead of 0x01020304\n"
                                      "header: security is 0x00000000 instead of 0x00000009\n");
}

TEST(Conversation, AShortenedNameMustBeEchoed)
{
    // The client finds security and data length one byte earlier: 0x68 (the h of "Auth") and zero.
    Talk talk({"name-length=3@auth1"});
    talk.say(krvtest::handshakeRequest());
    talk.say(krvtest::authInitRequest());
    const Bytes echo = hex("47 61 74 65 00 70 00 00 00 00 00 01 00 00 00 00 00 00 00 00")
                       + hex("00 00 00 03 41 75 74 68 00 00 00 14")          // name length 3, "Aut", security 0x68
                       + hex("00 00 00 01") + krvtest::zeros(16);
    const Turn turn = talk.say(echo);
    EXPECT_EQ(turn.message, MessageKind::Auth2);
    EXPECT_EQ(Talk::complaints(turn), "");
}

TEST(Conversation, OpaqueBytesThatWereNotSentAreExpectedAsZeros)
{
    Talk talk({"short-body=10@auth1"});
    talk.say(krvtest::handshakeRequest());
    talk.say(krvtest::authInitRequest());
    const Bytes sent = talk.opaque(4, 0, 2);
    EXPECT_EQ(Talk::complaints(talk.say(krvtest::authConfirmRequest(sent + krvtest::zeros(6), krvtest::zeros(4)))), "");
}

TEST(Conversation, ReplacedOpaqueBytesAreExpectedBack)
{
    Talk talk({"opaque=7FF0000000000001AABBCCDD@auth1"});
    talk.say(krvtest::handshakeRequest());
    talk.say(krvtest::authInitRequest());
    const Bytes second = krvtest::authConfirmRequest(hex("7F F0 00 00 00 00 00 01"), hex("AA BB CC DD"));
    EXPECT_EQ(Talk::complaints(talk.say(second)), "");
}

TEST(Conversation, MisbehavioursMeetTheirMessage)
{
    Talk talk({"no-answer@init#2", "close-before@get-stats"});
    talk.authorise();
    EXPECT_TRUE(talk.say(krvtest::adminInitRequest()).delivery.isSent);
    EXPECT_FALSE(talk.say(krvtest::adminInitRequest()).delivery.isSent);
    EXPECT_TRUE(talk.say(krvtest::adminInitRequest()).delivery.isSent);
    const Turn turn = talk.say(krvtest::invokeRequest(talk.opaque(5, 0, 4), "GET_STATS", ""));
    EXPECT_FALSE(turn.delivery.isSent);
    EXPECT_EQ(turn.delivery.ending, Ending::Close);
    const std::vector<std::string> notes = {"close-before@get-stats"};
    EXPECT_EQ(turn.delivery.notes, notes);
}
