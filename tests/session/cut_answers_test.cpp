// Answers in every form that a gateway may choose (several responses, a failed one among them, values in blocks of both
// kinds) with each byte set to other values, each length and count saying something else, and cut behind each byte, where
// the message itself says that it ends there. A query gives exactly what the bytes say, or a code: never a part of an
// answer, and no set whose parts do not add up.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "krvstats.h"
#include "ready_gateway.h"
#include "reply_builder.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stream_model.h"

using namespace krvtest;

namespace {

constexpr unsigned int seed = 20261121;

// A number in an answer.
struct Field {
    std::size_t at = 0;
    std::size_t width = 0;
    std::int32_t value = 0;
};

// Of short blocks: one byte, and each of them stands behind a short block's type once in the answer.
constexpr unsigned char shortLengths[] = {31, 37, 41};

Reply statisticsInAllForms()
{
    const std::vector<ValueSegment> both = {
        {blockLong, letters(23, 1)}, {blockLong, letters(29, 2)}, {blockShort, letters(shortLengths[0], 3)}};
    const std::vector<ValueSegment> shortOnly = {{blockShort, letters(shortLengths[1], 4)}, {blockShort, letters(shortLengths[2], 5)}};
    Reply reply;
    reply.responses = {
        statsResponse("first:of:all", 0,
                      {chunkedElement("in.three.blocks", letters(19), both), plainElement("plain", letters(7)),
                       chunkedElement("in.one.block", letters(47, 6), {})}),
        statsResponse("nobody.knows.it", -1001, {}),
        statsResponse("last", 5, {chunkedElement("in.short.ones", letters(43, 7), shortOnly)}),
    };
    return reply;
}

Reply idsInAllForms()
{
    Reply reply;
    reply.kind = ReplyKind::Ids;
    reply.responses = {idsResponse("first:of:all", 0, {letters(19), letters(7), letters(53)}), idsResponse("nobody.knows.it", -1001, {}),
                       idsResponse("last", 5, {letters(29)})};
    return reply;
}

std::int32_t numberAt(const Bytes& bytes, std::size_t at, std::size_t width)
{
    if (width == 4) return wordAt(bytes, at);
    return bytes[at] * 256 + bytes[at + 1];
}

Bytes withNumber(Bytes bytes, const Field& field, std::int32_t value)
{
    const Bytes number = field.width == 4 ? be32(value) : be16(static_cast<std::uint32_t>(value) & 0xFFFF);
    for (std::size_t i = 0; i < field.width; i++) bytes[field.at + i] = number[i];
    return bytes;
}

// Every place where a number between 1 and 200 could stand: all lengths and counts are among them, but for those of short
// blocks.
std::vector<Field> possibleFields(const Bytes& data)
{
    std::vector<Field> fields;
    for (std::size_t width : {2u, 4u}) {
        for (std::size_t at = 0; at + width <= data.size(); at++) {
            const std::int32_t value = numberAt(data, at, width);
            if (value >= 1 && value <= 200) fields.push_back({at, width, value});
        }
    }
    return fields;
}

class CutAnswers : public ::testing::TestWithParam<ReplyKind> {
protected:
    // A query that is answered with these data.
    void expectAnswered(const Bytes& sent, const std::string& how)
    {
        const Bytes version = hex("B1 B2 B3 B4");
        gateway.prepare(handshakeReply() + authInitReply(hex("01 02 03 04 05 06 07 08"), hex("A1 A2 A3 A4"))
                        + authConfirmReply(hex("11 12 13 14 15 16 17 18")) + adminInitReply(version)
                        + adminCallReply(1, attributeData("1_0")) + adminInitReply(version) + adminCallReply(5, sent)
                        + closeReply());
        const std::optional<DecodedReply> expected = strictlyDecoded(GetParam(), sent, INITIAL_RESULT_SET_SIZE);
        KRV_GatewayToken_t token = nullptr;
        KRV_ResultSetToken_t set = nullptr;
        char* text = nullptr;
        ASSERT_EQ(0, openGatewayConnection(gateway.port(), &token, &text)) << how;
        const int rc = GetParam() == ReplyKind::Statistics ? getStats(token, &set) : getStatIds(token, &set);
        EXPECT_EQ(expected ? 0 : KRVSTAT_GATEWAY_PROTOCOL_ERROR, rc) << how;
        if (rc == 0 && expected) {
            ASSERT_GE(set->rsBuffLen, static_cast<int>(expected->set.size())) << how;
            EXPECT_EQ(0, std::memcmp(expected->set.data(), set->rsBuffPtr, expected->set.size())) << how;
        }
        if (rc == 0) {
            EXPECT_EQ(0, closeGatewayConnection(&token)) << how;
        }
        EXPECT_EQ(nullptr, gtListHeadPtr) << how;
        (expected ? answers : refusals)++;
    }

    const Bytes data = encodeReply(GetParam() == ReplyKind::Statistics ? statisticsInAllForms() : idsInAllForms());
    ReadyGateway gateway;
    int answers = 0;
    int refusals = 0;
};

} // namespace

TEST_P(CutAnswers, WholeOnesAreTakenAsTheyAre)
{
    expectAnswered(data, "whole");
    EXPECT_EQ(1, answers);
}

TEST_P(CutAnswers, CutBehindEachByteOfAMessageThatSaysSo)
{
    for (std::size_t length = 0; length < data.size(); length++)
        expectAnswered(slice(data, 0, length), "cut to " + std::to_string(length) + " bytes");
    EXPECT_GT(refusals, static_cast<int>(data.size()) - 10) << "but for its end, an answer is needed whole";
}

TEST_P(CutAnswers, WithMoreBehindThemAreTakenAsTheyAre)
{
    for (std::size_t more : {1u, 2u, 3u, 1000u}) expectAnswered(data + Bytes(more, 0x7A), std::to_string(more) + " more");
    EXPECT_EQ(0, refusals);
}

TEST_P(CutAnswers, EachByteSetToOtherValues)
{
    std::mt19937 random(seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (std::size_t at = 0; at < data.size(); at++) {
        for (int value : {0x00, 0xFF, static_cast<int>(random() & 0xFF)}) {
            Bytes sent = data;
            sent[at] = static_cast<unsigned char>(value);
            expectAnswered(sent, "byte " + std::to_string(at) + " set to " + std::to_string(value));
        }
    }
    EXPECT_GT(answers, 0);
    EXPECT_GT(refusals, 0);
}

TEST_P(CutAnswers, EachLengthAndCountSetToOthers)
{
    const std::vector<Field> fields = possibleFields(data);
    for (const Field& field : fields) {
        const std::int32_t largest = field.width == 4 ? INT_MAX : 0x7FFF;
        for (std::int32_t value : {0, 1, -1, largest, field.value + 1, field.value - 1}) {
            expectAnswered(withNumber(data, field, value), std::to_string(field.width) + " bytes at " + std::to_string(field.at)
                                                               + " set to " + std::to_string(value));
        }
    }
    EXPECT_GT(answers, 0);
    EXPECT_GT(refusals, static_cast<int>(fields.size()));
}

TEST_P(CutAnswers, EachLengthOfAShortBlockSetToOthers)
{
    const bool hasBlocks = GetParam() == ReplyKind::Statistics;
    for (const unsigned char length : shortLengths) {
        const Bytes head = {blockShort, length};
        const auto place = std::search(data.begin(), data.end(), head.begin(), head.end());
        EXPECT_EQ(hasBlocks, place != data.end()) << +length;
        if (place == data.end()) continue; // ids come in no blocks
        EXPECT_EQ(data.end(), std::search(place + 1, data.end(), head.begin(), head.end())) << +length;
        const std::size_t at = static_cast<std::size_t>(place - data.begin()) + 1;
        for (int value : {0, 1, 255, length + 1, length - 1}) {
            Bytes sent = data;
            sent[at] = static_cast<unsigned char>(value);
            expectAnswered(sent, std::to_string(length) + " at " + std::to_string(at) + " set to " + std::to_string(value));
        }
    }
    EXPECT_EQ(hasBlocks ? 5 * static_cast<int>(std::size(shortLengths)) : 0, answers + refusals);
}

INSTANTIATE_TEST_SUITE_P(Kinds, CutAnswers, ::testing::Values(ReplyKind::Statistics, ReplyKind::Ids),
                         [](const ::testing::TestParamInfo<ReplyKind>& kind) {
                             return std::string(kind.param == ReplyKind::Statistics ? "Statistics" : "Ids");
                         });
