// Admin calls: the bytes of each kind, what is made of the replies, and the init call that opens every exchange.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "failing_calls.h"
#include "scripted_peer.h"
#include "stapi_krv_requests.h"
#include "stapi_krv_socketcomms.h"
#include "stapi_krv_statcomms.h"
#include "trace_capture.h"
#include "wire_bytes.h"

using namespace krvtest;

namespace {

constexpr std::int32_t Untouched = 0x2B2B2B2B;

const char StatisticsObject[] = "DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats";

// A record for a call whose texts take up callInfoLength bytes.
AdminRequest adminRequest(std::int32_t callType, std::int32_t callInfoLength)
{
    AdminRequest request{};
    request.header.eyecatcher = 0x47617465;
    request.header.flowVersion = 0x700000;
    request.header.flowType = 1;
    request.header.requestType = "Admin";
    request.header.requestTypeLength = 5;
    request.header.datalength = callType > 0 ? callInfoLength + 12 : 4;
    request.callType = callType;
    request.adminRc = Untouched;
    std::memcpy(&request.serverVersion, "VERS", 4);
    request.callInfoLength = callInfoLength;
    request.clientCountry = "US";
    request.clientLanguage = "en";
    request.clientVariant = "";
    request.objectName = StatisticsObject;
    request.attributeName = "protocol";
    request.invokeAction = "GET_STATS";
    request.invokeParms = "";
    request.invokeSigs = "java.lang.String";
    request.exceptionFlag = 0x2B;
    return request;
}

AdminRequest invokeCall()
{
    return adminRequest(5, 4 + 4 + 2 + 62 + 11 + 6 + 5 + 22);
}

struct Outcome {
    int rc = Untouched;
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    AdminRequest request{};
    Bytes sent;
    Bytes callData;
    bool hasCallData = false;
};

Outcome call(const AdminRequest& request, const Bytes& replyBytes)
{
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectMessage(), sendWhole(replyBytes)});
    Outcome outcome;
    outcome.request = request;
    outcome.rc = flowAdminRequest(peer.clientSocket(), &outcome.request, &outcome.reasons);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ("", peer.problem());
    outcome.sent = peer.received();
    outcome.hasCallData = outcome.request.callData != nullptr;
    if (outcome.hasCallData && outcome.request.header.datalength > 0)
        outcome.callData.assign(outcome.request.callData,
                                outcome.request.callData + outcome.request.header.datalength);
    std::free(outcome.request.callData);
    outcome.request.callData = nullptr;
    return outcome;
}

void expectReasons(const Outcome& outcome, std::int32_t socketErrno, std::int32_t gatewayRc, std::int32_t adminRc)
{
    EXPECT_EQ(socketErrno, outcome.reasons.socketErrno);
    EXPECT_EQ(gatewayRc, outcome.reasons.gatewayRc);
    EXPECT_EQ(Untouched, outcome.reasons.authRc);
    EXPECT_EQ(adminRc, outcome.reasons.adminRc);
}

void expectNoReasons(const Outcome& outcome)
{
    expectReasons(outcome, Untouched, Untouched, Untouched);
}

Bytes serverVersionOf(const AdminRequest& request)
{
    Bytes bytes(4);
    std::memcpy(bytes.data(), &request.serverVersion, 4);
    return bytes;
}

std::vector<int> numbersOf(const std::vector<TraceLine>& lines, int from, int to)
{
    std::vector<int> numbers;
    for (const TraceLine& line : lines)
        if (line.number >= from && line.number <= to) numbers.push_back(line.number);
    return numbers;
}

const Bytes initReply = adminInitReply(hex("B1 B2 B3 B4"));

}  // namespace

// ---- Requests -----------------------------------------------------------------------------------------------------

TEST(AdminRequest, InitCallIsThirtyEightBytes)
{
    Outcome outcome = call(adminRequest(0, 0), initReply);
    EXPECT_EQ(0, outcome.rc);
    EXPECT_EQ(38u, outcome.sent.size());
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"      // eyecatcher
                              "00 70 00 00"      // flow version
                              "00 00 00 01"      // flow type
                              "00 00 00 00"      // return code
                              "00 00 00 00"      // message id
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "00"               // security
                              "00 00 00 04"      // 4 bytes of body
                              "00 00 00 00"),    // call type: init
                          outcome.sent));
}

TEST(AdminRequest, GetAttributeCall)
{
    Outcome outcome = call(adminRequest(1, 4 + 4 + 2 + 62 + 10), adminCallReply(1, text("data")));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"      // eyecatcher
                              "00 70 00 00"      // flow version
                              "00 00 00 01"      // flow type
                              "00 00 00 00"      // return code
                              "00 00 00 00"      // message id
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "00"               // security
                              "00 00 00 5E"      // 94 bytes of body
                              "00 00 00 01") +   // call type: get attribute
                              text("VERS") +     // server version
                              hex("00 00 00 52"  // 82 bytes follow
                                  "00 02 55 53"  // "US"
                                  "00 02 65 6E"  // "en"
                                  "00 00"        // no variant
                                  "00 3C") +     // 60 bytes:
                              text(StatisticsObject) +
                              hex("00 08") + text("protocol"),  // name of the attribute
                          outcome.sent));
}

TEST(AdminRequest, InvokeCall)
{
    Outcome outcome = call(invokeCall(), adminCallReply(5, text("data")));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"      // eyecatcher
                              "00 70 00 00"      // flow version
                              "00 00 00 01"      // flow type
                              "00 00 00 00"      // return code
                              "00 00 00 00"      // message id
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "00"               // security
                              "00 00 00 80"      // 128 bytes of body
                              "00 00 00 05") +   // call type: invoke
                              text("VERS") +     // server version
                              hex("00 00 00 74"  // 116 bytes follow
                                  "00 02 55 53"  // "US"
                                  "00 02 65 6E"  // "en"
                                  "00 00"        // no variant
                                  "00 3C") +     // 60 bytes:
                              text(StatisticsObject) +
                              hex("00 09") + text("GET_STATS") +  // operation
                              hex("00 00 00 01"                   // one argument
                                  "AC ED 00 05 74"                // stream magic, version 5, a string
                                  "00 00"                         // an empty one
                                  "00 00 00 01"                   // one signature
                                  "00 10") +                      // of 16 bytes
                              text("java.lang.String"),
                          outcome.sent));
}

TEST(AdminRequest, EveryTextStandsInItsPlace)
{
    AdminRequest request = adminRequest(5, 0);
    request.clientCountry = "CH";
    request.clientLanguage = "rm-";
    request.clientVariant = "V1";
    request.objectName = "Obj";
    request.invokeAction = "Act";
    request.invokeParms = "a:b";
    request.invokeSigs = "S";
    request.callInfoLength = 4 + 5 + 4 + 5 + 5 + 4 + 5 + 5 + 4 + 3;
    request.header.datalength = request.callInfoLength + 12;
    Outcome outcome = call(request, adminCallReply(5, text("data")));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_TRUE(sameBytes(slice(adminInitRequest(), 0, 30) + hex("00 00 00 38"    // 56 bytes of body
                                                                 "00 00 00 05") +  // call type
                              text("VERS") +
                              hex("00 00 00 2C"                    // 44 bytes follow
                                  "00 02 43 48"                    // country
                                  "00 03 72 6D 2D"                 // language
                                  "00 02 56 31"                    // variant
                                  "00 03 4F 62 6A"                 // object
                                  "00 03 41 63 74"                 // operation
                                  "00 00 00 01 AC ED 00 05 74"     // one string:
                                  "00 03 61 3A 62"                 // argument
                                  "00 00 00 01"                    // one signature:
                                  "00 01 53"),                     // signature
                          outcome.sent));
}

TEST(AdminRequest, OtherPositiveCallTypesEndWithTheObject)
{
    for (std::int32_t callType : {2, 3, 4, 6, 77}) {
        SCOPED_TRACE(callType);
        Outcome outcome = call(adminRequest(callType, 4 + 4 + 2 + 62), adminCallReply(callType, text("data")));
        EXPECT_EQ(0, outcome.rc);
        EXPECT_TRUE(sameBytes(slice(adminInitRequest(), 0, 30) + hex("00 00 00 54") + be32(callType) + text("VERS") +
                                  hex("00 00 00 48 00 02 55 53 00 02 65 6E 00 00 00 3C") + text(StatisticsObject),
                              outcome.sent));
    }
}

TEST(AdminRequest, EveryHeaderFieldOfTheRecordIsSent)
{
    AdminRequest request = adminRequest(0, 0);
    request.header.eyecatcher = 0x01020304;
    request.header.flowVersion = 0x11121314;
    request.header.flowType = 0x21222324;
    request.header.gatewayRc = 0x31323334;
    request.header.messageId = 0x41424344;
    request.header.security = 0x51;
    Outcome outcome = call(request, initReply);
    EXPECT_TRUE(
        sameBytes(hex("01020304 11121314 21222324 31323334 41424344 00000005 41646D696E 51 00000004 00000000"),
                  outcome.sent));
}

TEST(AdminRequest, ServerVersionIsSentAsItsBytes)
{
    for (const char* version : {"00 00 00 01", "01 00 00 00", "FF FE FD FC", "80 00 00 7F"}) {
        SCOPED_TRACE(version);
        AdminRequest request = invokeCall();
        Bytes bytes = hex(version);
        std::memcpy(&request.serverVersion, bytes.data(), 4);
        Outcome outcome = call(request, adminCallReply(5, text("data")));
        EXPECT_TRUE(sameBytes(bytes, slice(outcome.sent, 38, 4)));
    }
}

TEST(AdminRequest, LengthsOfLongTextsKeepTheirLowSixteenBits)
{
    for (std::size_t size : {std::size_t(65535), std::size_t(65536), std::size_t(70000)}) {
        SCOPED_TRACE(size);
        std::string ids(size, 'i');
        ids.front() = '<';
        ids.back() = '>';
        AdminRequest request = invokeCall();
        request.invokeParms = ids.c_str();
        request.callInfoLength = calculateCallLength(request);
        request.header.datalength = request.callInfoLength + 12;
        ScriptedPeer peer = ScriptedPeer::onSocketPair({expectMessage(), sendWhole(adminCallReply(5, text("data")))});
        ReasonCodes reasons{};
        EXPECT_EQ(0, flowAdminRequest(peer.clientSocket(), &request, &reasons));
        std::free(request.callData);
        peer.finish();
        EXPECT_EQ("", peer.problem());
        Bytes sent = peer.received();
        ASSERT_EQ(34 + 128 + size, sent.size());
        EXPECT_TRUE(sameBytes(be32(static_cast<std::int32_t>(128 + size)), slice(sent, 30, 4)));  // length of the body
        EXPECT_TRUE(sameBytes(be32(static_cast<std::int32_t>(116 + size)), slice(sent, 42, 4)));  // call information
        // header 34, call type, version and length 12, texts 4 + 4 + 2 + 62 + 11, array size 4, stream start 5
        constexpr std::size_t Argument = 34 + 12 + 83 + 9;
        EXPECT_TRUE(sameBytes(be16(static_cast<std::uint32_t>(size & 0xFFFF)), slice(sent, Argument, 2)));
        EXPECT_TRUE(sameBytes(text(ids), slice(sent, Argument + 2, size)));
        EXPECT_TRUE(sameBytes(hex("00 00 00 01 00 10") + text("java.lang.String"),
                              slice(sent, Argument + 2 + size, 22)));
    }
}

// ---- Replies ------------------------------------------------------------------------------------------------------

TEST(AdminReply, OfAnInitCallGivesTheServerVersion)
{
    for (const char* version : {"00 00 00 01", "01 00 00 00", "FF FE FD FC"}) {
        SCOPED_TRACE(version);
        Outcome outcome = call(adminRequest(0, 0), adminInitReply(hex(version)));
        EXPECT_EQ(0, outcome.rc);
        EXPECT_EQ(0, outcome.request.callType);
        EXPECT_EQ(0, outcome.request.adminRc);
        EXPECT_TRUE(sameBytes(hex(version), serverVersionOf(outcome.request)));
        EXPECT_FALSE(outcome.hasCallData);
        expectNoReasons(outcome);
    }
}

TEST(AdminReply, OfACallGivesItsData)
{
    Outcome outcome = call(invokeCall(), adminCallReply(5, text("some data")));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_EQ(5, outcome.request.callType);
    EXPECT_EQ(0, outcome.request.adminRc);
    EXPECT_EQ(0, outcome.request.exceptionFlag);
    EXPECT_EQ(9, outcome.request.header.datalength);
    EXPECT_TRUE(sameBytes(text("some data"), outcome.callData));
    EXPECT_TRUE(sameBytes(text("VERS"), serverVersionOf(outcome.request)));
    expectNoReasons(outcome);
}

TEST(AdminReply, TheCallTypeOfTheReplyDecides)
{
    Outcome asInit = call(invokeCall(), initReply);
    EXPECT_EQ(0, asInit.rc);
    EXPECT_TRUE(sameBytes(hex("B1 B2 B3 B4"), serverVersionOf(asInit.request)));
    EXPECT_FALSE(asInit.hasCallData);

    Outcome asCall = call(adminRequest(0, 0), adminCallReply(-3, text("data")));
    EXPECT_EQ(0, asCall.rc);
    EXPECT_EQ(-3, asCall.request.callType);
    EXPECT_TRUE(sameBytes(text("data"), asCall.callData));
}

TEST(AdminReply, DataOfAnyFewBytesIsKept)
{
    for (const char* data : {"a", "ab", "abc", "abcd", "abcde"}) {
        Outcome outcome = call(invokeCall(), adminCallReply(5, text(data)));
        EXPECT_EQ(0, outcome.rc);
        EXPECT_TRUE(sameBytes(text(data), outcome.callData)) << data;
    }
}

TEST(AdminReply, OfExactlyNineBytesHasEmptyData)
{
    Outcome outcome = call(invokeCall(), adminCallReply(5, {}));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_EQ(0, outcome.request.header.datalength);
    EXPECT_TRUE(sameBytes({}, outcome.callData));
    expectNoReasons(outcome);
}

TEST(AdminReply, HeaderIsDecodedIntoTheRecord)
{
    ReplyHeader odd;
    odd.flowVersion = 0x01020304;
    odd.flowType = 7;
    odd.messageId = 0x11121314;
    odd.security = 0x42;
    odd.datalength = 13;
    Outcome outcome = call(invokeCall(), replyHeader(odd) + adminCallBody(5, text("data")));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_EQ(0x47617465, outcome.request.header.eyecatcher);
    EXPECT_EQ(0x01020304, outcome.request.header.flowVersion);
    EXPECT_EQ(7, outcome.request.header.flowType);
    EXPECT_EQ(0x11121314, outcome.request.header.messageId);
    EXPECT_EQ(0, outcome.request.header.gatewayRc);
    EXPECT_EQ(5, outcome.request.header.requestTypeLength);
    EXPECT_EQ(0x42, outcome.request.header.security);
    EXPECT_EQ(4, outcome.request.header.datalength);
}

TEST(AdminReply, FailedCallIsMinusThree)
{
    for (std::int32_t adminRc : {1, -1, 0x01000000, std::numeric_limits<std::int32_t>::min()}) {
        for (std::int32_t callType : {0, 1, 5}) {
            SCOPED_TRACE(std::to_string(adminRc) + " " + std::to_string(callType));
            TraceFile trace(1);
            Outcome outcome = call(invokeCall(), reply("Admin", be32(callType) + be32(adminRc) + hex("00 01 02 03 04")));
            EXPECT_EQ(-3, outcome.rc);
            EXPECT_EQ(callType, outcome.request.callType);
            EXPECT_EQ(adminRc, outcome.request.adminRc);
            expectReasons(outcome, Untouched, Untouched, adminRc);
            EXPECT_FALSE(outcome.hasCallData);
            EXPECT_TRUE(sameBytes(text("VERS"), serverVersionOf(outcome.request)));
            std::vector<TraceLine> lines = trace.lines();
            ASSERT_EQ(1u, lines.size()) << trace.text();
            EXPECT_EQ(3206, lines[0].number);
            EXPECT_EQ("*EXC*", lines[0].kind);
            EXPECT_EQ("stapi_krv_socketcomms.flowAdminRequest Auth Request returned an error AuthRc=" +
                          std::to_string(adminRc),
                      lines[0].message);
        }
    }
}

TEST(AdminReply, FailedCallNeedsNothingBehindItsReturnCode)
{
    Outcome outcome = call(invokeCall(), reply("Admin", be32(5) + be32(12)));
    EXPECT_EQ(-3, outcome.rc);
    expectReasons(outcome, Untouched, Untouched, 12);
}

TEST(AdminReply, ExceptionInTheGatewayIsMinusThree)
{
    for (int flag : {0x01, 0x7F, 0x80, 0xFF}) {
        SCOPED_TRACE(flag);
        TraceFile trace(1);
        Outcome outcome =
            call(invokeCall(), adminCallReply(5, text("trace of it"), 0, static_cast<unsigned char>(flag)));
        EXPECT_EQ(-3, outcome.rc);
        EXPECT_EQ(static_cast<char>(flag), outcome.request.exceptionFlag);
        EXPECT_FALSE(outcome.hasCallData);
        expectNoReasons(outcome);
        std::vector<TraceLine> lines = trace.lines();
        ASSERT_EQ(1u, lines.size()) << trace.text();
        EXPECT_EQ(3205, lines[0].number);
        EXPECT_EQ("*EXC*", lines[0].kind);
        EXPECT_EQ("stapi_krv_socketcomms.flowAdminRequest Exception occured during request execution",
                  lines[0].message);
    }
}

TEST(AdminReply, InitReplyCutBehindItsReturnCodeIsFilledUpWithZeros)
{
    const Bytes whole = adminInitBody(hex("B1 B2 B3 B4"));
    for (std::size_t size = 8; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        Outcome outcome = call(adminRequest(0, 0), reply("Admin", slice(whole, 0, size)));
        EXPECT_EQ(0, outcome.rc);
        EXPECT_TRUE(sameBytes(slice(whole, 8, size - 8) + zeros(whole.size() - size),
                              serverVersionOf(outcome.request)));
        expectNoReasons(outcome);
    }
}

TEST(AdminReply, ReplyCutInFrontOfAFieldThatIsReadIsABadReply)
{
    for (std::int32_t callType : {0, 1, 5}) {
        // Nothing is missing of an init reply of 8 bytes; any other lacks its exception flag then.
        const std::size_t enough = callType == 0 ? 8 : 9;
        const Bytes whole = adminCallBody(callType, text("data"));
        for (std::size_t size = 1; size < enough; ++size) {
            SCOPED_TRACE(std::to_string(callType) + " " + std::to_string(size));
            Outcome outcome = call(invokeCall(), reply("Admin", slice(whole, 0, size)));
            EXPECT_EQ(-122, outcome.rc);
            EXPECT_FALSE(outcome.hasCallData);
            EXPECT_EQ(Untouched, outcome.reasons.adminRc);
        }
    }
}

TEST(AdminReply, WithoutABodyIsDecodedFromTheRequest)
{
    // The request stays where the body would be: its eyecatcher is the call type, its flow version the return code.
    Outcome outcome = call(adminRequest(0, 0), reply("Admin", {}));
    EXPECT_EQ(-3, outcome.rc);
    EXPECT_EQ(0x47617465, outcome.request.callType);
    EXPECT_EQ(0x700000, outcome.request.adminRc);
    expectReasons(outcome, Untouched, Untouched, 0x700000);
    EXPECT_FALSE(outcome.hasCallData);
}

TEST(AdminReply, WithoutABodyToAZeroedHeaderIsDecodedAsAnInitReply)
{
    AdminRequest request = adminRequest(0, 0);
    request.header.eyecatcher = 0;
    request.header.flowVersion = 0;
    request.header.flowType = 0x21222324;
    Outcome outcome = call(request, reply("Admin", {}));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_TRUE(sameBytes(hex("21 22 23 24"), serverVersionOf(outcome.request)));
}

TEST(AdminReply, FailureOfTheExchangeIsItsResult)
{
    for (std::int32_t code : {61444, -4, -1, 3}) {
        Outcome outcome = call(invokeCall(), refusal("Admin", code, adminCallBody(5, text("data"))));
        EXPECT_EQ(code, outcome.rc);
        expectReasons(outcome, Untouched, code, Untouched);
        EXPECT_FALSE(outcome.hasCallData);
    }
    ReplyHeader bad;
    bad.eyecatcher = 2;
    EXPECT_EQ(-122, call(invokeCall(), replyHeader(bad)).rc);

    AdminRequest request = invokeCall();
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    EXPECT_EQ(-1, flowAdminRequest(-1, &request, &reasons));
    EXPECT_EQ(EBADF, reasons.socketErrno);
}

TEST(AdminReply, LargeDataArrivesWhole)
{
    Bytes data(2 * 1024 * 1024 + 5);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i % 251);
    Outcome outcome = call(invokeCall(), adminCallReply(5, data));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_TRUE(sameBytes(data, outcome.callData));
}

// ---- Memory and trace ---------------------------------------------------------------------------------------------

TEST(AdminRequest, WithoutMemoryNothingIsSent)
{
    TraceFile trace(1);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
    const std::string ids(9000, 'i');
    AdminRequest request = invokeCall();
    request.invokeParms = ids.c_str();
    request.callInfoLength += 9000;
    request.header.datalength += 9000;
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    Injected run = withFailing(
        failingMalloc, ENOMEM, [&] { return flowAdminRequest(peer.clientSocket(), &request, &reasons); }, 0, 9162);
    peer.closeClientSocket();
    peer.finish();
    EXPECT_EQ(1, run.hits);
    EXPECT_EQ(-111, run.result);
    EXPECT_EQ("", peer.problem());
    EXPECT_EQ(nullptr, request.callData);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(3202, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flowAdminRequestFailed to allocate 9162 bytes.", lines[0].message);
}

TEST(AdminReply, WithoutMemoryForItsDataIsMinus111)
{
    TraceFile trace(1);
    ScriptedPeer peer =
        ScriptedPeer::onSocketPair({expectMessage(), sendWhole(adminCallReply(5, Bytes(7777, 'd')))});
    AdminRequest request = invokeCall();
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    // The body of the reply, nine bytes longer than the data, is asked for first.
    Injected run = withFailing(
        failingMalloc, ENOMEM, [&] { return flowAdminRequest(peer.clientSocket(), &request, &reasons); }, 1, 7777);
    peer.finish();
    EXPECT_EQ(1, run.hits);
    EXPECT_EQ(-111, run.result);
    EXPECT_EQ(nullptr, request.callData);
    EXPECT_EQ(Untouched, reasons.adminRc);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(3204, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("stapi_krv_socketcomms.flowAdminRequestFailed to allocate 7777 bytes.", lines[0].message);
}

TEST(AdminRequest, IsTracedInItsOwnNumbers)
{
    TraceFile trace(4);
    call(invokeCall(), adminCallReply(5, text("data")));
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ((std::vector<int>{3200, 3201, 3203, 3207, 3208}), numbersOf(lines, 3200, 3208)) << trace.text();
    EXPECT_EQ("ENTRY", linesNumbered(lines, 3200).at(0).kind);
    EXPECT_EQ(0u, linesNumbered(lines, 3200).at(0).message.find("stapi_krv_socketcomms.flowAdminRequest("));
    EXPECT_EQ("DEBUG", linesNumbered(lines, 3201).at(0).kind);
    EXPECT_EQ(0u, linesNumbered(lines, 3201)
                      .at(0)
                      .message.find("stapi_krv_socketcomms.flowAdminRequest Called malloc for 162 bytes. rc=0x"));
    EXPECT_EQ("DEBUG", linesNumbered(lines, 3203).at(0).kind);
    EXPECT_EQ(0u, linesNumbered(lines, 3203)
                      .at(0)
                      .message.find("stapi_krv_socketcomms.flowAdminRequest Called malloc for 4 bytes. rc=0x"));
    EXPECT_EQ("DEBUG", linesNumbered(lines, 3207).at(0).kind);
    EXPECT_EQ("EXIT", linesNumbered(lines, 3208).at(0).kind);
    EXPECT_NE(std::string::npos, linesNumbered(lines, 3208).at(0).message.find("rc=0"));
}

// ---- The init call ------------------------------------------------------------------------------------------------

TEST(AdminInit, SetsEveryFieldThatItSends)
{
    AdminRequest request;
    std::memset(&request, 0x2B, sizeof request);
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectMessage(), sendWhole(initReply)});
    ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
    EXPECT_EQ(0, getInitAdminRequest(peer.clientSocket(), &request, &reasons));
    peer.finish();
    EXPECT_EQ("", peer.problem());
    EXPECT_TRUE(sameBytes(adminInitRequest(), peer.received()));
    EXPECT_EQ(nullptr, request.callData);
    EXPECT_STREQ("Admin", request.header.requestType);
    EXPECT_EQ(Untouched, reasons.socketErrno);
    EXPECT_EQ(Untouched, reasons.adminRc);
}

TEST(AdminInit, LeavesTheReplyInTheRecord)
{
    ReplyHeader odd;
    odd.flowVersion = 0x01020304;
    odd.messageId = 0x11121314;
    odd.security = 0x42;
    odd.datalength = 12;
    AdminRequest request{};
    ScriptedPeer peer = ScriptedPeer::onSocketPair(
        {expectMessage(), sendWhole(replyHeader(odd) + adminInitBody(hex("B1 B2 B3 B4")))});
    ReasonCodes reasons{};
    EXPECT_EQ(0, getInitAdminRequest(peer.clientSocket(), &request, &reasons));
    EXPECT_EQ(0x01020304, request.header.flowVersion);
    EXPECT_EQ(0x11121314, request.header.messageId);
    EXPECT_EQ(0x42, request.header.security);
    EXPECT_EQ(0, request.callType);
    EXPECT_TRUE(sameBytes(hex("B1 B2 B3 B4"), serverVersionOf(request)));
}

TEST(AdminInit, HandsOutTheResultUnchanged)
{
    const struct {
        Bytes replyBytes;
        int rc;
    } rows[] = {{refusal("Admin", 61444), 61444}, {refusal("Admin", -4), -4}, {adminInitReply(zeros(4), 5), -3},
                {reply("Admin", zeros(7)), -122}};
    for (const auto& row : rows) {
        AdminRequest request{};
        ScriptedPeer peer = ScriptedPeer::onSocketPair({expectMessage(), sendWhole(row.replyBytes)});
        ReasonCodes reasons{};
        EXPECT_EQ(row.rc, getInitAdminRequest(peer.clientSocket(), &request, &reasons));
    }
}

TEST(AdminInit, IsTracedAtLevelThree)
{
    TraceFile trace(3);
    AdminRequest request{};
    ScriptedPeer peer = ScriptedPeer::onSocketPair({expectMessage(), sendWhole(initReply)});
    ReasonCodes reasons{};
    getInitAdminRequest(peer.clientSocket(), &request, &reasons);
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ((std::vector<int>{2214, 2215}), numbersOf(lines, 2200, 2245));
    EXPECT_EQ("ENTRY", linesNumbered(lines, 2214).at(0).kind);
    EXPECT_EQ(0u, linesNumbered(lines, 2214).at(0).message.find("stapi_krv_statcomms.getInitAdminRequest("));
    EXPECT_EQ("EXIT", linesNumbered(lines, 2215).at(0).kind);
    EXPECT_NE(std::string::npos, linesNumbered(lines, 2215).at(0).message.find("rc=0"));
}

// ---- Records that are no messages ---------------------------------------------------------------------------------

TEST(AdminRequest, AMissingTextIsSentAsAnEmptyOne)
{
    AdminRequest request = invokeCall();
    request.clientVariant = nullptr;
    Outcome outcome = call(request, adminCallReply(5, text("data")));
    EXPECT_EQ(0, outcome.rc);
    EXPECT_TRUE(sameBytes(call(invokeCall(), adminCallReply(5, text("data"))).sent, outcome.sent));
}

TEST(AdminRequest, WhoseLengthsAreNoMessagesIsNotSent)
{
    const struct {
        std::int32_t nameLength;
        std::int32_t datalength;
    } rows[] = {{-1, 4}, {5, -1}, {std::numeric_limits<std::int32_t>::min(), 4}, {5, std::numeric_limits<std::int32_t>::max()},
                {5, std::numeric_limits<std::int32_t>::max() - 33}};
    TraceFile trace(5);
    for (const auto& row : rows) {
        trace.forget();
        ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
        AdminRequest request = adminRequest(0, 0);
        request.header.requestTypeLength = row.nameLength;
        request.header.datalength = row.datalength;
        ReasonCodes reasons = {Untouched, Untouched, Untouched, Untouched};
        EXPECT_EQ(-1, flowAdminRequest(peer.clientSocket(), &request, &reasons)) << row.nameLength << " " << row.datalength;
        EXPECT_EQ(Untouched, reasons.socketErrno);
        EXPECT_EQ(nullptr, request.callData);
        peer.closeClientSocket();
        peer.finish();
        EXPECT_EQ("", peer.problem());
        EXPECT_TRUE(sameBytes({}, peer.received()));
        for (int block : {3201, 3202, 3207}) EXPECT_TRUE(linesNumbered(trace.lines(), block).empty()) << "none is made";
    }
}

TEST(AdminRequest, WhoseBodyDoesNotFitItsLengthIsNotSent)
{
    const std::int32_t whole = invokeCall().header.datalength;
    for (std::int32_t datalength = 0; datalength < whole; ++datalength) {
        ScriptedPeer peer = ScriptedPeer::onSocketPair({expectCloseWithoutBytes()});
        AdminRequest request = invokeCall();
        request.header.datalength = datalength;
        ReasonCodes reasons = {};
        EXPECT_EQ(-1, flowAdminRequest(peer.clientSocket(), &request, &reasons)) << datalength;
        peer.closeClientSocket();
        peer.finish();
        EXPECT_EQ("", peer.problem());
        EXPECT_TRUE(sameBytes({}, peer.received())) << datalength;
    }
}

TEST(AdminReply, WithoutABodyHasNoDataWhateverTheRequestsBytesAre)
{
    // The request's eyecatcher as call type, its flow version as return code, a byte of its flow type as exception flag.
    AdminRequest request = invokeCall();
    request.header.flowVersion = 0;
    Outcome outcome = call(request, reply("Admin", {}));
    EXPECT_EQ(-122, outcome.rc);
    EXPECT_EQ(0x47617465, outcome.request.callType);
    expectNoReasons(outcome);
    EXPECT_FALSE(outcome.hasCallData);
}
