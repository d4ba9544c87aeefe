// Reply data on its way from the wire: it is never read past its end, and whatever is wrong with it ends in one code.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "krvstats.h"
#include "parse_runs.h"
#include "prepared_peer.h"
#include "result_sets.h"
#include "scripted_peer.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_statcomms.h"
#include "stapi_krv_statquery.h"
#include "trace_claims.h"
#include "watched_allocator.h"

namespace krvtest {

namespace {

char getStatsOperation[] = "GET_STATS";
char statIdsOperation[] = "STAT_IDS";
char resourceGroupsOperation[] = "RESOURCE_GROUPS";
char noIds[] = "";

// Runs one query whose reply data is this.
int queryFor(const Bytes& replies, ReplyKind kind, ParseBuffer& buffer, ReasonCodes* reasons = nullptr)
{
    ReasonCodes mine{};
    PreparedPeer peer(replies);
    return statCommsString(peer.socket(), kind == ReplyKind::Ids ? statIdsOperation : getStatsOperation, noIds,
                           &buffer.block, &buffer.capacity, reasons ? reasons : &mine);
}

int queryForData(const Bytes& data, ReplyKind kind, ParseBuffer& buffer)
{
    return queryFor(queryReplies(data), kind, buffer);
}

testing::AssertionResult givesFromTheWire(ReplyKind kind, const Bytes& data, int capacity)
{
    DecodedReply expected = decodeReply(kind, data, capacity);
    ParseBuffer buffer(capacity, 0);
    int rc = queryForData(data, kind, buffer);
    if (rc != 0) return testing::AssertionFailure() << "rc " << rc;
    if (buffer.capacity != expected.capacity)
        return testing::AssertionFailure() << "capacity " << buffer.capacity << ", not " << expected.capacity;
    std::size_t size = expected.set.size();
    testing::AssertionResult same = sameBytes(expected.set, buffer.first(size));
    if (!same) return same;
    // a dump looks at the whole line in which the terminator starts, and three bytes more
    std::size_t seen = (size - 4) / 16 * 16 + 19;
    if (seen < size) return same;
    return sameBytes(zeros(seen - size), slice(buffer.first(seen), size, seen - size)) << " (behind the terminator)";
}

Reply severalForms(ReplyKind kind)
{
    if (kind == ReplyKind::Ids)
        return {kind, 1, true, 0,
                {idsResponse("g1", 0, {"a", "", "longer"}), idsResponse("bad", -5, {}), idsResponse("g2", 7, {"last"})}, 9};
    StatElement fits = chunkedElement("fits", "12345", {});
    fits.statedChunkLength = 20;
    return {kind, 1, true, 0,
            {statsResponse("g1", 0, {plainElement("plain", "value"), fits}), statsResponse("bad", -5, {}),
             statsResponse("g2", 1,
                           {chunkedElement("z z w", "ab", {{blockLong, "cdef"}, {blockLong, "ghi"}, {blockShort, "jkl"}}),
                            chunkedElement("w w", "a", {{blockShort, "bc"}, {blockShort, "d", 0x10}})})},
            9};
}

// More than so many elements in a row that have the lengths of the first one: the parser comes to expect more of them.
constexpr unsigned int runOfAlike = 7;

// The n-th form of a last element, behind so many plain ones.
Reply endingIn(int form, unsigned int before = 0)
{
    Response response = statsResponse("g", 0, {});
    for (unsigned int i = 0; i < before; i++) response.statistics.push_back(plainElement("id", letters(5, 3 * i)));
    switch (form) {
    case 0: response.statistics.push_back(plainElement("id", "value")); break;
    case 1: response.statistics.push_back(chunkedElement("id", "value", {})); break;
    case 2: response.statistics.push_back(chunkedElement("id", "va", {{blockLong, "lue"}})); break;
    case 3: response.statistics.push_back(chunkedElement("id", "va", {{blockShort, "lue"}})); break;
    case 4: response.statistics.push_back(plainElement("", "")); break;
    case 5: break; // no statistics
    default: response.rc = -1; break;
    }
    return {ReplyKind::Statistics, 0, true, 0, {response}, 77};
}

void cutEverywhere(ReplyKind kind, const Bytes& data)
{
    DecodedReply whole = decodeReply(kind, data, 32768);
    for (std::size_t length = 0; length <= data.size(); length++) {
        ParseBuffer buffer;
        int rc = queryForData(slice(data, 0, length), kind, buffer);
        if (length < whole.needed) {
            ASSERT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, rc) << length << " of " << data.size();
        } else if (length >= whole.lookedAt || rc == 0) {
            ASSERT_EQ(0, rc) << length << " of " << data.size();
            ASSERT_TRUE(sameBytes(whole.set, buffer.first(whole.set.size()))) << length << " of " << data.size();
        } else {
            ASSERT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, rc) << length << " of " << data.size();
        }
        ASSERT_NE(nullptr, buffer.block);
    }
}

Bytes responseHead()
{
    return hex("11 12 13 14 15 16") + hex("00 00") + zeros(13) + hex("00 00") + zeros(13) + hex("77 00");
}

// Up to the first of so many statistics.
Bytes statsHead(std::uint32_t count)
{
    return hex("00") + responseHead() + hex("00 01") + text("S") + hex("00 00 00 00") + be32(count) + hex("00 00")
        + hex("00 00") + zeros(8);
}

Bytes oneStatHead()
{
    return statsHead(1) + zeros(5);
}

// As oneStatHead, of one statistic more than a run that comes first.
Bytes alikeStatsHead()
{
    Bytes head = statsHead(runOfAlike + 1);
    for (unsigned int i = 0; i < runOfAlike; i++) head = head + zeros(5) + hex("77 00 00 02 41 42 00 01 31 00 00");
    return head + zeros(5);
}

} // namespace

TEST(BoundedParse, GivesTheSameAsTheReference)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        ASSERT_TRUE(givesFromTheWire(kind, encodeReply(severalForms(kind)), 32768));
        for (std::uint32_t seed = 1; seed <= 400; seed++) {
            std::mt19937 random(seed);
            Bytes data = encodeReply(randomReply(random, kind, {5, 6, 300}));
            ASSERT_TRUE(givesFromTheWire(kind, data, seed % 2 == 0 ? 32768 : 512)) << "seed " << seed;
        }
    }
}

TEST(BoundedParse, GivesTheSameForLargeReplies)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        for (std::uint32_t seed = 500; seed < 530; seed++) {
            std::mt19937 random(seed);
            Bytes data = encodeReply(randomReply(random, kind, {5, 8, 32767}));
            ASSERT_TRUE(givesFromTheWire(kind, data, 32768)) << "seed " << seed;
        }
    }
}

TEST(BoundedParse, OfTotalsAroundTheCapacityEndsInsideItsRoom)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        for (std::size_t total = 65536 - 6; total <= 65536 + 6; total++) {
            Response response = idsResponse("S", 0, {});
            std::size_t each = kind == ReplyKind::Ids ? 4 : 9;
            std::size_t last = total - (8 + 4 + 4 + 1 + 4 + 4) - 2 * (each + 20000) - each;
            for (std::size_t length : {std::size_t{20000}, std::size_t{20000}, last}) {
                response.ids.push_back(letters(length));
                response.statistics.push_back(plainElement("i", letters(length)));
            }
            Bytes data = encodeReply({kind, 0, true, 0, {response}, 3});
            ASSERT_EQ(total + 4, decodeReply(kind, data, 32768).set.size());
            ASSERT_TRUE(givesFromTheWire(kind, data, 32768)) << "total " << total;
        }
    }
}

TEST(BoundedParse, RefusesEveryPrefixThatLacksSomething)
{
    cutEverywhere(ReplyKind::Statistics, encodeReply(severalForms(ReplyKind::Statistics)));
    cutEverywhere(ReplyKind::Ids, encodeReply(severalForms(ReplyKind::Ids)));
    for (int form = 0; form <= 6; form++) {
        cutEverywhere(ReplyKind::Statistics, encodeReply(endingIn(form)));
        cutEverywhere(ReplyKind::Statistics, encodeReply(endingIn(form, runOfAlike)));
    }
    cutEverywhere(ReplyKind::Ids, encodeReply({ReplyKind::Ids, 0, true, 0, {idsResponse("g", -1, {})}, 1}));
    cutEverywhere(ReplyKind::Ids, encodeReply({ReplyKind::Ids, 0, true, 0, {idsResponse("g", 0, {})}, 1}));
    cutEverywhere(ReplyKind::Ids, encodeReply({ReplyKind::Ids, 1, true, 0, {}, 1}));
}

// The data of each prefix lie in front of memory that cannot be read.
TEST(BoundedParse, ReadsNoByteBehindTheData)
{
    std::vector<Reply> replies = {severalForms(ReplyKind::Statistics), severalForms(ReplyKind::Ids)};
    for (int form = 0; form < 7; form++) replies.push_back(endingIn(form));
    replies.push_back(endingIn(0, runOfAlike));
    for (const Reply& reply : replies) {
        const Bytes whole = encodeReply(reply);
        for (std::size_t length = 1; length <= whole.size(); length++) {
            ParseBuffer buffer;
            PreparedPeer peer(queryReplies(slice(whole, 0, length)));
            ReasonCodes reasons{};
            char* const operation = reply.kind == ReplyKind::Ids ? statIdsOperation : getStatsOperation;
            int rc, requests, blocksLeft;
            {
                AllocationWatch watch(length, length);
                watch.fence();
                rc = statCommsString(peer.socket(), operation, noIds, &buffer.block, &buffer.capacity, &reasons);
                requests = watch.requests();
                blocksLeft = watch.blocksLeft();
            }
            EXPECT_LE(1, requests);
            EXPECT_EQ(0, blocksLeft);
            EXPECT_TRUE(rc == 0 || rc == KRVSTAT_GATEWAY_PROTOCOL_ERROR) << rc;
            if (length == whole.size()) {
                EXPECT_EQ(0, rc);
            }
        }
    }
}

// Where a plain element has its two lengths, 0 and 9 * 256 here, a chunked one has parts of its fields.
TEST(BoundedParse, ChunkedElementThatLooksLikeTheOnesBeforeItIsNotTakenForOne)
{
    Bytes data = statsHead(runOfAlike + 2);
    const Bytes alike = zeros(5) + hex("77 00 00 00 09 00") + text(letters(9 * 256)) + zeros(2);
    for (unsigned int i = 0; i < runOfAlike; i++) data = data + alike;
    data = data + zeros(5) + hex("7A 00 00 00 09 00 02 41 42 00 03 31 32 33 00 00") + alike;
    EXPECT_TRUE(givesFromTheWire(ReplyKind::Statistics, data, 32768));
}

TEST(BoundedParse, RefusesPrefixesOfGeneratedReplies)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        for (std::uint32_t seed = 700; seed < 712; seed++) {
            std::mt19937 random(seed);
            SCOPED_TRACE("seed " + std::to_string(seed));
            cutEverywhere(kind, encodeReply(randomReply(random, kind, {3, 3, 20})));
        }
    }
}

TEST(BoundedParse, CountsThatPromiseMoreThanThereIsAreRefused)
{
    for (const char* count : {"00 00 00 02", "00 01 00 00", "7F FF FF FF"}) {
        for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
            ParseBuffer buffer;
            Bytes responses = hex("01") + hex(count) + responseHead() + hex("00 00 FF FF FF FF 00");
            EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryForData(responses, kind, buffer)) << count;
        }
        ParseBuffer buffer;
        Bytes ids = hex("00") + responseHead() + hex("00 01 67 00 00 00 00") + hex(count) + hex("00 01 41 00");
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryForData(ids, ReplyKind::Ids, buffer)) << count;
        Bytes stats = hex("00") + responseHead() + hex("00 01 67 00 00 00 00") + hex(count) + zeros(12)
            + zeros(5) + hex("77 00 00 01 41 00 01 31 00 00");
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryForData(stats, ReplyKind::Statistics, buffer)) << count;
    }
}

TEST(BoundedParse, NegativeCountsYieldNothing)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        Reply none{kind, 1, false, INT_MIN, {}, 1};
        EXPECT_TRUE(givesFromTheWire(kind, encodeReply(none), 32768));
        Response empty = idsResponse("g", 0, {});
        empty.counted = false;
        empty.statedCount = -7;
        EXPECT_TRUE(givesFromTheWire(kind, encodeReply({kind, 0, true, 0, {empty}, 1}), 32768));
    }
}

TEST(BoundedParse, NegativeLengthsAreRefused)
{
    Bytes tail(40000, 0x20);
    Bytes stats[] = {
        hex("00 11 12 13 14 15 16 80 00") + tail,
        hex("00 11 12 13 14 15 16 00 00") + zeros(13) + hex("FF FF") + tail,
        hex("00") + responseHead() + hex("FF FE") + tail,
        hex("00") + responseHead() + hex("00 00 00 00 00 00 00 00 00 01 41 42 FF FF") + tail,
        oneStatHead() + hex("77 00 FF FF") + tail,
        oneStatHead() + hex("77 00 00 00 80 01") + tail,
        oneStatHead() + hex("7A 00 00 00 06 00 01 41 00 09 62 7A 00 00 FF FF") + tail,
        alikeStatsHead() + hex("77 00 FF FE 41 42 00 01 31 00 00") + tail,
        alikeStatsHead() + hex("77 00 00 02 41 42 80 01 31 00 00") + tail,
    };
    for (std::size_t i = 0; i < std::size(stats); i++) {
        ParseBuffer buffer;
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryForData(stats[i], ReplyKind::Statistics, buffer)) << "reply " << i;
    }
    Bytes id = hex("00") + responseHead() + hex("00 00 00 00 00 00 00 00 00 01 FF FF") + tail;
    ParseBuffer buffer;
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryForData(id, ReplyKind::Ids, buffer));
}

TEST(BoundedParse, FirstChunkShorterThanItsIdIsRefused)
{
    Bytes tail(40000, 0x20);
    for (std::uint32_t chunk : {0u, 4u, 6u, 0x8000u, 0xFFFFu}) {
        ParseBuffer buffer;
        Bytes data = oneStatHead() + hex("7A 00 00") + be16(chunk) + hex("00 03 41 42 43") + hex("00 05") + tail;
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryForData(data, ReplyKind::Statistics, buffer)) << chunk;
    }
}

TEST(BoundedParse, SkipPastTheEndIsAnErrorOnlyIfSomethingIsReadBehind)
{
    // the byte skipped behind a failed response, and the two behind an element, may be missing
    EXPECT_TRUE(givesFromTheWire(ReplyKind::Ids, hex("00") + responseHead() + hex("00 01 67 FF FF FF FF"), 32768));
    EXPECT_TRUE(givesFromTheWire(ReplyKind::Statistics, oneStatHead() + hex("77 00 00 01 41 00 01 31"), 32768));
    EXPECT_TRUE(givesFromTheWire(ReplyKind::Statistics, oneStatHead() + hex("77 00 00 01 41 00 01 31 00"), 32768));
    // a skipped text that reaches past the end, with a read behind it
    ParseBuffer buffer;
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR,
              queryForData(hex("00 11 12 13 14 15 16 7F FF") + zeros(100), ReplyKind::Ids, buffer));
    // the text in front of no statistics at all
    EXPECT_TRUE(givesFromTheWire(
        ReplyKind::Statistics, hex("00") + responseHead() + hex("00 01 67 00 00 00 00 00 00 00 00 00 00 7F FF"), 32768));
}

TEST(BoundedParse, SpoiltRepliesNeverGiveAnythingButAnAnswerOrARefusal)
{
    int answers = 0, refusals = 0;
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        for (std::uint32_t seed = 3000; seed < 4500; seed++) {
            std::mt19937 random(seed);
            Bytes data = encodeReply(randomReply(random, kind, {3, 4, 40}));
            for (std::size_t i = 1 + random() % 4; i > 0; i--) {
                static const unsigned char tempting[] = {0, 1, 0x77, 0x7A, 0x7F, 0x80, 0xFF};
                data[random() % data.size()] = tempting[random() % sizeof tempting];
            }
            ParseBuffer buffer;
            int rc = queryForData(data, kind, buffer);
            ASSERT_TRUE(rc == 0 || rc == KRVSTAT_GATEWAY_PROTOCOL_ERROR) << "rc " << rc << ", seed " << seed;
            answers += rc == 0;
            refusals += rc != 0;
            if (rc != 0) continue;
            // what is in the buffer ends before the capacity; a walk over it stays inside
            HeldSet set(buffer.first(static_cast<std::size_t>(buffer.capacity)), buffer.capacity);
            KRV_IdData_t id;
            KRV_StatData_t stat;
            for (int i = 0; i < 200; i++)
                if ((kind == ReplyKind::Ids ? getNextId(set.token, &id) : getNextStat(set.token, &stat)) != 0) break;
        }
    }
    EXPECT_GT(answers, 100);
    EXPECT_GT(refusals, 100);
}

TEST(BoundedParse, TraceOfAReplyThatEndsTooSoonSaysZeroForWhatIsMissing)
{
    TraceFile trace(5);
    const auto tracedFor = [&](const Bytes& data, ReplyKind kind, int number) {
        trace.forget();
        ParseBuffer buffer;
        EXPECT_NE(0, queryForData(data, kind, buffer));
        const std::vector<std::string> lines = brief(linesNumbered(trace.lines(), number));
        return lines.empty() ? "" : lines.back();
    };
    const Bytes withoutCount = hex("01 00");
    EXPECT_EQ("2221 DEBUG stapi_krv_statcomms.parseStatsData received 0 responses from the Gateway",
        tracedFor(withoutCount, ReplyKind::Statistics, 2221));
    EXPECT_EQ("2241 DEBUG stapi_krv_statcomms.parseStatsData parsed data total = 0 bytes ",
        tracedFor(withoutCount, ReplyKind::Statistics, 2241));
    EXPECT_EQ("2225 DEBUG stapi_krv_statcomms.parseIdsData received 0 responses from the Gateway",
        tracedFor(withoutCount, ReplyKind::Ids, 2225));

    StatElement continued = chunkedElement("id", "first part", {});
    continued.statedValueLength = 20;
    Bytes data = encodeReply({ReplyKind::Statistics, 1, true, 0, {statsResponse("g", 0, {continued})}, 9});
    const Bytes part = text("first part");
    data.erase(std::search(data.begin(), data.end(), part.begin(), part.end()) + 10, data.end());
    EXPECT_EQ("2236 DEBUG stapi_krv_statcomms.parseStatsData block type=00000000 ",
        tracedFor(data, ReplyKind::Statistics, 2236));
    data.pop_back();
    EXPECT_EQ("", tracedFor(data, ReplyKind::Statistics, 2240)) << "nothing of an element that is not whole";
}

TEST(BoundedParse, ReplyWithoutDataIsRefused)
{
    Bytes init = adminInitReply(hex("01 02 03 04"));
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        ParseBuffer buffer;
        // a body of exactly the fixed fields: no data at all
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryFor(init + adminCallReply(5, {}), kind, buffer));
        // a second init reply: nobody made a block for the data
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryFor(init + init, kind, buffer));
    }
}

TEST(BoundedParse, OperationChoosesTheParser)
{
    Bytes data = hex("01 00 00 00 00");
    for (char* operation : {statIdsOperation, resourceGroupsOperation, getStatsOperation}) {
        ParseBuffer buffer;
        ReasonCodes reasons{};
        PreparedPeer peer(queryReplies(data));
        ASSERT_EQ(0, statCommsString(peer.socket(), operation, noIds, &buffer.block, &buffer.capacity, &reasons));
        EXPECT_TRUE(sameBytes(text(operation == getStatsOperation ? "KRVSTSET" : "KRVIDSET"), buffer.first(8)));
    }
    char unknown[] = "GET_STATSX";
    ParseBuffer buffer;
    ReasonCodes reasons{};
    PreparedPeer peer(queryReplies(data));
    ASSERT_EQ(0, statCommsString(peer.socket(), unknown, noIds, &buffer.block, &buffer.capacity, &reasons));
    EXPECT_TRUE(sameBytes(text("KRVIDSET"), buffer.first(8)));
}

TEST(BoundedParse, WrappersReportEveryBadReplyAsOne)
{
    struct Wrapper {
        int (*call)(int, char**, int*);
        ReplyKind kind;
    };
    for (Wrapper wrapper : {Wrapper{commsStats, ReplyKind::Statistics}, Wrapper{commsStatIds, ReplyKind::Ids},
                            Wrapper{commsResourceGroupsIds, ReplyKind::Ids}}) {
        ParseBuffer buffer;
        Bytes whole = encodeReply(severalForms(wrapper.kind));
        {
            PreparedPeer peer(queryReplies(whole));
            EXPECT_EQ(0, wrapper.call(peer.socket(), &buffer.block, &buffer.capacity));
        }
        {
            PreparedPeer peer(queryReplies(slice(whole, 0, 60)));
            EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, wrapper.call(peer.socket(), &buffer.block, &buffer.capacity));
        }
        {
            PreparedPeer peer(queryReplies({}));
            EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, wrapper.call(peer.socket(), &buffer.block, &buffer.capacity));
        }
    }
}

TEST(BoundedParse, BadReplyRemovesTheConnection)
{
    Bytes whole = encodeReply(severalForms(ReplyKind::Statistics));
    ScriptedPeer peer({opening() + query(whole) + query(slice(whole, 0, whole.size() - 10)) + farewell()});
    char host[] = "127.0.0.1";
    KRV_GatewayToken_t gateway = nullptr;
    char* version = nullptr;
    ASSERT_EQ(0, openRemoteGatewayConnection(host, peer.port(), &gateway, &version));
    KRV_ResultSetToken_t set = nullptr;
    ASSERT_EQ(0, getStats(gateway, &set));
    KRV_StatData_t stat;
    EXPECT_EQ(0, getFirstStat(set, &stat));
    KRV_ResultSetToken_t unwritten = nullptr;
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, getStats(gateway, &unwritten));
    EXPECT_EQ(nullptr, unwritten);
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, getStats(gateway, &unwritten));
    EXPECT_EQ(nullptr, gtListHeadPtr);
    peer.finish();
    EXPECT_EQ("", peer.problem());
}

TEST(BoundedParse, DumpOfASetFromTheWireShowsZerosBehindItsTerminator)
{
    // a long answer first, so that the second one's terminator stands in front of its remains
    Bytes first = encodeReply({ReplyKind::Ids, 0, true, 0, {idsResponse(letters(500), 0, {letters(300)})}, 1});
    Bytes second = encodeReply({ReplyKind::Ids, 1, true, 0, {}, 1});
    ParseBuffer buffer;
    ASSERT_EQ(0, queryForData(first, ReplyKind::Ids, buffer));
    ASSERT_EQ(0, queryForData(second, ReplyKind::Ids, buffer));
    Bytes set = text("KRVIDSET") + hostWord(0) + terminatorBytes();
    EXPECT_TRUE(sameBytes(set + zeros(15), buffer.first(set.size() + 15)));
}

TEST(BoundedParse, ABufferBelowThePreambleTakesNoAnswer)
{
    for (ReplyKind kind : {ReplyKind::Statistics, ReplyKind::Ids}) {
        ParseBuffer buffer(100);
        buffer.capacity = 11;
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, queryForData(encodeReply({kind, 0, true, 0, {}, 1}), kind, buffer));
        EXPECT_TRUE(sameBytes(Bytes(100, ParseBuffer::untouched), buffer.first(100)));
        EXPECT_EQ(11, buffer.capacity);
    }
}

// The terminator's own growth repairs a growth that failed, but not a reply that was cut.
TEST(BoundedParse, ACutReplyStaysABadOneWhenTheBufferGrowsForItsTerminator)
{
    ParseBuffer buffer(12);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryForData(hex("00"), ReplyKind::Statistics, buffer));
    EXPECT_EQ(24, buffer.capacity);
    EXPECT_TRUE(sameBytes(text("KRVSTSET") + hostWord(1) + terminatorBytes(), buffer.first(16)));
}

TEST(BoundedParse, NegativeLengthsAreRefusedHoweverMuchFollows)
{
    const Bytes head = hex("00") + responseHead() + hex("00 01 67 00 00 00 00") + hex("00 00 00 01") + zeros(12);
    const Bytes element = zeros(5) + hex("77 00");
    for (const char* length : {"80 00", "FF FF"}) {
        for (const Bytes& lengths : {hex(length), hex("00 01 41") + hex(length)}) {
            ParseBuffer buffer(300000);
            EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR,
                      queryForData(head + element + lengths + zeros(200000), ReplyKind::Statistics, buffer));
            EXPECT_EQ(300000, buffer.capacity);
        }
    }
}

} // namespace krvtest
