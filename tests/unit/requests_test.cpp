// The message header, both ways, and the lengths that admin requests state. No sockets: bytes in, bytes out.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "stapi_krv_requests.h"
#include "stapi_krv_socketcomms.h"
#include "stapi_krv_statcomms.h"
#include "trace_capture.h"
#include "wire_bytes.h"

using namespace krvtest;

namespace {

GatewayRequest adminHeader()
{
    GatewayRequest header{};
    header.eyecatcher = 0x47617465;
    header.flowVersion = 0x700000;
    header.flowType = 1;
    header.messageId = 0;
    header.gatewayRc = 0;
    header.requestTypeLength = 5;
    header.requestType = "Admin";
    header.security = 0;
    header.datalength = 4;
    return header;
}

Bytes written(GatewayRequest header, std::size_t size)
{
    std::vector<char> data(size + 4, '\x5A');  // four bytes behind it that must stay
    writeHeader(&header, data.data());
    for (std::size_t i = size; i < data.size(); ++i) EXPECT_EQ('\x5A', data[i]) << "written behind the header";
    return Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size));
}

GatewayRequest decoded(const Bytes& bytes)
{
    std::vector<char> data(bytes.begin(), bytes.end());
    GatewayRequest header{};
    populateHeader(data.data(), &header);
    return header;
}

// Not aligned to anything, so that every word of the header is met at an odd address.
Bytes writtenUnaligned(GatewayRequest header, std::size_t size)
{
    std::vector<char> data(size + 1, '\0');
    writeHeader(&header, data.data() + 1);
    return Bytes(data.begin() + 1, data.end());
}

}  // namespace

TEST(Requests, ConstantsAreThoseOfTheProtocol)
{
    EXPECT_STREQ("BASE", HANDSHAKE_REQUEST_NAME);
    EXPECT_STREQ("Auth", AUTH_REQUEST_NAME);
    EXPECT_STREQ("Admin", ADMIN_REQUEST_NAME);
    EXPECT_STREQ("US", ADMIN_CLIENT_COUNTRY);
    EXPECT_STREQ("en", ADMIN_CLIENT_LANGUAGE);
    EXPECT_STREQ("DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats", STATS_MBEAN_NAME);
    EXPECT_STREQ("java.lang.String", STATS_MBEAN_SIG);
    EXPECT_STREQ("GET_STATS", STATS_MBEAN_ACTION_GET_STATS);
    EXPECT_STREQ("STAT_IDS", STATS_MBEAN_ACTION_STAT_IDS);
    EXPECT_STREQ("RESOURCE_GROUPS", STATS_MBEAN_ACTION_RESOURCE_GROUPS);
    EXPECT_STREQ("protocol", STATS_MBEAN_PROTOCOL_VERSION);
    EXPECT_EQ(1, OUTBOUND_ARRAY_SIZE);
    EXPECT_TRUE(sameBytes(hex("AC ED 00 05 74"), Bytes(OBJ_ARRAY_HEADER, OBJ_ARRAY_HEADER + 5)));
}

TEST(Requests, HeaderIsWrittenFieldByField)
{
    EXPECT_TRUE(sameBytes(hex("47 61 74 65"      // eyecatcher
                              "00 70 00 00"      // flow version
                              "00 00 00 01"      // flow type
                              "00 00 00 00"      // return code
                              "00 00 00 00"      // message id
                              "00 00 00 05"      // length of the name
                              "41 64 6D 69 6E"   // "Admin"
                              "00"               // security
                              "00 00 00 04"),    // length of the body
                          written(adminHeader(), 34)));
}

TEST(Requests, EveryHeaderFieldIsWrittenInItsOwnPlace)
{
    struct Row {
        const char* field;
        void (*change)(GatewayRequest&);
        std::size_t offset;
        const char* bytes;
    };
    const Row rows[] = {
        {"eyecatcher", [](GatewayRequest& h) { h.eyecatcher = 0x01020304; }, 0, "01 02 03 04"},
        {"flowVersion", [](GatewayRequest& h) { h.flowVersion = 0x11121314; }, 4, "11 12 13 14"},
        {"flowType", [](GatewayRequest& h) { h.flowType = 0x21222324; }, 8, "21 22 23 24"},
        {"gatewayRc", [](GatewayRequest& h) { h.gatewayRc = 0x31323334; }, 12, "31 32 33 34"},
        {"messageId", [](GatewayRequest& h) { h.messageId = -2; }, 16, "FF FF FF FE"},
        {"requestType", [](GatewayRequest& h) { h.requestType = "aDMIN"; }, 24, "61 44 4D 49 4E"},
        {"security", [](GatewayRequest& h) { h.security = static_cast<char>(0xFE); }, 29, "FE"},
        {"datalength", [](GatewayRequest& h) { h.datalength = 0x41424344; }, 30, "41 42 43 44"},
    };
    const Bytes plain = written(adminHeader(), 34);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.field);
        GatewayRequest header = adminHeader();
        row.change(header);
        Bytes expected = plain;
        Bytes bytes = hex(row.bytes);
        std::copy(bytes.begin(), bytes.end(), expected.begin() + static_cast<std::ptrdiff_t>(row.offset));
        EXPECT_TRUE(sameBytes(expected, written(header, 34)));
        EXPECT_TRUE(sameBytes(expected, writtenUnaligned(header, 34)));
    }
}

TEST(Requests, TheNameMovesWhatFollowsIt)
{
    GatewayRequest header = adminHeader();
    header.requestType = "";
    header.requestTypeLength = 0;
    header.security = 7;
    EXPECT_TRUE(sameBytes(hex("47617465 00700000 00000001 00000000 00000000"
                              "00 00 00 00"      // no name
                              "07"               // security
                              "00 00 00 04"),    // length of the body
                          written(header, 29)));

    header.requestType = "SevenXX";
    header.requestTypeLength = 7;
    EXPECT_TRUE(sameBytes(hex("47617465 00700000 00000001 00000000 00000000"
                              "00 00 00 07"             // length of the name
                              "53 65 76 65 6E 58 58"    // "SevenXX"
                              "07"                      // security
                              "00 00 00 04"),           // length of the body
                          written(header, 36)));
}

TEST(Requests, ALengthBelowTheNameCutsIt)
{
    GatewayRequest header = adminHeader();
    header.requestTypeLength = 2;
    EXPECT_TRUE(sameBytes(hex("47617465 00700000 00000001 00000000 00000000"
                              "00 00 00 02"     // length of the name
                              "41 64"           // "Ad"
                              "00"              // security
                              "00 00 00 04"),   // length of the body
                          written(header, 31)));
}

TEST(Requests, ReplyHeaderIsReadFieldByField)
{
    GatewayRequest header = decoded(hex("47 61 74 65"      // eyecatcher
                                        "11 12 13 14"      // flow version
                                        "21 22 23 24"      // flow type
                                        "31 32 33 34"      // message id
                                        "41 42 43 44"      // return code
                                        "00 00 00 03"      // length of the name
                                        "58 59 5A"         // a name, passed over
                                        "F0"               // security
                                        "51 52 53 54"));   // length of the body
    EXPECT_EQ(0x47617465, header.eyecatcher);
    EXPECT_EQ(0x11121314, header.flowVersion);
    EXPECT_EQ(0x21222324, header.flowType);
    EXPECT_EQ(0x31323334, header.messageId);
    EXPECT_EQ(0x41424344, header.gatewayRc);
    EXPECT_EQ(3, header.requestTypeLength);
    EXPECT_EQ(static_cast<char>(0xF0), header.security);
    EXPECT_EQ(0x51525354, header.datalength);
}

TEST(Requests, ReplyHeaderWordsAreSigned)
{
    GatewayRequest header = decoded(hex("FF FF FF FF"      // eyecatcher
                                        "80 00 00 00"      // flow version
                                        "FF FF FF FE"      // flow type
                                        "FF FF FF FD"      // message id
                                        "FF FF FF FC"      // return code
                                        "00 00 00 00"      // no name
                                        "80"               // security
                                        "FF FF FF FB"));   // length of the body
    EXPECT_EQ(-1, header.eyecatcher);
    EXPECT_EQ(std::numeric_limits<std::int32_t>::min(), header.flowVersion);
    EXPECT_EQ(-2, header.flowType);
    EXPECT_EQ(-3, header.messageId);
    EXPECT_EQ(-4, header.gatewayRc);
    EXPECT_EQ(0, header.requestTypeLength);
    EXPECT_EQ(static_cast<char>(0x80), header.security);
    EXPECT_EQ(-5, header.datalength);
}

TEST(Requests, ReadingAReplyHeaderLeavesTheNameAlone)
{
    const char name[] = "mine";
    GatewayRequest header{};
    header.requestType = name;
    Bytes bytes = replyHeader({});
    std::vector<char> data(bytes.begin(), bytes.end());
    populateHeader(data.data(), &header);
    EXPECT_EQ(name, header.requestType);
    EXPECT_EQ(5, header.requestTypeLength);
}

TEST(Requests, AWrittenHeaderReadBackSwapsMessageIdAndReturnCode)
{
    GatewayRequest header = adminHeader();
    header.messageId = 17;
    header.gatewayRc = -99;
    header.security = 5;
    GatewayRequest back = decoded(written(header, 34));
    EXPECT_EQ(-99, back.messageId);
    EXPECT_EQ(17, back.gatewayRc);
    EXPECT_EQ(header.eyecatcher, back.eyecatcher);
    EXPECT_EQ(header.flowVersion, back.flowVersion);
    EXPECT_EQ(header.flowType, back.flowType);
    EXPECT_EQ(header.requestTypeLength, back.requestTypeLength);
    EXPECT_EQ(header.security, back.security);
    EXPECT_EQ(header.datalength, back.datalength);
}

TEST(Requests, HeaderConvertersTraceEntryAndExit)
{
    TraceFile trace(3);
    decoded(written(adminHeader(), 34));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(4u, lines.size()) << trace.text();
    const struct {
        int number;
        const char* kind;
        const char* origin;
    } expected[] = {{3248, "ENTRY", "stapi_krv_socketcomms.writeHeader("},
                    {3249, "EXIT", "stapi_krv_socketcomms.writeHeader("},
                    {3246, "ENTRY", "stapi_krv_socketcomms.populateHeader("},
                    {3247, "EXIT", "stapi_krv_socketcomms.populateHeader("}};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(expected[i].number, lines[i].number);
        EXPECT_EQ(expected[i].kind, lines[i].kind);
        EXPECT_EQ(0u, lines[i].message.find(expected[i].origin)) << lines[i].message;
    }
}

TEST(Requests, HeaderConvertersAreSilentBelowLevelThree)
{
    TraceFile trace(2);
    decoded(written(adminHeader(), 34));
    EXPECT_EQ("", trace.text());
}

// ---- Lengths of admin calls ---------------------------------------------------------------------------------------

namespace {

AdminRequest statisticsCall()
{
    AdminRequest request{};
    request.clientCountry = "US";
    request.clientLanguage = "en";
    request.clientVariant = "";
    request.objectName = "DefaultDomain:ProdId=com.qal.krv,Activity=Control,type=Stats";
    request.attributeName = "protocol";
    request.invokeAction = "GET_STATS";
    request.invokeParms = "";
    request.invokeSigs = "java.lang.String";
    return request;
}

}  // namespace

TEST(Requests, InvokeLengthCountsEveryPart)
{
    // (2+2) + (2+2) + (2+0) + (2+60) + (2+9) + (0+6) + 5 + (16+6)
    EXPECT_EQ(4 + 4 + 2 + 62 + 11 + 6 + 5 + 22, calculateCallLength(statisticsCall()));
}

TEST(Requests, InvokeLengthGrowsWithEachTextOfAnInvokeCallOnly)
{
    const std::string longer(1000, 'x');
    const struct {
        const char* field;
        const char* AdminRequest::*text;
        int grown;
    } rows[] = {
        {"clientCountry", &AdminRequest::clientCountry, 998}, {"clientLanguage", &AdminRequest::clientLanguage, 998},
        {"clientVariant", &AdminRequest::clientVariant, 1000}, {"objectName", &AdminRequest::objectName, 940},
        {"attributeName", &AdminRequest::attributeName, 0},   {"invokeAction", &AdminRequest::invokeAction, 991},
        {"invokeParms", &AdminRequest::invokeParms, 1000},    {"invokeSigs", &AdminRequest::invokeSigs, 984},
    };
    for (const auto& row : rows) {
        AdminRequest request = statisticsCall();
        request.*row.text = longer.c_str();
        EXPECT_EQ(116 + row.grown, calculateCallLength(request)) << row.field;
    }
}

TEST(Requests, GetAttributeLengthCountsEveryPart)
{
    // (2+2) + (2+2) + (2+0) + (2+60) + (2+8)
    EXPECT_EQ(4 + 4 + 2 + 62 + 10, calculateGetAttrCallLength(statisticsCall()));
}

TEST(Requests, GetAttributeLengthGrowsWithEachTextOfAGetAttributeCallOnly)
{
    const std::string longer(1000, 'x');
    const struct {
        const char* field;
        const char* AdminRequest::*text;
        int grown;
    } rows[] = {
        {"clientCountry", &AdminRequest::clientCountry, 998}, {"clientLanguage", &AdminRequest::clientLanguage, 998},
        {"clientVariant", &AdminRequest::clientVariant, 1000}, {"objectName", &AdminRequest::objectName, 940},
        {"attributeName", &AdminRequest::attributeName, 992}, {"invokeAction", &AdminRequest::invokeAction, 0},
        {"invokeParms", &AdminRequest::invokeParms, 0},       {"invokeSigs", &AdminRequest::invokeSigs, 0},
    };
    for (const auto& row : rows) {
        AdminRequest request = statisticsCall();
        request.*row.text = longer.c_str();
        EXPECT_EQ(82 + row.grown, calculateGetAttrCallLength(request)) << row.field;
    }
}

TEST(Requests, LengthsCountTextsBeyondSixteenBitsWhole)
{
    const std::string huge(70000, 'x');
    AdminRequest request = statisticsCall();
    request.invokeParms = huge.c_str();
    EXPECT_EQ(116 + 70000, calculateCallLength(request));
    request.attributeName = huge.c_str();
    EXPECT_EQ(82 + 70000 - 8, calculateGetAttrCallLength(request));
}

TEST(Requests, InvokeLengthTracesEntryAndExit)
{
    TraceFile trace(3);
    calculateCallLength(statisticsCall());
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(2u, lines.size()) << trace.text();
    EXPECT_EQ(2216, lines[0].number);
    EXPECT_EQ("ENTRY", lines[0].kind);
    EXPECT_EQ(0u, lines[0].message.find("stapi_krv_statcomms.calculateCallLength(")) << lines[0].message;
    EXPECT_EQ(2217, lines[1].number);
    EXPECT_EQ("EXIT", lines[1].kind);
    EXPECT_EQ(0u, lines[1].message.find("stapi_krv_statcomms.calculateCallLength(")) << lines[1].message;
}

TEST(Requests, ANameShorterThanItsLengthIsFilledUpWithZeros)
{
    GatewayRequest header = adminHeader();
    header.requestType = "Auth";
    header.requestTypeLength = 7;
    EXPECT_TRUE(sameBytes(hex("47617465 00700000 00000001 00000000 00000000"
                              "00 00 00 07"             // length of the name
                              "41 75 74 68 00 00 00"    // "Auth"
                              "00"                      // security
                              "00 00 00 04"),           // length of the body
                          written(header, 36)));
    header.requestType = nullptr;
    header.requestTypeLength = 2;
    EXPECT_TRUE(sameBytes(hex("47617465 00700000 00000001 00000000 00000000 00000002 0000 00 00000004"), written(header, 31)));
}

TEST(Requests, ANegativeNameLengthIsWrittenWithoutAName)
{
    GatewayRequest header = adminHeader();
    header.requestTypeLength = -1;
    EXPECT_TRUE(sameBytes(hex("47617465 00700000 00000001 00000000 00000000 FFFFFFFF 00 00000004"), written(header, 29)));
}

TEST(Requests, BehindANegativeNameLengthNothingIsRead)
{
    const GatewayRequest header =
        decoded(hex("47617465 00700000 00000001 00000002 00000003 FFFFFFFF 41646D69 6E 07 00000009"));
    EXPECT_EQ(-1, header.requestTypeLength);
    EXPECT_EQ(3, header.gatewayRc);
    EXPECT_EQ(0, header.security);
    EXPECT_EQ(0, header.datalength);
}

TEST(Requests, AMissingTextCountsAsAnEmptyOne)
{
    AdminRequest request = statisticsCall();
    const int whole = calculateCallLength(request);
    request.invokeParms = nullptr;
    const int without = calculateCallLength(request);
    request.invokeParms = "";
    EXPECT_EQ(calculateCallLength(request), without);
    EXPECT_LE(without, whole);
    request.attributeName = nullptr;
    EXPECT_EQ(82 - 8, calculateGetAttrCallLength(request));
}
