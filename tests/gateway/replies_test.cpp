// Whole replies, to the byte, as written by hand.
#include "messages.h"
#include "replies.h"
#include "wire_bytes.h"

#include <gtest/gtest.h>

using krvtest::counted;
using krvtest::hex;
using krvtest::operator+;
using krvtest::sameBytes;

TEST(Replies, TheHeaderCrossesMessageIdAndReturnCode)
{
    krvgw::Message body;
    krvgw::putText(body, "abc");
    const auto reply = krvgw::makeReply({5, 0x01020304, 0xFFFFFFFD, "BASE"}, body);
    const krvtest::Bytes expected = hex("47 61 74 65")      // eyecatcher
                                    + hex("00 70 00 00")    // flow version
                                    + hex("00 00 00 05")    // flow type
                                    + hex("01 02 03 04")    // message id
                                    + hex("FF FF FF FD")    // gateway rc
                                    + hex("00 00 00 04")    // length of the name
                                    + hex("42 41 53 45")    // "BASE"
                                    + hex("00")             // security
                                    + hex("00 00 00 03")    // data length
                                    + hex("61 62 63");      // body
    EXPECT_TRUE(sameBytes(expected, reply.bytes));
}

TEST(Replies, TheHandshakeIsAnsweredWithALocale)
{
    EXPECT_TRUE(sameBytes(hex("00 02 65 6E 00 02 47 42") + krvtest::zeros(10), krvgw::handshakeReplyBody().bytes));
}

TEST(Replies, AuthorisationsCarryCallTypeResultAndOpaqueBytes)
{
    const auto opaque = hex("01 02 03 04 05 06 07 08 F1 F2 F3 F4");
    EXPECT_TRUE(sameBytes(hex("00 00 00 00")                // call type
                              + hex("00 00 00 00")          // authorisation rc
                              + opaque,                     // protocol map, server version
                          krvgw::authReplyBody(0, opaque).bytes));
    EXPECT_TRUE(sameBytes(hex("00 00 00 01 00 00 00 00 AA BB CC DD EE FF 00 11"),
                          krvgw::authReplyBody(1, hex("AA BB CC DD EE FF 00 11")).bytes));
}

TEST(Replies, InitCarriesTheServerVersion)
{
    EXPECT_TRUE(sameBytes(hex("00 00 00 00")                // call type
                              + hex("00 00 00 00")          // admin rc
                              + hex("DE AD BE EF"),         // server version
                          krvgw::initReplyBody(hex("DE AD BE EF")).bytes));
}

TEST(Replies, TheVersionTextStandsEightBytesIntoTheResult)
{
    EXPECT_TRUE(sameBytes(hex("00 00 00 01")                // call type
                              + hex("00 00 00 00")          // admin rc
                              + hex("00")                   // exception flag; the result begins behind it
                              + hex("00")                   // array flag
                              + hex("AC ED 00 05 74")       // stream magic, version, text
                              + hex("00 05")                // length
                              + hex("31 2E 31 2E 30"),      // "1.1.0"
                          krvgw::attributeReplyBody("1.1.0").bytes));
    EXPECT_TRUE(sameBytes(hex("00 00 00 01 00 00 00 00 00 00 AC ED 00 05 74 00 00"),
                          krvgw::attributeReplyBody("").bytes));
}

TEST(Replies, AFailedCallSetsTheExceptionFlag)
{
    EXPECT_TRUE(sameBytes(hex("00 00 00 05 00 00 00 00")    // call type, admin rc
                              + hex("01")                   // exception flag
                              + hex("00 AC ED 00 05 74") + counted("no"),
                          krvgw::exceptionReplyBody(5, "no").bytes));
}

TEST(Replies, ASingleResponseComesWithoutACount)
{
    const auto body = krvgw::operationReplyBody(krvgw::Operation::StatIds, {false, {{"q", 0, {}}}});
    EXPECT_TRUE(sameBytes(hex("00 00 00 05")                // call type
                              + hex("00 00 00 00")          // admin rc
                              + hex("00")                   // exception flag
                              + hex("00")                   // array flag
                              + hex("AC ED 00 05 73 72"),   // the response
                          krvtest::slice(body.bytes, 0, 16)));
}

TEST(Replies, AnArrayOfResponsesComesWithItsCount)
{
    const krvgw::Result result{true, {{"q", -1, {}}, {"r", -1, {}}}};
    const auto body = krvgw::operationReplyBody(krvgw::Operation::GetStats, result);
    EXPECT_TRUE(sameBytes(hex("00 00 00 05 00 00 00 00 00") // call type, admin rc, exception flag
                              + hex("01")                   // array flag
                              + hex("00 00 00 02")          // number of responses
                              + hex("AC ED 00 05 73 72"),   // the first response
                          krvtest::slice(body.bytes, 0, 20)));
}

TEST(Replies, NumbersAreMarkedWhereTheyStand)
{
    const krvgw::Result result{true, {{"q", 0, {{"id", "value", 0, {}}}}}};
    const auto body = krvgw::operationReplyBody(krvgw::Operation::GetStats, result);
    const auto reply = krvgw::makeReply({1, 0, 0, "Admin"}, body);
    struct Row {
        krvgw::Field field;
        std::uint32_t value;
    };
    const Row rows[] = {
        {krvgw::Field::Eyecatcher, 0x47617465}, {krvgw::Field::FlowVersion, 0x700000}, {krvgw::Field::FlowType, 1},
        {krvgw::Field::MessageId, 0}, {krvgw::Field::GatewayRc, 0}, {krvgw::Field::NameLength, 5},
        {krvgw::Field::Security, 0}, {krvgw::Field::DataLength, static_cast<std::uint32_t>(reply.bytes.size() - 34)},
        {krvgw::Field::CallType, 5}, {krvgw::Field::AdminRc, 0}, {krvgw::Field::ExceptionFlag, 0},
        {krvgw::Field::ArrayFlag, 1}, {krvgw::Field::ResponseCount, 1}, {krvgw::Field::ClassLength, 36},
        {krvgw::Field::SuperclassLength, 31}, {krvgw::Field::BlockType, 0x77}, {krvgw::Field::BlockLength, 11},
        {krvgw::Field::QueryLength, 1}, {krvgw::Field::QueryRc, 0}, {krvgw::Field::ElementCount, 1},
        {krvgw::Field::ElementClassLength, 27}, {krvgw::Field::IdLength, 2}, {krvgw::Field::ValueLength, 5},
    };
    for (const Row& row : rows) {
        bool isFound = false;
        for (const krvgw::FieldMark& mark : reply.marks) {
            if (isFound || mark.field != row.field) continue;
            isFound = true;
            EXPECT_EQ(krvgw::numberAt(reply.bytes, mark.at, mark.width), row.value) << static_cast<int>(row.field);
        }
        EXPECT_TRUE(isFound) << static_cast<int>(row.field);
    }
}
