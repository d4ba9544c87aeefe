// The requests to the statistics object and the six wrappers over them, on a connected socket.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "failing_calls.h"
#include "scripted_peer.h"
#include "stapi_krv_requests.h"
#include "stapi_krv_statcomms.h"
#include "stapi_krv_statquery.h"
#include "stapi_krv_types.h"
#include "trace_capture.h"
#include "wire_bytes.h"

using namespace krvtest;

namespace {

constexpr std::int32_t Untouched = 0x2B2B2B2B;

const Bytes version = hex("B1 B2 B3 B4");  // server version of every init reply

std::vector<int> numbersOf(const std::vector<TraceLine>& lines, int from, int to)
{
    std::vector<int> numbers;
    for (const TraceLine& line : lines)
        if (line.number >= from && line.number <= to) numbers.push_back(line.number);
    return numbers;
}

std::string messageOf(const std::vector<TraceLine>& lines, int number)
{
    std::vector<TraceLine> found = linesNumbered(lines, number);
    EXPECT_EQ(1u, found.size()) << number;
    return found.empty() ? std::string() : found[0].message;
}

Script exchangeWithData(std::int32_t callType, const Bytes& callData)
{
    return {expectMessage(), sendWhole(adminInitReply(version)), expectMessage(),
            sendWhole(adminCallReply(callType, callData))};
}

Script endedByInit(const Bytes& initReply)
{
    return {expectMessage(), sendWhole(initReply), expectCloseWithoutBytes()};
}

Script endedByCall(const Bytes& callReply)
{
    return {expectMessage(), sendWhole(adminInitReply(version)), expectMessage(), sendWhole(callReply),
            expectCloseWithoutBytes()};
}

// ---- The protocol version -----------------------------------------------------------------------------------------

struct VersionRead {
    int rc = Untouched;
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    std::string text;
    bool stayedInside = true;
    Bytes sent;
    std::vector<Bytes> messages;
};

VersionRead readVersion(Script script, bool withBuffer = true)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(std::move(script));
    VersionRead result;
    char buffer[64 + 16];
    std::memset(buffer, '#', sizeof buffer);
    Internal_GatewayToken_t token{};
    token.socketDescriptor = peer.clientSocket();
    token.protocolVersion = withBuffer ? buffer : nullptr;
    errno = 0;
    result.rc = statProtocolVer(&token, &result.reasons);
    EXPECT_EQ(withBuffer ? buffer : nullptr, token.protocolVersion);
    for (std::size_t i = 64; i < sizeof buffer; ++i) result.stayedInside = result.stayedInside && buffer[i] == '#';
    buffer[sizeof buffer - 1] = '\0';
    result.text = buffer;
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());
    result.sent = peer.received();
    result.messages = peer.messages();
    return result;
}

// The attribute's data with a stated length of its own.
Bytes statedAttribute(std::uint32_t length, const Bytes& characters)
{
    return Bytes(6, 0x5A) + be16(length) + characters;
}

}  // namespace

TEST(ProtocolVersion, IsAskedForWithTheServerVersionOfTheInitReply)
{
    VersionRead result = readVersion(exchangeWithData(1, attributeData("1_0")));
    EXPECT_EQ(0, result.rc);
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"      // eyecatcher
                              "00 70 00 00"      // flow version
                              "00 00 00 01"      // flow type
                              "00 00 00 00"      // return code
                              "00 00 00 00"      // message id
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "00"               // security
                              "00 00 00 04"      // 4 bytes of body
                              "00 00 00 00"      // call type: init

                              "47 61 74 65"      // eyecatcher
                              "00 70 00 00"      // flow version
                              "00 00 00 01"      // flow type
                              "00 00 00 00"      // return code
                              "00 00 00 00"      // message id
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "00"               // security
                              "00 00 00 5E"      // 94 bytes of body
                              "00 00 00 01"      // call type: get attribute
                              "B1 B2 B3 B4"      // server version of the init reply
                              "00 00 00 52"      // 82 bytes follow
                              "00 02 55 53"      // country "US"
                              "00 02 65 6E"      // language "en"
                              "00 00"            // no variant
                              "00 3C") +         // 60 bytes: the object
                              text("DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats") +
                              hex("00 08") + text("protocol"),  // the attribute
                          result.sent));
    EXPECT_EQ("1_0", result.text);
}

TEST(ProtocolVersion, EchoesAnOddInitReplyHeader)
{
    ReplyHeader odd;
    odd.name = "nimdA";
    odd.flowVersion = 0x01020304;
    odd.flowType = 99;
    odd.messageId = 0x11121314;
    odd.security = 0xF7;
    odd.datalength = 12;
    VersionRead result = readVersion({expectMessage(), sendWhole(replyHeader(odd) + adminInitBody(version)),
                                      expectMessage(), sendWhole(adminCallReply(1, attributeData("1_0")))});
    EXPECT_EQ(0, result.rc);
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"      // eyecatcher
                              "01 02 03 04"      // flow version of the init reply
                              "00 00 00 01"      // flow type: set again
                              "00 00 00 00"      // return code: set again
                              "11 12 13 14"      // message id of the init reply
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "F7"               // security of the init reply
                              "00 00 00 5E"),    // 94 bytes of body: set again
                          slice(result.messages.at(1), 0, 34)));
}

TEST(ProtocolVersion, EchoesAShorterNameLength)
{
    ReplyHeader shorter;
    shorter.name = "Adm";
    shorter.security = 0x42;
    shorter.datalength = 12;
    VersionRead result =
        readVersion({expectMessage(), sendWhole(replyHeader(shorter) + zeros(2) + adminInitBody(version)),
                     expectMessage(), sendWhole(adminCallReply(1, attributeData("1_0")))});
    EXPECT_EQ(0, result.rc);
    EXPECT_TRUE(sameBytes(hex("47617465 00700000 00000001 00000000 00000000"
                              "00 00 00 03"    // length of the name
                              "41 64 6D"       // "Adm"
                              "42"             // security
                              "00 00 00 5E") + // 94 bytes of body
                              slice(getProtocolRequest(version), 34, 94),
                          result.messages.at(1)));
}

TEST(ProtocolVersion, EveryLengthThatFitsIsStored)
{
    for (std::size_t length : {0u, 1u, 5u, 62u, 63u}) {
        SCOPED_TRACE(length);
        const std::string characters(length, 'v');
        VersionRead result = readVersion(exchangeWithData(1, attributeData(characters)));
        EXPECT_EQ(0, result.rc);
        EXPECT_EQ(characters, result.text);
        EXPECT_TRUE(result.stayedInside);
        EXPECT_EQ(Untouched, result.reasons.gatewayRc);
    }
}

TEST(ProtocolVersion, TextsOfSixtyFourBytesAndMoreAreABadReply)
{
    for (std::size_t length : {64u, 65u, 100u, 32767u}) {
        SCOPED_TRACE(length);
        VersionRead result = readVersion(exchangeWithData(1, attributeData(std::string(length, 'v'))));
        EXPECT_EQ(-122, result.rc);
        EXPECT_TRUE(result.stayedInside);
    }
}

TEST(ProtocolVersion, NegativeLengthIsABadReply)
{
    for (std::uint32_t length : {0x8000u, 0xFFFFu, 0xFFC0u}) {
        SCOPED_TRACE(length);
        VersionRead result = readVersion(exchangeWithData(1, statedAttribute(length, text(std::string(100, 'v')))));
        EXPECT_EQ(-122, result.rc);
        EXPECT_TRUE(result.stayedInside);
    }
}

TEST(ProtocolVersion, MissingTextIsABadReply)
{
    for (std::size_t there : {0u, 1u, 4u}) {
        SCOPED_TRACE(there);
        EXPECT_EQ(-122,
                  readVersion(exchangeWithData(1, statedAttribute(5, text(std::string(there, 'v'))))).rc);
    }
    TraceFile trace(1);
    for (std::size_t size = 0; size < 8; ++size) {
        SCOPED_TRACE(size);
        trace.forget();
        EXPECT_EQ(-122, readVersion(exchangeWithData(1, slice(statedAttribute(0, {}), 0, size))).rc);
        EXPECT_EQ((std::vector<std::string>{"2204 *EXC* stapi_krv_statcomms.statProtocolVer Bad protocol version, length=0"}),
            brief(trace.lines()));
    }
}

TEST(ProtocolVersion, InitReplyInPlaceOfTheAttributeIsABadReply)
{
    EXPECT_EQ(-122, readVersion(endedByCall(adminInitReply(version))).rc);
}

TEST(ProtocolVersion, BytesBehindTheTextArePassedOver)
{
    VersionRead result = readVersion(exchangeWithData(1, attributeData("1_0") + text("more")));
    EXPECT_EQ(0, result.rc);
    EXPECT_EQ("1_0", result.text);
}

TEST(ProtocolVersion, EmbeddedZeroBytesAreStoredAsTheyAre)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(exchangeWithData(1, statedAttribute(3, hex("61 00 62"))));
    char buffer[64];
    std::memset(buffer, '#', sizeof buffer);
    Internal_GatewayToken_t token{};
    token.socketDescriptor = peer.clientSocket();
    token.protocolVersion = buffer;
    ReasonCodes reasons{};
    EXPECT_EQ(0, statProtocolVer(&token, &reasons));
    EXPECT_EQ(0, std::memcmp("a\0b\0#", buffer, 5));
}

TEST(ProtocolVersion, WithoutABufferIsMinus111)
{
    TraceFile trace(1);
    VersionRead result = readVersion(exchangeWithData(1, attributeData("1_0")), false);
    EXPECT_EQ(-111, result.rc);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(2204, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_statcomms.statProtocolVerFailed to allocate 4 bytes.", lines[0].message);
}

TEST(ProtocolVersion, FailureOfEitherCallIsTheResult)
{
    const struct {
        Bytes replyBytes;
        int rc;
        std::int32_t gatewayRc;
        std::int32_t adminRc;
    } rows[] = {
        {refusal("Admin", 61444), 61444, 61444, Untouched},
        {refusal("Admin", -4), -4, -4, Untouched},
        {reply("Admin", be32(1) + be32(9) + hex("00")), -3, Untouched, 9},
        {reply("Admin", be32(1)), -122, Untouched, Untouched},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rc);
        for (const Script& script : {endedByInit(row.replyBytes), endedByCall(row.replyBytes)}) {
            VersionRead result = readVersion(script);
            EXPECT_EQ(row.rc, result.rc);
            EXPECT_EQ(row.gatewayRc, result.reasons.gatewayRc);
            EXPECT_EQ(row.adminRc, result.reasons.adminRc);
            EXPECT_EQ('#', result.text[0]);
        }
    }
    EXPECT_EQ(-3, readVersion(endedByCall(adminCallReply(1, text("?"), 0, 1))).rc);
    EXPECT_EQ(-122, readVersion({expectMessage(), closeLink()}).rc);
}

TEST(ProtocolVersion, IsTracedStepByStep)
{
    TraceFile trace(4);
    readVersion(exchangeWithData(1, attributeData("1_0")));
    std::vector<TraceLine> lines = trace.lines();
    std::vector<int> own;
    for (int number : numbersOf(lines, 2200, 2242))
        if (number <= 2205 || number == 2242) own.push_back(number);
    EXPECT_EQ((std::vector<int>{2200, 2201, 2202, 2203, 2242, 2205}), own);
    EXPECT_EQ(0u, messageOf(lines, 2200).find("stapi_krv_statcomms.statProtocolVer("));
    EXPECT_EQ(0u, messageOf(lines, 2201).find("stapi_krv_statcomms.statProtocolVer"));
    EXPECT_NE(std::string::npos, messageOf(lines, 2201).find("Successfully init'd admin request"));
    EXPECT_EQ(0u, messageOf(lines, 2202).find("stapi_krv_statcomms.statProtocolVer"));
    EXPECT_NE(std::string::npos,
              messageOf(lines, 2202).find("Successfully got the protocol version from the Gateway"));
    EXPECT_EQ(0u, messageOf(lines, 2203).find("stapi_krv_statcomms.statProtocolVer"));
    EXPECT_NE(std::string::npos, messageOf(lines, 2203).find("Called malloc for 4 bytes. rc=0x"));
    EXPECT_EQ("DEBUG", linesNumbered(lines, 2203).at(0).kind);
    EXPECT_EQ("ENTRY", linesNumbered(lines, 2200).at(0).kind);
    EXPECT_EQ("EXIT", linesNumbered(lines, 2205).at(0).kind);
    EXPECT_NE(std::string::npos, messageOf(lines, 2205).find("rc=0"));
}

// ---- Operations ---------------------------------------------------------------------------------------------------

namespace {

// A result-set buffer of a caller, in a block of its own.
struct ResultBuffer {
    char* block = static_cast<char*>(std::calloc(1, 32768 + 64));
    int length = 32768;
    ResultBuffer() = default;
    ~ResultBuffer() { std::free(block); }
    ResultBuffer(const ResultBuffer&) = delete;
    ResultBuffer& operator=(const ResultBuffer&) = delete;

    std::string category() const { return std::string(block, 8); }
};

struct OperationRun {
    int rc = Untouched;
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    Bytes sent;
    std::string category;
};

OperationRun operation(const char* queryType, const char* queryString, const Bytes& callData)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(exchangeWithData(5, callData));
    ResultBuffer buffer;
    OperationRun run;
    run.rc = statCommsString(peer.clientSocket(), const_cast<char*>(queryType), const_cast<char*>(queryString),
                             &buffer.block, &buffer.length, &run.reasons);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());
    run.sent = peer.received();
    run.category = buffer.category();
    return run;
}

const Bytes someIds = idsData("", 0, {"CPU", "MEM"});
const Bytes someStats = statsData("", 0, {{"CPU.load", "0.5"}, {"MEM.free", "123"}});

}  // namespace

TEST(Operation, GetStatsWithIds)
{
    OperationRun run = operation("GET_STATS", "CPU:MEM", someStats);
    EXPECT_EQ(0, run.rc);
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"      // eyecatcher
                              "00 70 00 00"      // flow version
                              "00 00 00 01"      // flow type
                              "00 00 00 00"      // return code
                              "00 00 00 00"      // message id
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "00"               // security
                              "00 00 00 04"      // 4 bytes of body
                              "00 00 00 00"      // call type: init

                              "47 61 74 65"      // eyecatcher
                              "00 70 00 00"      // flow version
                              "00 00 00 01"      // flow type
                              "00 00 00 00"      // return code
                              "00 00 00 00"      // message id
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "00"               // security
                              "00 00 00 87"      // 135 bytes of body
                              "00 00 00 05"      // call type: invoke
                              "B1 B2 B3 B4"      // server version of the init reply
                              "00 00 00 7B"      // 123 bytes follow
                              "00 02 55 53"      // country "US"
                              "00 02 65 6E"      // language "en"
                              "00 00"            // no variant
                              "00 3C") +         // 60 bytes: the object
                              text("DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats") +
                              hex("00 09") + text("GET_STATS") +  // the operation
                              hex("00 00 00 01"                   // one argument
                                  "AC ED 00 05 74"                // stream magic, version 5, a string
                                  "00 07") +                      // of 7 bytes
                              text("CPU:MEM") +                   //
                              hex("00 00 00 01"                   // one signature
                                  "00 10") +                      // of 16 bytes
                              text("java.lang.String"),
                          run.sent));
    EXPECT_EQ("KRVSTSET", run.category);
    EXPECT_EQ(Untouched, run.reasons.socketErrno);
}

TEST(Operation, EachSendsItsNameAndItsIds)
{
    const struct {
        const char* operation;
        const char* ids;
        const Bytes& data;
        const char* lengths;  // of the body, and of what follows the call information's length
        const char* category;
    } rows[] = {
        {"GET_STATS", "", someStats, "00 00 00 80 00 00 00 74", "KRVSTSET"},
        {"GET_STATS", "A", someStats, "00 00 00 81 00 00 00 75", "KRVSTSET"},
        {"STAT_IDS", "", someIds, "00 00 00 7F 00 00 00 73", "KRVIDSET"},
        {"STAT_IDS", "CPU:NET", someIds, "00 00 00 86 00 00 00 7A", "KRVIDSET"},
        {"RESOURCE_GROUPS", "", someIds, "00 00 00 86 00 00 00 7A", "KRVIDSET"},
        {"RESOURCE_GROUPS", "xyz", someIds, "00 00 00 89 00 00 00 7D", "KRVIDSET"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.operation) + " " + row.ids);
        OperationRun run = operation(row.operation, row.ids, row.data);
        EXPECT_EQ(0, run.rc);
        EXPECT_TRUE(sameBytes(
            adminInitRequest() + hex("47617465 00700000 00000001 00000000 00000000 00000005 41646D696E 00") +
                slice(hex(row.lengths), 0, 4) + hex("00 00 00 05 B1 B2 B3 B4") + slice(hex(row.lengths), 4, 4) +
                hex("00 02 55 53 00 02 65 6E 00 00 00 3C") +
                text("DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats") + counted(row.operation) +
                hex("00 00 00 01 AC ED 00 05 74") + counted(row.ids) + hex("00 00 00 01 00 10") +
                text("java.lang.String"),
            run.sent));
        EXPECT_EQ(row.category, run.category);
    }
}

TEST(Operation, AnyOtherNameIsParsedAsIds)
{
    for (const char* name : {"GET_STATSX", "get_stats", "GET_STAT", "", "SOMETHING_ELSE_24_LETTERS"}) {
        SCOPED_TRACE(name);
        OperationRun run = operation(name, "", someIds);
        EXPECT_EQ(0, run.rc);
        EXPECT_EQ("KRVIDSET", run.category);
    }
}

TEST(Operation, LongIdsAreSentWhole)
{
    const std::string ids(65535, 'i');
    OperationRun run = operation("GET_STATS", ids.c_str(), someStats);
    EXPECT_EQ(0, run.rc);
    EXPECT_TRUE(sameBytes(adminInitRequest() + invokeRequest(version, "GET_STATS", ids), run.sent));
}

TEST(Operation, WithoutIdsSendsAnEmptyText)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(exchangeWithData(5, someIds));
    ResultBuffer buffer;
    ReasonCodes reasons{};
    char queryType[] = "RESOURCE_GROUPS";
    EXPECT_EQ(0, statComms(peer.clientSocket(), queryType, &buffer.block, &buffer.length, &reasons));
    peer.finish();
    EXPECT_TRUE(
        sameBytes(adminInitRequest() + invokeRequest(version, "RESOURCE_GROUPS", ""), peer.received()));
    EXPECT_EQ("KRVIDSET", buffer.category());
}

TEST(Operation, EchoesAnOddInitReplyHeader)
{
    ReplyHeader odd;
    odd.flowVersion = 0x01020304;
    odd.flowType = 99;
    odd.messageId = -1;
    odd.security = 0x80;
    odd.datalength = 12;
    ScriptedPeer peer =
        ScriptedPeer::onSocketPair({expectMessage(), sendWhole(replyHeader(odd) + adminInitBody(version)),
                                    expectMessage(), sendWhole(adminCallReply(5, someIds))});
    ResultBuffer buffer;
    ReasonCodes reasons{};
    char queryType[] = "STAT_IDS";
    EXPECT_EQ(0, statComms(peer.clientSocket(), queryType, &buffer.block, &buffer.length, &reasons));
    peer.finish();
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"      // eyecatcher
                              "01 02 03 04"      // flow version of the init reply
                              "00 00 00 01"      // flow type: set again
                              "00 00 00 00"      // return code: set again
                              "FF FF FF FF"      // message id of the init reply
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "80"               // security of the init reply
                              "00 00 00 7F"),    // 127 bytes of body: set again
                          slice(peer.messages().at(1), 0, 34)));
}

TEST(Operation, FailureOfEitherCallIsTheResult)
{
    const struct {
        Bytes replyBytes;
        int rc;
    } rows[] = {{refusal("Admin", 61444), 61444},
                {refusal("Admin", -4), -4},
                {reply("Admin", be32(5) + be32(9) + hex("00")), -3},
                {reply("Admin", be32(5) + zeros(3)), -122}};
    char queryType[] = "GET_STATS";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rc);
        for (const Script& script : {endedByInit(row.replyBytes), endedByCall(row.replyBytes)}) {
            ScriptedPeer peer = ScriptedPeer::onSocketPair(script);
            ResultBuffer buffer;
            char* before = buffer.block;
            ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
            EXPECT_EQ(row.rc, statComms(peer.clientSocket(), queryType, &buffer.block, &buffer.length, &reasons));
            peer.closeClientSocket();
            peer.finish();
            EXPECT_EQ("", peer.problem());
            EXPECT_EQ(before, buffer.block);
            EXPECT_EQ(32768, buffer.length);
            EXPECT_EQ(std::string(8, '\0'), buffer.category());
        }
    }
}

TEST(Operation, InitReplyInPlaceOfDataIsABadReply)
{
    for (const char* queryType : {"GET_STATS", "STAT_IDS"}) {
        ScriptedPeer peer = ScriptedPeer::onSocketPair(endedByCall(adminInitReply(version)));
        ResultBuffer buffer;
        ReasonCodes reasons{};
        EXPECT_EQ(-122, statComms(peer.clientSocket(), const_cast<char*>(queryType), &buffer.block, &buffer.length,
                                  &reasons));
        peer.closeClientSocket();
        peer.finish();
        EXPECT_EQ("", peer.problem());
    }
}

TEST(Operation, DataThatAreNotThereAreTracedWithoutALengthAndWithoutADump)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(endedByCall(adminInitReply(version)));
    TraceFile trace(4);
    char ids[] = "";
    char action[] = "GET_STATS";
    ResultBuffer buffer;
    ReasonCodes reasons{};
    EXPECT_EQ(-122, statCommsString(peer.clientSocket(), action, ids, &buffer.block, &buffer.length, &reasons));
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_EQ("stapi_krv_statcomms.statCommsString data=" + pointerText(nullptr) + " len=0 stopword=00000000",
              messageOf(trace.lines(), 2230));
    EXPECT_EQ(0u, linesNumbered(trace.lines(), 2230).at(0).dump.size());
}

TEST(Operation, ReplyDataThatEndsTooEarlyIsABadReply)
{
    for (const char* queryType : {"GET_STATS", "STAT_IDS"}) {
        const Bytes& whole = std::strcmp(queryType, "GET_STATS") == 0 ? someStats : someIds;
        for (std::size_t size : {std::size_t(0), std::size_t(1), std::size_t(20), whole.size() - 4}) {
            SCOPED_TRACE(std::string(queryType) + " " + std::to_string(size));
            EXPECT_EQ(-122, operation(queryType, "", slice(whole, 0, size)).rc);
        }
    }
}

TEST(Operation, IsTracedStepByStep)
{
    TraceFile trace(4);
    operation("STAT_IDS", "a", someIds);
    std::vector<TraceLine> lines = trace.lines();
    for (int number : {2208, 2209, 2230, 2211, 2212, 2213})
        EXPECT_GE(1u, linesNumbered(lines, number).size()) << number;
    EXPECT_EQ("ENTRY", linesNumbered(lines, 2208).at(0).kind);
    EXPECT_EQ(0u, messageOf(lines, 2208).find("stapi_krv_statcomms.statCommsString("));
    EXPECT_EQ(0u, messageOf(lines, 2209).find("stapi_krv_statcomms.statCommsString"));
    EXPECT_NE(std::string::npos, messageOf(lines, 2209).find("Successfully init'd the Admin Request"));
    EXPECT_EQ("DATA", linesNumbered(lines, 2230).at(0).kind);
    EXPECT_EQ(0u, messageOf(lines, 2230).find("stapi_krv_statcomms.statCommsString"));
    EXPECT_NE(std::string::npos, messageOf(lines, 2230).find(" len=" + std::to_string(someIds.size()) + " stopword="));
    Bytes dumped;
    const TraceLine data = linesNumbered(lines, 2230).at(0);
    for (const std::string& line : data.dump)
        dumped = dumped + hex(line.substr(12, line.find(" : ") - 12));
    EXPECT_TRUE(sameBytes(someIds, dumped));
    EXPECT_EQ("EXIT", linesNumbered(lines, 2213).at(0).kind);
    EXPECT_NE(std::string::npos, messageOf(lines, 2213).find("rc=0"));

    std::string successes;
    std::string frees;
    for (const TraceLine& line : lines) {
        if (line.message.find("Successfully called the Gateway for") != std::string::npos)
            successes += std::to_string(line.number) + line.message.substr(line.message.find(" Successfully"));
        if (line.message.find("Free request callData 0x") != std::string::npos) frees += std::to_string(line.number);
    }
    EXPECT_EQ("2211 Successfully called the Gateway for IDs", successes);
    EXPECT_EQ("2212", frees);
}

TEST(Operation, ShowsAsMuchOfItsNameInTheTraceAsAFieldOfTwentyFiveHolds)
{
    for (std::size_t length : {23u, 24u, 25u, 40u}) {
        TraceFile trace(3);
        std::string name(length, 'N');
        char ids[] = "";
        char* buffer = nullptr;
        int bufferLen = 0;
        ReasonCodes reasons = {};
        EXPECT_EQ(-1, statCommsString(-1, name.data(), ids, &buffer, &bufferLen, &reasons));
        const std::string shown = "queryType=" + std::string(std::min<std::size_t>(length, 24), 'N') + ", ";
        EXPECT_NE(std::string::npos, messageOf(trace.lines(), 2208).find(shown)) << length;
        EXPECT_NE(std::string::npos, messageOf(trace.lines(), 2213).find(shown)) << length;
    }
}

TEST(Operation, OnStatisticsIsTracedWithItsOwnNumber)
{
    TraceFile trace(4);
    operation("GET_STATS", "", someStats);
    std::string message = messageOf(trace.lines(), 2210);
    EXPECT_EQ(0u, message.find("stapi_krv_statcomms.statCommsString"));
    EXPECT_NE(std::string::npos, message.find("Successfully called the Gateway for Stats"));
    EXPECT_TRUE(linesNumbered(trace.lines(), 2211).empty());
}

TEST(Operation, WithoutIdsIsTracedAtLevelThree)
{
    TraceFile trace(3);
    ScriptedPeer peer = ScriptedPeer::onSocketPair(exchangeWithData(5, someIds));
    ResultBuffer buffer;
    ReasonCodes reasons{};
    char queryType[] = "STAT_IDS";
    statComms(peer.clientSocket(), queryType, &buffer.block, &buffer.length, &reasons);
    EXPECT_EQ("ENTRY", linesNumbered(trace.lines(), 2206).at(0).kind);
    EXPECT_EQ("EXIT", linesNumbered(trace.lines(), 2207).at(0).kind);
    EXPECT_EQ(0u, messageOf(trace.lines(), 2206).find("stapi_krv_statcomms.statComms("));
    EXPECT_EQ(0u, messageOf(trace.lines(), 2207).find("stapi_krv_statcomms.statComms("));
    EXPECT_TRUE(linesNumbered(trace.lines(), 2209).empty());
}

// ---- Wrappers -----------------------------------------------------------------------------------------------------

namespace {

char someQuery[] = "one:two";

struct Wrapper {
    const char* name;
    int (*call)(int socket, char** buffer, int* length);
    const char* operation;
    const char* ids;
    bool statistics;
};

const Wrapper wrappers[] = {
    {"commsResourceGroupsIds", commsResourceGroupsIds, "RESOURCE_GROUPS", "", false},
    {"commsStatIdsByStatGroupId",
     [](int socket, char** buffer, int* length) { return commsStatIdsByStatGroupId(socket, buffer, length, someQuery); },
     "STAT_IDS", "one:two", false},
    {"commsStatIds", commsStatIds, "STAT_IDS", "", false},
    {"commsStatsByStatId",
     [](int socket, char** buffer, int* length) { return commsStatsByStatId(socket, buffer, length, someQuery); },
     "GET_STATS", "one:two", true},
    {"commsStatsByStatGroupId",
     [](int socket, char** buffer, int* length) { return commsStatsByStatGroupId(socket, buffer, length, someQuery); },
     "GET_STATS", "one:two", true},
    {"commsStats", commsStats, "GET_STATS", "", true},
};

const Bytes& dataFor(const Wrapper& wrapper)
{
    return wrapper.statistics ? someStats : someIds;
}

}  // namespace

TEST(Wrapper, EachInvokesItsOperation)
{
    for (const Wrapper& wrapper : wrappers) {
        SCOPED_TRACE(wrapper.name);
        ScriptedPeer peer = ScriptedPeer::onSocketPair(exchangeWithData(5, dataFor(wrapper)));
        ResultBuffer buffer;
        EXPECT_EQ(0, wrapper.call(peer.clientSocket(), &buffer.block, &buffer.length));
        peer.finish();
        EXPECT_EQ("", peer.problem());
        EXPECT_TRUE(sameBytes(adminInitRequest() + invokeRequest(version, wrapper.operation, wrapper.ids),
                              peer.received()));
        EXPECT_EQ(wrapper.statistics ? "KRVSTSET" : "KRVIDSET", buffer.category());
    }
}

TEST(Wrapper, WithoutABufferSendsNothing)
{
    for (const Wrapper& wrapper : wrappers) {
        SCOPED_TRACE(wrapper.name);
        ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
        char* noBuffer = nullptr;
        int length = 32768;
        EXPECT_EQ(-103, wrapper.call(peer.clientSocket(), &noBuffer, &length));
        peer.closeClientSocket();
        peer.finish();
        EXPECT_EQ("", peer.problem());
        EXPECT_EQ(32768, length);
    }
}

TEST(Wrapper, WhatCouldNotBeSentIsMinus102)
{
    for (const Wrapper& wrapper : wrappers) {
        SCOPED_TRACE(wrapper.name);
        ScriptedPeer peer = ScriptedPeer::onSocketPair({closeLink()});
        peer.finish();
        ResultBuffer buffer;
        EXPECT_EQ(-102, wrapper.call(peer.clientSocket(), &buffer.block, &buffer.length));
        EXPECT_EQ(-102, wrapper.call(-1, &buffer.block, &buffer.length));
    }
}

TEST(Wrapper, EveryOtherFailureIsMinus122)
{
    ReplyHeader bad;
    bad.eyecatcher = 3;
    const struct {
        const char* how;
        Bytes replyBytes;
        int rc;
    } rows[] = {
        {"code -4", refusal("Admin", -4), -122},     // the gateway's code stands in the reasons, and is not 61444
        {"code 61444", refusal("Admin", 61444), -122},
        {"code -1", refusal("Admin", -1), -102},     // cannot be told from a request that was not sent
        {"code 3", refusal("Admin", 3), -122},
        {"code -111", refusal("Admin", -111), -122},
        {"code -102", refusal("Admin", -102), -122},
        {"failed call", reply("Admin", be32(5) + be32(61444) + hex("00")), -122},
        {"exception", adminCallReply(5, {}, 0, 1), -122},
        {"short", reply("Admin", zeros(4)), -122},
        {"bad eyecatcher", replyHeader(bad), -122},
    };
    for (const Wrapper& wrapper : wrappers) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(wrapper.name) + " " + row.how);
            for (const Script& script : {endedByInit(row.replyBytes), endedByCall(row.replyBytes)}) {
                ScriptedPeer peer = ScriptedPeer::onSocketPair(script);
                ResultBuffer buffer;
                EXPECT_EQ(row.rc, wrapper.call(peer.clientSocket(), &buffer.block, &buffer.length));
                peer.closeClientSocket();
                peer.finish();
            }
        }
    }
}

TEST(Wrapper, CloseInEitherCallIsMinus122)
{
    for (const Wrapper& wrapper : wrappers) {
        SCOPED_TRACE(wrapper.name);
        for (const Script& script :
             {Script{expectMessage(), closeLink()},
              Script{expectMessage(), sendWhole(adminInitReply(version)), expectMessage(), closeLink()}}) {
            ScriptedPeer peer = ScriptedPeer::onSocketPair(script);
            ResultBuffer buffer;
            EXPECT_EQ(-122, wrapper.call(peer.clientSocket(), &buffer.block, &buffer.length));
        }
    }
}

TEST(Wrapper, GrowthThatFailsIsMinus122WithoutABuffer)
{
    const std::string large(30000, 'v');
    for (const Wrapper& wrapper : wrappers) {
        SCOPED_TRACE(wrapper.name);
        const Bytes data = wrapper.statistics ? statsData("", 0, {{"a", large}, {"b", large}})
                                              : idsData("", 0, {large, large});
        ScriptedPeer peer = ScriptedPeer::onSocketPair(exchangeWithData(5, data));
        ResultBuffer buffer;
        Injected run = withFailing(
            failingMalloc, ENOMEM,
            [&] { return wrapper.call(peer.clientSocket(), &buffer.block, &buffer.length); }, 0, 65536);
        EXPECT_EQ(1, run.hits);
        EXPECT_EQ(-122, run.result);
        EXPECT_EQ(nullptr, buffer.block);
    }
}

TEST(Wrapper, EntryAndExitAreTracedAtLevelThree)
{
    const struct {
        const Wrapper& wrapper;
        const char* label;
    } rows[] = {{wrappers[0], "krvstatRc"}, {wrappers[1], "krvStatRc"}, {wrappers[2], "krvstatRc"},
                {wrappers[3], "krvStatRc"}, {wrappers[4], "krvStatRc"}, {wrappers[5], "krvstatRc"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.wrapper.name);
        TraceFile trace(3);
        ScriptedPeer peer = ScriptedPeer::onSocketPair(endedByInit(refusal("Admin", 61444)));
        ResultBuffer buffer;
        row.wrapper.call(peer.clientSocket(), &buffer.block, &buffer.length);
        std::vector<TraceLine> own;
        for (const TraceLine& line : trace.lines())
            if (line.number >= 2300 && line.number <= 2317) own.push_back(line);
        ASSERT_EQ(2u, own.size()) << trace.text();
        const std::string origin = std::string("stapi_krv_statquery.") + row.wrapper.name + "(socketDesc=" +
                                   std::to_string(peer.clientSocket()) + ", *buffer=" + pointerText(buffer.block);
        EXPECT_EQ("ENTRY", own[0].kind);
        EXPECT_EQ(0u, own[0].message.find(origin)) << own[0].message;
        EXPECT_EQ("EXIT", own[1].kind);
        EXPECT_EQ(0u, own[1].message.find(origin)) << own[1].message;
        const std::string end = std::string(row.label) + "=-122";
        ASSERT_GE(own[1].message.size(), end.size());
        EXPECT_EQ(end, own[1].message.substr(own[1].message.size() - end.size())) << own[1].message;
        peer.closeClientSocket();
    }
}

TEST(Wrapper, LinesWithFixedWordsAreToTheLetter)
{
    TraceFile trace(4);
    ScriptedPeer peer = ScriptedPeer::onSocketPair(exchangeWithData(5, someStats) + exchangeWithData(5, someStats) +
                                                   exchangeWithData(5, someIds));
    ResultBuffer buffer;
    const std::string socket = std::to_string(peer.clientSocket());
    const std::string place = pointerText(buffer.block);
    ASSERT_EQ(0, commsStats(peer.clientSocket(), &buffer.block, &buffer.length));
    EXPECT_NE(std::string::npos, trace.text().find("stapi_krv_statquery.commsStats(socketDesc=" + socket +
                                                   ", *buffer=" + place + ", *bufferLen=32768) krvstatRc=0\n"));
    ASSERT_EQ(0, commsStatsByStatGroupId(peer.clientSocket(), &buffer.block, &buffer.length, someQuery));
    EXPECT_NE(std::string::npos,
              trace.text().find("stapi_krv_statquery.commsStatsByStatGroupId(socketDesc=" + socket + ", *buffer=" +
                                place + ", *bufferLen, ids=" + pointerText(someQuery) + ")\n"));
    trace.forget();
    ASSERT_EQ(0, commsStatIdsByStatGroupId(peer.clientSocket(), &buffer.block, &buffer.length, someQuery));
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ((std::vector<int>{2302, 2313, 2303}), numbersOf(lines, 2300, 2317)) << trace.text();
    EXPECT_EQ("DATA", linesNumbered(lines, 2313).at(0).kind);
    EXPECT_NE(std::string::npos,
              messageOf(lines, 2313).find("data=" + place + " len=0 stopword=0E0F0E0F"));
    EXPECT_FALSE(linesNumbered(lines, 2313).at(0).dump.empty());
}
