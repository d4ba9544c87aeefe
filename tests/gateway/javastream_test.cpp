// Responses must satisfy two readers at once: a client that passes over fixed widths, and the grammar of Java's
// object streams.
#include "fixed_width_reader.h"
#include "javastream.h"
#include "object_stream_reader.h"

#include <gtest/gtest.h>

using krvgw::BlockCut;
using krvgw::Message;
using krvgw::Response;
using krvgwtest::readObjectStream;
using krvgwtest::readResult;
using krvgwtest::ResultKind;
using krvtest::counted;
using krvtest::hex;
using krvtest::operator+;
using krvtest::sameBytes;

namespace {

// The result of an operation that has this one response: no array.
krvtest::Bytes resultOf(const Response& response, ResultKind kind)
{
    Message message;
    krvgw::put8(message, 0);
    if (kind == ResultKind::Stats)
        krvgw::putStatsResponse(message, response);
    else
        krvgw::putIdsResponse(message, response);
    return message.bytes;
}

Response responseWith(std::vector<krvgw::Statistic> elements, std::string queryElement = "q")
{
    return {std::move(queryElement), 0, std::move(elements)};
}

// Reads a statistics response both ways and compares what came out with what went in.
void expectBothReadersAgree(const Response& response)
{
    const auto data = resultOf(response, ResultKind::Stats);
    const auto result = readResult(data, ResultKind::Stats);
    ASSERT_TRUE(result.isWhole);
    ASSERT_EQ(result.responses.size(), 1u);
    ASSERT_EQ(result.responses[0].elements.size(), response.elements.size());
    for (std::size_t i = 0; i < response.elements.size(); ++i) {
        EXPECT_EQ(result.responses[0].elements[i].id, response.elements[i].id);
        EXPECT_EQ(result.responses[0].elements[i].value, response.elements[i].value);
    }

    const auto stream = readObjectStream(data, 1);
    ASSERT_EQ(stream.problem, "");
    EXPECT_EQ(stream.size, data.size() - 1);
    ASSERT_EQ(stream.object.objects.size(), response.elements.size());
    for (std::size_t i = 0; i < response.elements.size(); ++i) {
        const krvtest::Bytes content = counted(response.elements[i].id) + counted(response.elements[i].value);
        EXPECT_EQ(stream.object.objects[i].blockData, std::string(content.begin(), content.end()));
    }
}

// The blocks of a statistic with an id of 4 bytes and a value of this length.
std::vector<krvgwtest::StreamBlock> blocksOf(std::size_t valueLength, std::vector<BlockCut> cuts = {})
{
    const Response response = responseWith({{"stat", std::string(valueLength, 'v'), 0, std::move(cuts)}});
    expectBothReadersAgree(response);
    return readObjectStream(resultOf(response, ResultKind::Stats), 1).object.objects.at(0).blocks;
}

std::string pictureOf(const std::vector<krvgwtest::StreamBlock>& blocks)
{
    std::string picture;
    for (const auto& block : blocks)
        picture += std::string(picture.empty() ? "" : " ") + (block.isLong ? "z" : "w") + std::to_string(block.size);
    return picture;
}

}  // namespace

TEST(JavaStream, AStatsResponseIsThisToTheByte)
{
    const Response response{"cpu", 0, {{"a.b", "12", 0, {}}, {"a.c", "", 0, {}}}};
    Message message;
    krvgw::putStatsResponse(message, response);
    const krvtest::Bytes expected =
        hex("AC ED 00 05")                               // stream magic, version
        + hex("73 72")                                   // object, class description
        + counted("com.qal.krv.stats.StatsQueryResponse")
        + hex("1B 2C 3D 4E 5F 60 71 82")                 // serialVersionUID
        + hex("0C 00 00 78")                             // externalizable with blocks, no fields, end of annotation
        + hex("72")                                      // superclass description
        + counted("com.qal.krv.stats.QueryResponse")
        + hex("3D 4E 5F 60 71 82 93 A4")                 // serialVersionUID
        + hex("0C 00 00 78 70")                          // the same, and no further superclass
        + hex("77 0D")                                   // block of 13 bytes
        + counted("cpu")                                 // query element
        + hex("00 00 00 00")                             // return code
        + hex("00 00 00 02")                             // number of statistics
        + hex("73 72")                                   // object, class description
        + counted("com.qal.krv.stats.Statistic")
        + hex("4E 5F 60 71 82 93 A4 B5")                 // serialVersionUID
        + hex("0C 00 00 78 70")                          // flags, no fields, end of annotation, no superclass
        + hex("77 09") + counted("a.b") + counted("12")  // block with id and value
        + hex("78")                                      // end of this statistic
        + hex("73 71 00 7E 00 03")                       // object, of the class with handle 7E0003
        + hex("77 07") + counted("a.c") + counted("")    // block with id and value
        + hex("78")                                      // end of this statistic
        + hex("78");                                     // end of the response
    EXPECT_TRUE(sameBytes(expected, message.bytes));
}

TEST(JavaStream, AnIdsResponseIsThisToTheByte)
{
    const Response response{"cpu:x", 4, {{"a.b", "", 0, {}}, {"c", "", 0, {}}}};
    Message message;
    krvgw::putIdsResponse(message, response);
    const krvtest::Bytes expected =
        hex("AC ED 00 05 73 72")                         // stream, object, class description
        + counted("com.qal.krv.stats.IdsQueryResponse")
        + hex("2C 3D 4E 5F 60 71 82 93 0C 00 00 78")     // serialVersionUID, flags, no fields, end of annotation
        + hex("72")                                      // superclass description
        + counted("com.qal.krv.stats.QueryResponse")
        + hex("3D 4E 5F 60 71 82 93 A4 0C 00 00 78 70")  // the same, no further superclass
        + hex("77 17")                                   // block of 23 bytes
        + counted("cpu:x")                               // query element
        + hex("00 00 00 04")                             // return code
        + hex("00 00 00 02")                             // number of ids
        + counted("a.b") + counted("c")
        + hex("78");                                     // end of the response
    EXPECT_TRUE(sameBytes(expected, message.bytes));
}

TEST(JavaStream, AResponseWithANegativeCodeEndsBehindIt)
{
    for (const ResultKind kind : {ResultKind::Stats, ResultKind::Ids}) {
        const auto data = resultOf({"nothing", -5, {}}, kind);
        const krvtest::Bytes end = hex("77 0D") + counted("nothing") + hex("FF FF FF FB") + hex("78");
        EXPECT_TRUE(sameBytes(end, krvtest::slice(data, data.size() - end.size(), end.size())));
        const auto result = readResult(data, kind);
        EXPECT_TRUE(result.isWhole);
        ASSERT_EQ(result.responses.size(), 1u);
        EXPECT_EQ(result.responses[0], (krvgwtest::ReadResponse{"nothing", -5, {}}));
        EXPECT_EQ(readObjectStream(data, 1).problem, "");
    }
}

TEST(JavaStream, AResponseWithoutStatisticsKeepsBothReadersInStep)
{
    const auto data = resultOf({"idle", 0, {}}, ResultKind::Stats);
    const krvtest::Bytes end = counted("idle") + hex("00 00 00 00")  // return code
                               + hex("00 00 00 00")                  // number of statistics
                               + hex("70 74")                        // null, text
                               + counted("com.qal.krv.stats.Statistic")
                               + hex("77 05 00 00 00 00 00")         // block of five zeros
                               + hex("78");                          // end of the response
    EXPECT_TRUE(sameBytes(end, krvtest::slice(data, data.size() - end.size(), end.size())));
    EXPECT_TRUE(readResult(data, ResultKind::Stats).isWhole);
    const auto stream = readObjectStream(data, 1);
    EXPECT_EQ(stream.problem, "");
    EXPECT_EQ(stream.size, data.size() - 1);
}

TEST(JavaStream, BlocksChangeTheirFormAt255And1024Bytes)
{
    // 4 bytes of id, and the two lengths: 8 bytes more than the value.
    EXPECT_EQ(pictureOf(blocksOf(0)), "w8");
    EXPECT_EQ(pictureOf(blocksOf(247)), "w255");
    EXPECT_EQ(pictureOf(blocksOf(248)), "z256");
    EXPECT_EQ(pictureOf(blocksOf(1016)), "z1024");
    EXPECT_EQ(pictureOf(blocksOf(1017)), "z1024 w1");
    EXPECT_EQ(pictureOf(blocksOf(1016 + 255)), "z1024 w255");
    EXPECT_EQ(pictureOf(blocksOf(1016 + 256)), "z1024 z256");
    EXPECT_EQ(pictureOf(blocksOf(2040)), "z1024 z1024");
    EXPECT_EQ(pictureOf(blocksOf(2041)), "z1024 z1024 w1");
    EXPECT_EQ(blocksOf(32767).size(), 33u);
}

TEST(JavaStream, EveryValueLengthUpToThreeBlocksReadsBack)
{
    for (std::size_t length = 0; length <= 3200; ++length) {
        blocksOf(length);
        if (HasFailure()) FAIL() << "value of " << length << " bytes";
    }
}

TEST(JavaStream, TheFirstBlockHoldsAnIdOfAnyLengthWhole)
{
    for (const std::size_t idLength : {0u, 1u, 251u, 252u, 1019u, 1020u, 1021u, 5000u, 32763u}) {
        for (const std::size_t valueLength : {0u, 1u, 255u, 256u, 3000u, 32767u}) {
            SCOPED_TRACE("id " + std::to_string(idLength) + ", value " + std::to_string(valueLength));
            const krvgw::Statistic first{std::string(idLength, 'i'), std::string(valueLength, 'v'), 0, {}};
            expectBothReadersAgree(responseWith({first, {"next", "1", 0, {}}}));
        }
    }
}

TEST(JavaStream, BlocksCanBeCutByHand)
{
    EXPECT_EQ(pictureOf(blocksOf(100, {{true, 1024}})), "z108");
    EXPECT_EQ(pictureOf(blocksOf(100, {{true, 8}, {true, 40}})), "z8 z40 w60");
    EXPECT_EQ(pictureOf(blocksOf(700, {{true, 300}, {false, 200}})), "z300 w200 w208");
    EXPECT_EQ(pictureOf(blocksOf(900, {{true, 300}, {false, 200}})), "z300 w200 w255 w153");
}

TEST(JavaStream, LongQueryElementsAndIdListsStandInOneBlock)
{
    std::vector<krvgw::Statistic> ids;
    for (int i = 0; i < 5000; ++i) ids.push_back({"statistic." + std::to_string(i), "", 0, {}});
    const auto data = resultOf(responseWith(ids, std::string(3000, 'q')), ResultKind::Ids);
    const auto stream = readObjectStream(data, 1);
    EXPECT_EQ(stream.problem, "");
    EXPECT_EQ(stream.object.blocks.size(), 1u);
    const auto result = readResult(data, ResultKind::Ids);
    EXPECT_TRUE(result.isWhole);
    EXPECT_EQ(result.responses.at(0).queryElement.size(), 3000u);
    EXPECT_EQ(result.responses.at(0).elements.size(), 5000u);
    EXPECT_EQ(result.responses.at(0).elements.back().id, "statistic.4999");
}

TEST(JavaStream, OnlyTheFirstStatisticSpellsOutItsClass)
{
    const Response response = responseWith({{"a", "1", 0, {}}, {"b", "2", 0, {}}, {"c", "3", 0, {}}});
    const auto stream = readObjectStream(resultOf(response, ResultKind::Stats), 1);
    ASSERT_EQ(stream.problem, "");
    ASSERT_EQ(stream.object.objects.size(), 3u);
    EXPECT_TRUE(stream.object.objects[0].isClassSpelledOut);
    EXPECT_FALSE(stream.object.objects[1].isClassSpelledOut);
    EXPECT_FALSE(stream.object.objects[2].isClassSpelledOut);
    EXPECT_EQ(stream.object.objects[2].className, "com.qal.krv.stats.Statistic");
}
