// Handshake, authorisation and close: their bytes, what is made of the replies, what is echoed.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "failing_calls.h"
#include "scripted_peer.h"
#include "stapi_krv_gwycon.h"
#include "stapi_krv_requests.h"
#include "stapi_krv_socketcomms.h"
#include "trace_capture.h"
#include "wire_bytes.h"

using namespace krvtest;

namespace {

constexpr std::int32_t Untouched = 0x2B2B2B2B;

const Bytes protocolMap = hex("01 02 03 04 05 06 07 08");
const Bytes serverVersion = hex("A1 B2 C3 D4");
const Bytes returnMap = hex("11 22 33 44 55 66 77 88");

// What a call on a socket left behind.
struct Outcome {
    int rc = Untouched;
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    AuthRequest request{};
    std::vector<Bytes> sent;
};

void expectReasons(const Outcome& outcome, std::int32_t socketErrno, std::int32_t gatewayRc, std::int32_t authRc)
{
    EXPECT_EQ(socketErrno, outcome.reasons.socketErrno);
    EXPECT_EQ(gatewayRc, outcome.reasons.gatewayRc);
    EXPECT_EQ(authRc, outcome.reasons.authRc);
    EXPECT_EQ(Untouched, outcome.reasons.adminRc);
}

void expectNoReasons(const Outcome& outcome)
{
    expectReasons(outcome, Untouched, Untouched, Untouched);
}

Outcome handshakeWith(Script script)
{
    ScriptedPeer peer({std::move(script)});
    Outcome outcome;
    int client = connectToPeer(peer);
    errno = 0;
    outcome.rc = flowHandshakeRequest(client, &outcome.reasons);
    close(client);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    outcome.sent = peer.messages();
    return outcome;
}

Outcome closeWith(Script script)
{
    ScriptedPeer peer({std::move(script)});
    Outcome outcome;
    int client = connectToPeer(peer);
    errno = 0;
    outcome.rc = flowCloseRequest(client, &outcome.reasons);
    close(client);
    peer.finish();
    EXPECT_EQ("", peer.problem());
    outcome.sent = peer.messages();
    return outcome;
}

AuthRequest authRequest(std::int32_t callType)
{
    AuthRequest request{};
    request.header.eyecatcher = 0x47617465;
    request.header.flowVersion = 0x700000;
    request.header.flowType = 1;
    request.header.requestType = "Auth";
    request.header.requestTypeLength = 4;
    request.header.datalength = callType == 1 ? 20 : 4;
    request.callType = callType;
    request.authRc = Untouched;
    std::memcpy(&request.activeProtocolMap, "MAPMAPMA", 8);
    std::memcpy(&request.serverVersion, "VERS", 4);
    std::memset(&request.protocolDataLength, 0, 4);
    std::memcpy(&request.protocolReturnMap, "RETURNMA", 8);
    return request;
}

Bytes bytesOf(const void* place, std::size_t size)
{
    Bytes bytes(size);
    std::memcpy(bytes.data(), place, size);
    return bytes;
}

// One authorisation call, answered with this reply.
Outcome authorise(const AuthRequest& request, const Bytes& replyBytes)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectMessage(), sendWhole(replyBytes)});
    Outcome outcome;
    outcome.request = request;
    outcome.rc = flowAuthRequest(peer.clientSocket(), &outcome.request, &outcome.reasons);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());
    outcome.sent = peer.messages();
    return outcome;
}

void expectMaps(const Outcome& outcome, const Bytes& active, const Bytes& version, const Bytes& returned)
{
    EXPECT_TRUE(sameBytes(active, bytesOf(&outcome.request.activeProtocolMap, 8)));
    EXPECT_TRUE(sameBytes(version, bytesOf(&outcome.request.serverVersion, 4)));
    EXPECT_TRUE(sameBytes(returned, bytesOf(&outcome.request.protocolReturnMap, 8)));
}

// The two steps, answered with these replies; the second request is read as so many bytes.
Outcome authoriseTwice(const Bytes& firstReply, std::size_t secondRequest, const Bytes& secondReply)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair(
        {expectBytes(37), sendWhole(firstReply), expectBytes(secondRequest), sendWhole(secondReply), expectClose()});
    Outcome outcome;
    outcome.rc = authorizeConnection(peer.clientSocket(), &outcome.reasons);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());
    outcome.sent = peer.messages();
    EXPECT_EQ(3u, outcome.sent.size());
    outcome.sent.resize(3);
    EXPECT_TRUE(sameBytes({}, outcome.sent[2]));
    return outcome;
}

// A first step that ends the exchange.
Outcome authoriseOnce(const Bytes& firstReply)
{
    ScriptedPeer peer =
        ScriptedPeer::onSocketPair({expectBytes(37), sendWhole(firstReply), expectCloseWithoutBytes()});
    Outcome outcome;
    errno = 0;
    outcome.rc = authorizeConnection(peer.clientSocket(), &outcome.reasons);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());
    outcome.sent = peer.messages();
    return outcome;
}

std::vector<int> numbersOf(const std::vector<TraceLine>& lines, int from, int to)
{
    std::vector<int> numbers;
    for (const TraceLine& line : lines)
        if (line.number >= from && line.number <= to) numbers.push_back(line.number);
    return numbers;
}

}  // namespace

// ---- Handshake ----------------------------------------------------------------------------------------------------

TEST(Handshake, IsFiftyOneBytes)
{
    Outcome outcome = handshakeWith({expectMessage(), sendWhole(handshakeReply()), expectCloseWithoutBytes()});
    EXPECT_EQ(0, outcome.rc);
    ASSERT_EQ(1u, outcome.sent.size());
    EXPECT_EQ(51u, outcome.sent[0].size());
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"                      // eyecatcher
                              "00 70 00 00"                      // flow version
                              "00 00 00 05"                      // flow type: handshake
                              "00 00 00 00"                      // return code
                              "00 00 00 00"                      // message id
                              "00 00 00 04"                      // length of the name
                              "42 41 53 45"                      // "BASE"
                              "00"                               // security
                              "00 00 00 12"                      // 18 bytes of body
                              "00 02 65 6E"                      // "en"
                              "00 02 47 42"                      // "GB"
                              "00 00 00 00 00 00 00 00 00 00"),  // ten zero bytes
                          outcome.sent[0]));
    expectNoReasons(outcome);
}

TEST(Handshake, DoesNotLookAtTheBodyOfTheReply)
{
    EXPECT_EQ(0, handshakeWith({expectMessage(), sendWhole(reply("BASE", text("anything at all")))}).rc);
    EXPECT_EQ(0, handshakeWith({expectMessage(), sendWhole(reply("BASE", hex("FF")))}).rc);
}

TEST(Handshake, FailureOfTheExchangeIsItsResult)
{
    Outcome refused = handshakeWith({expectMessage(), sendWhole(refusal("BASE", 5))});
    EXPECT_EQ(5, refused.rc);
    expectReasons(refused, Untouched, 5, Untouched);

    Outcome closed = handshakeWith({expectMessage(), closeLink()});
    EXPECT_EQ(-122, closed.rc);
    expectReasons(closed, -1, Untouched, Untouched);

    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    EXPECT_EQ(-1, flowHandshakeRequest(-1, &reasons));
    EXPECT_EQ(EBADF, reasons.socketErrno);
}

TEST(Handshake, WithoutMemoryNothingIsSent)
{
    TraceFile trace(1);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    Injected run = withFailing(
        failingMalloc, ENOMEM, [&] { return flowHandshakeRequest(peer.clientSocket(), &reasons); }, 0, 51);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ(1, run.hits);
    EXPECT_EQ(-111, run.result);
    EXPECT_EQ("", peer.problem());
    EXPECT_EQ(Untouched, reasons.socketErrno);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flowHandshakeRequestFailed to allocate 51 bytes.", lines[0].message);
    EXPECT_GE(lines[0].number, 3215);
    EXPECT_LE(lines[0].number, 3219);
}

TEST(Handshake, IsTracedInItsOwnNumbers)
{
    TraceFile trace(4);
    handshakeWith({expectMessage(), sendWhole(handshakeReply())});
    std::vector<TraceLine> lines = trace.lines();
    std::vector<int> numbers = numbersOf(lines, 3215, 3219);
    ASSERT_EQ(4u, numbers.size()) << trace.text();
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    const TraceLine entry = linesNumbered(lines, numbers[0]).at(0);
    const TraceLine allocated = linesNumbered(lines, numbers[1]).at(0);
    const TraceLine freed = linesNumbered(lines, numbers[2]).at(0);
    const TraceLine exit = linesNumbered(lines, numbers[3]).at(0);
    EXPECT_EQ(3215, entry.number);
    EXPECT_EQ("ENTRY", entry.kind);
    EXPECT_EQ(0u, entry.message.find("stapi_krv_socketcomms.flowHandshakeRequest("));
    EXPECT_EQ("DEBUG", allocated.kind);
    EXPECT_EQ(0u, allocated.message.find(
                      "stapi_krv_socketcomms.flowHandshakeRequest Called malloc for 51 bytes. rc=0x"));
    EXPECT_EQ("DEBUG", freed.kind);
    EXPECT_EQ(0u, freed.message.find("stapi_krv_socketcomms.flowHandshakeRequest Free handshake data 0x"));
    EXPECT_EQ("EXIT", exit.kind);
    EXPECT_EQ(3219, exit.number);
    EXPECT_NE(std::string::npos, exit.message.find("rc=0"));
}

// ---- Close --------------------------------------------------------------------------------------------------------

TEST(CloseRequest, IsThirtyThreeBytesWithMessageIdMinusOne)
{
    Outcome outcome = closeWith({expectMessage(), sendWhole(closeReply()), expectCloseWithoutBytes()});
    EXPECT_EQ(0, outcome.rc);
    ASSERT_EQ(1u, outcome.sent.size());
    EXPECT_EQ(33u, outcome.sent[0].size());
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"     // eyecatcher
                              "00 70 00 00"     // flow version
                              "00 00 00 0A"     // flow type: close
                              "00 00 00 00"     // return code
                              "FF FF FF FF"     // message id -1
                              "00 00 00 04"     // length of the name
                              "42 41 53 45"     // "BASE"
                              "00"              // security
                              "00 00 00 00"),   // no body
                          outcome.sent[0]));
    expectNoReasons(outcome);
}

TEST(CloseRequest, DoesNotLookAtTheBodyOfTheReply)
{
    EXPECT_EQ(0, closeWith({expectMessage(), sendWhole(reply("BASE", text("bye bye")))}).rc);
}

TEST(CloseRequest, FailureOfTheExchangeIsItsResult)
{
    EXPECT_EQ(-9, closeWith({expectMessage(), sendWhole(refusal("BASE", -9))}).rc);
    EXPECT_EQ(-122, closeWith({expectMessage(), closeLink()}).rc);
}

TEST(CloseRequest, WithoutMemoryNothingIsSent)
{
    TraceFile trace(1);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    Injected run = withFailing(
        failingMalloc, ENOMEM, [&] { return flowCloseRequest(peer.clientSocket(), &reasons); }, 0, 33);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ(1, run.hits);
    EXPECT_EQ(-111, run.result);
    EXPECT_EQ("", peer.problem());
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flowCloseRequest Failed to allocate 33 bytes.", lines[0].message);
    EXPECT_GE(lines[0].number, 3220);
    EXPECT_LE(lines[0].number, 3224);
}

TEST(CloseRequest, IsTracedInItsOwnNumbers)
{
    TraceFile trace(4);
    closeWith({expectMessage(), sendWhole(closeReply())});
    std::vector<TraceLine> lines = trace.lines();
    std::vector<int> numbers = numbersOf(lines, 3220, 3224);
    ASSERT_EQ(4u, numbers.size()) << trace.text();
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_EQ(3220, numbers[0]);
    EXPECT_EQ(3224, numbers[3]);
    EXPECT_EQ("ENTRY", linesNumbered(lines, numbers[0]).at(0).kind);
    EXPECT_EQ(0u, linesNumbered(lines, numbers[1])
                      .at(0)
                      .message.find("stapi_krv_socketcomms.flowCloseRequest Called malloc for 33 bytes. rc=0x"));
    EXPECT_EQ(0u, linesNumbered(lines, numbers[2])
                      .at(0)
                      .message.find("stapi_krv_socketcomms.flowCloseRequest Free close request data 0x"));
    EXPECT_EQ("EXIT", linesNumbered(lines, numbers[3]).at(0).kind);
}

// ---- A single authorisation call ----------------------------------------------------------------------------------

TEST(Authorisation, FirstRequestIsThirtySevenBytes)
{
    Outcome outcome = authorise(authRequest(0), authInitReply(protocolMap, serverVersion));
    EXPECT_EQ(0, outcome.rc);
    ASSERT_EQ(1u, outcome.sent.size());
    EXPECT_EQ(37u, outcome.sent[0].size());
    EXPECT_TRUE(sameBytes(authInitRequest(), outcome.sent[0]));
}

TEST(Authorisation, SecondRequestIsFiftyThreeBytes)
{
    AuthRequest request = authRequest(1);
    std::memcpy(&request.protocolDataLength, "DLEN", 4);
    Outcome outcome = authorise(request, authConfirmReply(returnMap));
    EXPECT_EQ(0, outcome.rc);
    ASSERT_EQ(1u, outcome.sent.size());
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"      // eyecatcher
                              "00 70 00 00"      // flow version
                              "00 00 00 01"      // flow type: authorisation
                              "00 00 00 00"      // return code
                              "00 00 00 00"      // message id
                              "00 00 00 04"      // length of the name
                              "41 75 74 68"      // "Auth"
                              "00"               // security
                              "00 00 00 14"      // 20 bytes of body
                              "00 00 00 01") +   // call type: confirm
                              text("MAPMAPMA") + text("VERS") + text("DLEN"),
                          outcome.sent[0]));
    EXPECT_EQ(53u, outcome.sent[0].size());
}

TEST(Authorisation, OtherCallTypesCarryTheCallTypeAlone)
{
    for (std::int32_t callType : {2, -1, 0x01000000}) {
        SCOPED_TRACE(callType);
        Outcome outcome = authorise(authRequest(callType), authConfirmReply(returnMap));
        ASSERT_EQ(1u, outcome.sent.size());
        EXPECT_TRUE(sameBytes(slice(authInitRequest(), 0, 33) + be32(callType), outcome.sent[0]));
    }
}

TEST(Authorisation, EveryHeaderFieldOfTheRecordIsSent)
{
    AuthRequest request = authRequest(0);
    request.header.eyecatcher = 0x01020304;
    request.header.flowVersion = 0x11121314;
    request.header.flowType = 0x21222324;
    request.header.gatewayRc = 0x31323334;
    request.header.messageId = 0x41424344;
    request.header.security = static_cast<char>(0xF1);
    Outcome outcome = authorise(request, authInitReply(protocolMap, serverVersion));
    ASSERT_EQ(1u, outcome.sent.size());
    EXPECT_TRUE(sameBytes(hex("01020304 11121314 21222324 31323334 41424344 00000004 41757468 F1 00000004 00000000"),
                          outcome.sent[0]));
}

TEST(Authorisation, AcceptedInitGivesMapAndServerVersion)
{
    Outcome outcome = authorise(authRequest(0), authInitReply(protocolMap, serverVersion));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_EQ(0, outcome.request.callType);
    EXPECT_EQ(0, outcome.request.authRc);
    EXPECT_EQ(20, outcome.request.header.datalength);
    expectMaps(outcome, protocolMap, serverVersion, text("RETURNMA"));
    expectNoReasons(outcome);
}

TEST(Authorisation, RefusedInitIsMinusTwo)
{
    for (std::int32_t authRc : {8, -1, 0x01000000, std::numeric_limits<std::int32_t>::min()}) {
        SCOPED_TRACE(authRc);
        TraceFile trace(1);
        Outcome outcome = authorise(authRequest(0), authInitReply(protocolMap, serverVersion, authRc));
        EXPECT_EQ(-2, outcome.rc);
        EXPECT_EQ(0, outcome.request.callType);
        EXPECT_EQ(authRc, outcome.request.authRc);
        expectReasons(outcome, Untouched, Untouched, authRc);
        expectMaps(outcome, text("MAPMAPMA"), text("VERS"), text("RETURNMA"));
        std::vector<TraceLine> lines = trace.lines();
        ASSERT_EQ(1u, lines.size()) << trace.text();
        EXPECT_EQ("*EXC*", lines[0].kind);
        EXPECT_GE(lines[0].number, 3209);
        EXPECT_LE(lines[0].number, 3214);
        EXPECT_EQ("stapi_krv_socketcomms.flowAuthRequestAuth_Init request failed rc=" + std::to_string(authRc),
                  lines[0].message);
    }
}

TEST(Authorisation, ConfirmReplyGivesTheReturnMap)
{
    Outcome outcome = authorise(authRequest(1), authConfirmReply(returnMap));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_EQ(1, outcome.request.callType);
    expectMaps(outcome, text("MAPMAPMA"), text("VERS"), returnMap);
    expectNoReasons(outcome);
}

TEST(Authorisation, ReturnCodeOfAConfirmReplyIsNotExamined)
{
    Outcome outcome = authorise(authRequest(1), authConfirmReply(returnMap, 8));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_EQ(8, outcome.request.authRc);
    expectMaps(outcome, text("MAPMAPMA"), text("VERS"), returnMap);
    expectNoReasons(outcome);
}

TEST(Authorisation, TheCallTypeOfTheReplyDecides)
{
    // A confirmation answered as an init call, an init call answered with a call type that nobody knows.
    Outcome init = authorise(authRequest(1), authInitReply(protocolMap, serverVersion));
    EXPECT_EQ(0, init.rc);
    expectMaps(init, protocolMap, serverVersion, text("RETURNMA"));

    Outcome refused = authorise(authRequest(1), authInitReply(protocolMap, serverVersion, 4));
    EXPECT_EQ(-2, refused.rc);

    Outcome other = authorise(authRequest(0), reply("Auth", be32(-7) + be32(4) + returnMap));
    EXPECT_EQ(0, other.rc);
    EXPECT_EQ(-7, other.request.callType);
    expectMaps(other, text("MAPMAPMA"), text("VERS"), returnMap);
}

TEST(Authorisation, OpaqueBytesSurviveWhateverTheyMeanAsNumbers)
{
    // Signalling NaNs in either byte order, infinities, denormals: a copy through a floating-point register shows.
    const char* const patterns[] = {"7F F0 00 00 00 00 00 01", "01 00 00 00 00 00 F0 7F", "FF F7 FF FF FF FF FF FF",
                                    "FF FF FF FF FF FF F7 FF", "7F F0 00 00 00 00 00 00", "00 00 00 00 00 00 F0 7F",
                                    "00 00 00 00 00 00 00 01", "80 00 00 00 00 00 00 00", "00 00 00 00 00 00 00 80"};
    for (const char* pattern : patterns) {
        SCOPED_TRACE(pattern);
        Outcome init = authorise(authRequest(0), authInitReply(hex(pattern), hex("80 00 00 7F")));
        expectMaps(init, hex(pattern), hex("80 00 00 7F"), text("RETURNMA"));
        Outcome confirm = authorise(authRequest(1), authConfirmReply(hex(pattern)));
        expectMaps(confirm, text("MAPMAPMA"), text("VERS"), hex(pattern));
    }
}

TEST(Authorisation, BytesBehindTheFieldsArePassedOver)
{
    Outcome init = authorise(authRequest(0), reply("Auth", authInitBody(protocolMap, serverVersion) + text("more")));
    EXPECT_EQ(0, init.rc);
    expectMaps(init, protocolMap, serverVersion, text("RETURNMA"));
    EXPECT_EQ(24, init.request.header.datalength);
}

TEST(Authorisation, InitReplyCutBehindItsReturnCodeIsFilledUpWithZeros)
{
    const Bytes whole = authInitBody(protocolMap, serverVersion);
    for (std::size_t size = 8; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        Outcome outcome = authorise(authRequest(0), reply("Auth", slice(whole, 0, size)));
        EXPECT_EQ(0, outcome.rc);
        Bytes there = slice(whole, 0, size) + zeros(whole.size() - size);
        expectMaps(outcome, slice(there, 8, 8), slice(there, 16, 4), text("RETURNMA"));
        expectNoReasons(outcome);
    }
}

TEST(Authorisation, ConfirmReplyCutBehindItsReturnCodeIsFilledUpWithZeros)
{
    const Bytes whole = authConfirmBody(returnMap);
    for (std::size_t size = 8; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        Outcome outcome = authorise(authRequest(1), reply("Auth", slice(whole, 0, size)));
        EXPECT_EQ(0, outcome.rc);
        expectMaps(outcome, text("MAPMAPMA"), text("VERS"), slice(whole, 8, size - 8) + zeros(whole.size() - size));
    }
}

TEST(Authorisation, ReplyCutInFrontOfItsReturnCodeIsABadReply)
{
    for (std::int32_t callType : {0, 1}) {
        const Bytes whole = be32(callType) + be32(0) + returnMap + serverVersion;
        for (std::size_t size = 1; size < 8; ++size) {
            SCOPED_TRACE(size);
            Outcome outcome = authorise(authRequest(callType), reply("Auth", slice(whole, 0, size)));
            EXPECT_EQ(-122, outcome.rc);
            expectMaps(outcome, text("MAPMAPMA"), text("VERS"), text("RETURNMA"));
            EXPECT_EQ(Untouched, outcome.reasons.authRc);
        }
    }
}

TEST(Authorisation, RefusalWithNothingBehindItsReturnCodeIsARefusal)
{
    Outcome outcome = authorise(authRequest(0), reply("Auth", be32(0) + be32(3)));
    EXPECT_EQ(-2, outcome.rc);
    expectReasons(outcome, Untouched, Untouched, 3);
}

TEST(Authorisation, ReplyWithoutABodyIsDecodedFromTheRequest)
{
    // The request stays where the body would be: its eyecatcher is taken as the call type, its flow version as the
    // return code, and its flow type and return code as the map.
    Outcome outcome = authorise(authRequest(0), reply("Auth", {}));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_EQ(0x47617465, outcome.request.callType);
    EXPECT_EQ(0x700000, outcome.request.authRc);
    expectMaps(outcome, text("MAPMAPMA"), text("VERS"), hex("00 00 00 01 00 00 00 00"));
    expectNoReasons(outcome);
}

TEST(Authorisation, ReplyWithoutABodyToAZeroedHeaderIsDecodedAsAnInitReply)
{
    AuthRequest request = authRequest(0);
    request.header.eyecatcher = 0;
    request.header.flowVersion = 0;
    request.header.flowType = 0x21222324;
    request.header.gatewayRc = 0x31323334;
    request.header.messageId = 0x41424344;
    Outcome outcome = authorise(request, reply("Auth", {}));
    EXPECT_EQ(0, outcome.rc);
    expectMaps(outcome, hex("21 22 23 24 31 32 33 34"), hex("41 42 43 44"), text("RETURNMA"));
}

TEST(Authorisation, FailureOfTheExchangeIsItsResult)
{
    Outcome refused = authorise(authRequest(0), refusal("Auth", 61444, authInitBody(protocolMap, serverVersion)));
    EXPECT_EQ(61444, refused.rc);
    expectReasons(refused, Untouched, 61444, Untouched);
    expectMaps(refused, text("MAPMAPMA"), text("VERS"), text("RETURNMA"));

    ReplyHeader bad;
    bad.name = "Auth";
    bad.eyecatcher = 0x12345678;
    EXPECT_EQ(-122, authorise(authRequest(0), replyHeader(bad)).rc);

    AuthRequest request = authRequest(0);
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    EXPECT_EQ(-1, flowAuthRequest(-1, &request, &reasons));
    EXPECT_EQ(EBADF, reasons.socketErrno);
}

TEST(Authorisation, WithoutMemoryNothingIsSent)
{
    TraceFile trace(1);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
    AuthRequest request = authRequest(1);
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    Injected run = withFailing(
        failingMalloc, ENOMEM, [&] { return flowAuthRequest(peer.clientSocket(), &request, &reasons); }, 0, 53);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ(1, run.hits);
    EXPECT_EQ(-111, run.result);
    EXPECT_EQ("", peer.problem());
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flowAuthRequestFailed to allocate 53 bytes.", lines[0].message);
}

TEST(Authorisation, IsTracedInItsOwnNumbers)
{
    TraceFile trace(4);
    authorise(authRequest(0), authInitReply(protocolMap, serverVersion));
    std::vector<TraceLine> lines = trace.lines();
    std::vector<int> numbers = numbersOf(lines, 3209, 3214);
    ASSERT_EQ(4u, numbers.size()) << trace.text();
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_EQ(3209, numbers[0]);
    EXPECT_EQ(3214, numbers[3]);
    EXPECT_EQ("ENTRY", linesNumbered(lines, numbers[0]).at(0).kind);
    EXPECT_EQ(0u, linesNumbered(lines, numbers[1])
                      .at(0)
                      .message.find("stapi_krv_socketcomms.flowAuthRequest Called malloc for 37 bytes. rc=0x"));
    EXPECT_EQ(0u, linesNumbered(lines, numbers[2])
                      .at(0)
                      .message.find("stapi_krv_socketcomms.flowAuthRequest Free request data 0x"));
    EXPECT_EQ("EXIT", linesNumbered(lines, numbers[3]).at(0).kind);
    EXPECT_NE(std::string::npos, linesNumbered(lines, numbers[3]).at(0).message.find("rc=0"));
}

// ---- Both steps ---------------------------------------------------------------------------------------------------

TEST(AuthorisationSteps, EchoTheOpaqueBytes)
{
    Outcome outcome =
        authoriseTwice(authInitReply(protocolMap, serverVersion), 53, authConfirmReply(returnMap));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_TRUE(sameBytes(authInitRequest(), outcome.sent.at(0)));
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"                // eyecatcher
                              "00 70 00 00"                // flow version
                              "00 00 00 01"                // flow type: authorisation
                              "00 00 00 00"                // return code
                              "00 00 00 00"                // message id
                              "00 00 00 04"                // length of the name
                              "41 75 74 68"                // "Auth"
                              "00"                         // security
                              "00 00 00 14"                // 20 bytes of body
                              "00 00 00 01"                // call type: confirm
                              "01 02 03 04 05 06 07 08"    // map of the first reply
                              "A1 B2 C3 D4"                // server version of the first reply
                              "00 00 00 00"),              // length of protocol data
                          outcome.sent.at(1)));
    expectNoReasons(outcome);
}

TEST(AuthorisationSteps, EchoBytesThatAreSignallingNans)
{
    for (const char* pattern : {"7F F0 00 00 00 00 00 01", "01 00 00 00 00 00 F0 7F"}) {
        SCOPED_TRACE(pattern);
        Outcome outcome =
            authoriseTwice(authInitReply(hex(pattern), hex("FF 00 FF 00")), 53, authConfirmReply(returnMap));
        EXPECT_EQ(0, outcome.rc);
        EXPECT_TRUE(sameBytes(authConfirmRequest(hex(pattern), hex("FF 00 FF 00")), outcome.sent.at(1)));
    }
}

TEST(AuthorisationSteps, EchoAnOddReplyHeader)
{
    ReplyHeader odd;
    odd.name = "htuA";
    odd.flowVersion = 0x01020304;
    odd.flowType = 99;
    odd.messageId = 0x11121314;  // offset 12
    odd.security = 0xF7;
    odd.datalength = 25;
    Outcome outcome = authoriseTwice(replyHeader(odd) + authInitBody(protocolMap, serverVersion) + zeros(5), 53,
                                     authConfirmReply(returnMap));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"                // eyecatcher
                              "01 02 03 04"                // flow version of the first reply
                              "00 00 00 01"                // flow type: set again
                              "00 00 00 00"                // return code: set again
                              "11 12 13 14"                // message id of the first reply
                              "00 00 00 04"                // length of the name
                              "41 75 74 68"                // "Auth"
                              "F7"                         // security of the first reply
                              "00 00 00 14"                // 20 bytes of body: set again
                              "00 00 00 01"                // call type: confirm
                              "01 02 03 04 05 06 07 08"    // map
                              "A1 B2 C3 D4"                // server version
                              "00 00 00 00"),              // length of protocol data
                          outcome.sent.at(1)));
}

TEST(AuthorisationSteps, EchoAShorterNameLength)
{
    for (std::size_t nameLength = 0; nameLength < 4; ++nameLength) {
        SCOPED_TRACE(nameLength);
        // The header is read as 33 bytes whatever it says; what it says moves the security byte and the body's length.
        ReplyHeader shorter;
        shorter.name = std::string(nameLength, 'x');
        shorter.security = 0x42;
        shorter.datalength = 20;
        Bytes first = replyHeader(shorter) + zeros(4 - nameLength) + authInitBody(protocolMap, serverVersion);
        Outcome outcome = authoriseTwice(first, 49 + nameLength, authConfirmReply(returnMap));
        EXPECT_EQ(0, outcome.rc);
        EXPECT_TRUE(sameBytes(hex("47617465 00700000 00000001 00000000 00000000") +
                                  be32(static_cast<std::int32_t>(nameLength)) +     // length of the name
                                  slice(text("Auth"), 0, nameLength) +              // as much of it
                                  hex("42"                                          // security
                                      "00 00 00 14"                                 // 20 bytes of body
                                      "00 00 00 01") +                              // call type: confirm
                                  protocolMap + serverVersion + hex("00 00 00 00"),  //
                              outcome.sent.at(1)));
    }
}

TEST(AuthorisationSteps, EndAtANameLengthBeyondTheHeader)
{
    for (std::int32_t nameLength : {5, 8, 100, 1 << 20, std::numeric_limits<std::int32_t>::max(), -1, -4,
                                    std::numeric_limits<std::int32_t>::min()}) {
        SCOPED_TRACE(nameLength);
        Bytes first = hex("47617465 00700000 00000001 00000000 00000000") + be32(nameLength) + text("Auth") +
                      hex("00") + be32(20) + authInitBody(protocolMap, serverVersion);
        EXPECT_EQ(-122, authoriseOnce(first).rc);
    }
}

TEST(AuthorisationSteps, ZerosAreEchoedForBytesThatDidNotArrive)
{
    Outcome outcome = authoriseTwice(reply("Auth", slice(authInitBody(protocolMap, serverVersion), 0, 13)), 53,
                                     authConfirmReply(returnMap));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_TRUE(sameBytes(authConfirmRequest(hex("01 02 03 04 05 00 00 00"), zeros(4)), outcome.sent.at(1)));
}

TEST(AuthorisationSteps, FirstReplyWithoutABodyIsGoneOnFrom)
{
    // Decoded from the request: no init reply, so there is nothing to echo.
    ScriptedPeer peer = ScriptedPeer::onSocketPair(
        {expectBytes(37), sendWhole(reply("Auth", {})), expectBytes(53), sendWhole(authConfirmReply(returnMap))});
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    EXPECT_EQ(0, authorizeConnection(peer.clientSocket(), &reasons));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(authConfirmRequest(zeros(8), zeros(4)), peer.messages().at(1)));
}

TEST(AuthorisationSteps, RefusedFirstStepEndsThem)
{
    Outcome outcome = authoriseOnce(authInitReply(protocolMap, serverVersion, 8));
    EXPECT_EQ(-2, outcome.rc);
    expectReasons(outcome, Untouched, Untouched, 8);
}

TEST(AuthorisationSteps, ReturnCodesOfTheHeaderEndThem)
{
    Outcome first = authoriseOnce(refusal("Auth", 3));
    EXPECT_EQ(3, first.rc);
    expectReasons(first, Untouched, 3, Untouched);

    Outcome second = authoriseTwice(authInitReply(protocolMap, serverVersion), 53, refusal("Auth", 61444));
    EXPECT_EQ(61444, second.rc);
    expectReasons(second, Untouched, 61444, Untouched);
}

TEST(AuthorisationSteps, AuthRcOfTheSecondReplyIsNotExamined)
{
    EXPECT_EQ(0, authoriseTwice(authInitReply(protocolMap, serverVersion), 53, authConfirmReply(returnMap, 12)).rc);
}

TEST(AuthorisationSteps, SecondReplyThatIsARefusedInitIsARefusal)
{
    Outcome outcome = authoriseTwice(authInitReply(protocolMap, serverVersion), 53,
                                     authInitReply(protocolMap, serverVersion, 12));
    EXPECT_EQ(-2, outcome.rc);
    expectReasons(outcome, Untouched, Untouched, 12);
}

TEST(AuthorisationSteps, CloseInEitherStepIsABadReply)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectBytes(37), closeLink()});
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    EXPECT_EQ(-122, authorizeConnection(peer.clientSocket(), &reasons));
    EXPECT_EQ(-1, reasons.socketErrno);

    ScriptedPeer second = ScriptedPeer::onSocketPair(
        {expectBytes(37), sendWhole(authInitReply(protocolMap, serverVersion)), expectBytes(53), closeLink()});
    EXPECT_EQ(-122, authorizeConnection(second.clientSocket(), &reasons));
}

TEST(AuthorisationSteps, AreTracedAtLevelThree)
{
    TraceFile trace(3);
    authoriseTwice(authInitReply(protocolMap, serverVersion), 53, authConfirmReply(returnMap));
    std::vector<TraceLine> lines = trace.lines();
    std::vector<TraceLine> entry = linesNumbered(lines, 3010);
    std::vector<TraceLine> exit = linesNumbered(lines, 3011);
    ASSERT_EQ(1u, entry.size()) << trace.text();
    ASSERT_EQ(1u, exit.size()) << trace.text();
    EXPECT_EQ("ENTRY", entry[0].kind);
    EXPECT_EQ(0u, entry[0].message.find("stapi_krv_gwycon.authorizeConnection("));
    EXPECT_EQ("EXIT", exit[0].kind);
    EXPECT_EQ(0u, exit[0].message.find("stapi_krv_gwycon.authorizeConnection("));
    EXPECT_EQ(2u, linesNumbered(lines, 3225).size());
}

// ---- Records that are no messages ---------------------------------------------------------------------------------

TEST(Authorisation, WhoseBodyDoesNotFitItsLengthIsNotSent)
{
    for (std::int32_t callType : {0, 1}) {
        const std::int32_t whole = authRequest(callType).header.datalength;
        for (std::int32_t datalength = -1; datalength < whole; ++datalength) {
            ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
            AuthRequest request = authRequest(callType);
            request.header.datalength = datalength;
            ReasonCodes reasons = {};
            EXPECT_EQ(-1, flowAuthRequest(peer.clientSocket(), &request, &reasons)) << callType << " " << datalength;
            peer.closeClientSocket();
            peer.finish();
            EXPECT_EQ("", peer.problem());
            EXPECT_TRUE(sameBytes({}, peer.received())) << datalength;
        }
    }
}
