// Walks over sets that are cut off, lie about their lengths or end in the wrong place, against a model: nothing outside
// of a set's stated length and a terminator that straddles it is ever read, and a refused walk changes nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <string>

#include "krvstats.h"
#include "reference_walk.h"
#include "result_sets.h"

namespace krvtest {

namespace {

constexpr std::size_t terminatorRoom = 4; // all that may be read behind the stated length

struct Record {
    KRV_IdData_t id;
    KRV_StatData_t stat;
};

Record untouchedRecord()
{
    Record record;
    std::memset(&record, 0x5A, sizeof record);
    return record;
}

int call(HeldSet& set, bool statistics, bool first, Record& record)
{
    if (statistics) return first ? getFirstStat(set.token, &record.stat) : getNextStat(set.token, &record.stat);
    return first ? getFirstId(set.token, &record.id) : getNextId(set.token, &record.id);
}

testing::AssertionResult samePlace(const char* name, const HeldSet& set, std::size_t offset, const char* actual)
{
    if (actual == set.block() + offset) return testing::AssertionSuccess();
    return testing::AssertionFailure() << name << " at " << actual - set.block() << ", not " << offset;
}

testing::AssertionResult sameNumber(const char* name, std::int32_t expected, std::int32_t actual)
{
    if (expected == actual) return testing::AssertionSuccess();
    return testing::AssertionFailure() << name << " " << actual << ", not " << expected;
}

// What the call left in the record, given what the model found.
testing::AssertionResult sameRecord(const HeldSet& set, bool statistics, const WalkStep& step, const Record& record)
{
    Record expected = untouchedRecord();
    if (!step.found) {
        // a refused first call may have named the category already
        std::memcpy(expected.id.eyecatcher, record.id.eyecatcher, 8);
        std::memcpy(expected.stat.eyecatcher, record.stat.eyecatcher, 8);
    } else if (statistics) {
        if (step.startsOver) std::memcpy(expected.stat.eyecatcher, "KRVSTSET", 8);
        expected.stat.queryElementPtr = set.block() + step.queryElement.offset;
        expected.stat.queryElementLen = step.queryElement.length;
        expected.stat.queryElementRC = step.queryElementRc;
        if (step.hasElement) {
            expected.stat.statIdPtr = set.block() + step.id.offset;
            expected.stat.statIdLen = step.id.length;
            expected.stat.statValuePtr = set.block() + step.value.offset;
            expected.stat.statValueLen = step.value.length;
        }
    } else {
        if (step.startsOver) std::memcpy(expected.id.eyecatcher, "KRVIDSET", 8);
        expected.id.queryElementPtr = set.block() + step.queryElement.offset;
        expected.id.queryElementLen = step.queryElement.length;
        expected.id.queryElementRC = step.queryElementRc;
        if (step.hasElement) {
            expected.id.idPtr = set.block() + step.id.offset;
            expected.id.idLen = step.id.length;
        }
    }
    if (std::memcmp(&expected, &record, sizeof record) == 0) return testing::AssertionSuccess();
    const unsigned char* e = reinterpret_cast<const unsigned char*>(&expected);
    const unsigned char* a = reinterpret_cast<const unsigned char*>(&record);
    return sameBytes(Bytes(e, e + sizeof expected), Bytes(a, a + sizeof record)) << " (record)";
}

testing::AssertionResult sameState(const HeldSet& set, const WalkState& state)
{
    const Internal_ResultSetToken_t* token = set.token;
    for (const testing::AssertionResult& each :
         {samePlace("cursor", set, state.cursor, token->cursor), sameNumber("queryCount", state.queryCount, token->queryCount),
          sameNumber("queryIndex", state.queryIndex, token->queryIndex),
          sameNumber("elementResultCount", state.elementResultCount, token->elementResultCount),
          sameNumber("elementResultIndex", state.elementResultIndex, token->elementResultIndex),
          samePlace("cacheElementPtr", set, state.cachedElement.offset, token->cacheElementPtr),
          sameNumber("cacheElementLen", state.cachedElement.length, token->cacheElementLen),
          sameNumber("cacheElementRC", state.cachedRc, token->cacheElementRC)})
        if (!each) return each;
    return testing::AssertionSuccess();
}

// Walks with calls chosen by `random` (or with next calls only) and compares each with the model.
testing::AssertionResult walksAsTheModel(const Bytes& content, int stated, bool statistics, std::mt19937* random,
                                         std::size_t room = terminatorRoom)
{
    HeldSet set(content, stated, room);
    WalkedSet model{content, stated, statistics};
    model.bytes.resize(static_cast<std::size_t>(stated) + room);
    WalkState state;
    for (int i = 0, ends = 0; i < 400 && ends < 3; i++) {
        bool first = random ? (*random)() % 16 == 0 : false;
        Bytes before = recordBytes(set.token);
        Record record = untouchedRecord();
        WalkStep step = first ? walkFirst(model, state) : walkNext(model, state);
        int rc = call(set, statistics, first, record);
        std::string where = "call " + std::to_string(i) + (first ? " (first)" : " (next)");
        if (rc != (step.found ? 0 : KRVSTAT_RESULT_SET_EMPTY)) return testing::AssertionFailure() << where << ": rc " << rc;
        testing::AssertionResult same = sameRecord(set, statistics, step, record);
        if (!same) return same << where;
        if (!step.found) {
            ends++;
            same = sameBytes(before, recordBytes(set.token));
            if (!same) return same << where << ": the token changed";
            continue;
        }
        same = sameState(set, state);
        if (!same) return same << " " << where;
    }
    return testing::AssertionSuccess();
}

SetQuery randomQuery(std::mt19937& random)
{
    SetQuery query;
    query.queryElement = letters(random() % 12);
    query.rc = random() % 4 == 0 ? -1 - static_cast<std::int32_t>(random() % 1000) : static_cast<std::int32_t>(random() % 2);
    if (query.rc < 0) return query;
    for (std::size_t i = random() % 5; i > 0; i--)
        query.elements.push_back({letters(random() % 9), letters(random() % 20)});
    return query;
}

Bytes randomSet(std::mt19937& random, bool statistics)
{
    std::vector<SetQuery> queries;
    for (std::size_t i = random() % 6; i > 0; i--) queries.push_back(randomQuery(random));
    return statistics ? statSet(queries) : idSet(queries);
}

// Puts a number of interest over a random word behind the category.
void spoil(Bytes& content, std::mt19937& random)
{
    const std::int32_t tempting[] = {-1, INT_MIN, INT_MAX, 0, 1, 5, 1000, 0x0E0F0E0F, 0x7FFFFFF0,
                                     static_cast<std::int32_t>(content.size())};
    std::size_t at = 8 + random() % (content.size() - 11);
    Bytes word = hostWord(tempting[random() % std::size(tempting)]);
    std::copy(word.begin(), word.end(), content.begin() + static_cast<std::ptrdiff_t>(at));
}

Bytes queryHeader(const std::string& element, std::int32_t rc)
{
    return hostWord(static_cast<std::int32_t>(element.size())) + text(element) + hostWord(rc);
}

Bytes idElement(const std::string& id)
{
    return hostWord(static_cast<std::int32_t>(id.size())) + text(id);
}

// A walk by next calls over this set ends after so many elements, and the token stays as the last of them left it.
void expectElementsThenEnd(const Bytes& content, int stated, int elements)
{
    HeldSet set(content, std::max(stated, 0), content.size() + terminatorRoom);
    set.token->rsBuffLen = stated;
    Record record = untouchedRecord();
    for (int i = 0; i < elements; i++) ASSERT_EQ(0, call(set, content[3] == 'S', i == 0, record)) << "element " << i;
    for (int i = 0; i < 3; i++) {
        Bytes before = recordBytes(set.token);
        Record last = untouchedRecord();
        EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, call(set, content[3] == 'S', elements == 0, last));
        EXPECT_TRUE(sameBytes(before, recordBytes(set.token)));
        EXPECT_EQ(untouchedRecord().id.queryElementLen, last.id.queryElementLen);
        EXPECT_EQ(untouchedRecord().stat.queryElementLen, last.stat.queryElementLen);
    }
    if (elements == 0) {
        Bytes before = recordBytes(set.token);
        EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, call(set, content[3] == 'S', false, record));
        EXPECT_TRUE(sameBytes(before, recordBytes(set.token)));
    }
}

} // namespace

TEST(IterationBounds, RandomSetsAreWalkedAsByTheModel)
{
    for (std::uint32_t seed = 1; seed <= 6000; seed++) {
        std::mt19937 random(seed);
        bool statistics = seed % 2 == 0;
        Bytes content = randomSet(random, statistics);
        ASSERT_TRUE(walksAsTheModel(content, static_cast<int>(content.size()), statistics, nullptr)) << "seed " << seed;
        ASSERT_TRUE(walksAsTheModel(content, static_cast<int>(content.size()), statistics, &random)) << "seed " << seed;
    }
}

TEST(IterationBounds, SpoiltSetsAreWalkedAsByTheModel)
{
    for (std::uint32_t seed = 1; seed <= 12000; seed++) {
        std::mt19937 random(seed);
        bool statistics = seed % 2 == 0;
        Bytes content = randomSet(random, statistics);
        for (std::size_t i = 1 + random() % 3; i > 0; i--) spoil(content, random);
        ASSERT_TRUE(walksAsTheModel(content, static_cast<int>(content.size()), statistics, &random)) << "seed " << seed;
    }
}

TEST(IterationBounds, SetsCutAtEveryByteAreWalkedAsByTheModel)
{
    for (std::uint32_t seed = 1; seed <= 60; seed++) {
        std::mt19937 random(seed);
        bool statistics = seed % 2 == 0;
        Bytes content = randomSet(random, statistics);
        for (std::size_t stated = 12; stated < content.size(); stated++) {
            Bytes cut = slice(content, 0, std::min(content.size(), stated + terminatorRoom));
            ASSERT_TRUE(walksAsTheModel(cut, static_cast<int>(stated), statistics, nullptr))
                << "seed " << seed << ", stated " << stated;
        }
    }
}

TEST(IterationBounds, TerminatorMayStraddleTheStatedLength)
{
    for (bool statistics : {false, true}) {
        Bytes content = statistics ? statSet({{"Q", 0, {{"a", "1"}}}}) : idSet({{"Q", 0, {{"a"}}}});
        for (int outside = 0; outside <= 4; outside++)
            expectElementsThenEnd(content, static_cast<int>(content.size()) - outside, 1);
    }
}

TEST(IterationBounds, ElementMustLieInsideTheStatedLength)
{
    Bytes content = idSet({{"Q", 0, {{"a"}, {"bcd"}}}});
    int whole = static_cast<int>(content.size()) - 4; // up to the terminator
    expectElementsThenEnd(content, whole, 2);
    for (int missing = 1; missing <= 7; missing++) expectElementsThenEnd(content, whole - missing, 1);
    expectElementsThenEnd(content, whole - 8, 0);
}

TEST(IterationBounds, NegativeLengthsEndTheWalk)
{
    for (std::int32_t length : {-1, -4, -100, INT_MIN}) {
        Bytes start = text("KRVIDSET") + hostWord(1);
        Bytes tail = zeros(64) + terminatorBytes();
        Bytes sets[] = {
            start + hostWord(length) + tail,                                                // query element
            start + queryHeader("Q", 0) + hostWord(1) + hostWord(length) + tail,            // id
        };
        for (const Bytes& each : sets) {
            expectElementsThenEnd(each, static_cast<int>(each.size()), 0);
            expectElementsThenEnd(each, 0, 0); // also where no bound is stated
        }
        Bytes second = start + queryHeader("Q", 0) + hostWord(2) + idElement("a") + hostWord(length) + tail;
        expectElementsThenEnd(second, static_cast<int>(second.size()), 1);
        expectElementsThenEnd(second, -1, 1);
        Bytes value = text("KRVSTSET") + hostWord(1) + queryHeader("Q", 0) + hostWord(1) + idElement("a")
            + hostWord(length) + tail;
        expectElementsThenEnd(value, static_cast<int>(value.size()), 0);
        expectElementsThenEnd(value, 0, 0);
    }
}

TEST(IterationBounds, TerminatorInThePlaceOfALengthEndsTheWalk)
{
    Bytes room(64, 0x20);
    Bytes sets[] = {
        text("KRVIDSET") + terminatorBytes() + room,                                             // in place of the count
        text("KRVIDSET") + hostWord(1) + terminatorBytes() + room,                               // of a query header
        text("KRVIDSET") + hostWord(1) + queryHeader("Q", 0) + hostWord(1) + terminatorBytes() + room, // of an id
        text("KRVSTSET") + hostWord(1) + queryHeader("Q", 0) + hostWord(1) + idElement("a") + terminatorBytes() + room,
    };
    for (const Bytes& each : sets) {
        expectElementsThenEnd(each, static_cast<int>(each.size()), 0);
        expectElementsThenEnd(each, 0, 0);
    }
    Bytes inside = text("KRVIDSET") + hostWord(1) + queryHeader("Q", 0) + hostWord(2) + idElement("a") + terminatorBytes()
        + room;
    expectElementsThenEnd(inside, static_cast<int>(inside.size()), 1);
    expectElementsThenEnd(inside, 0, 1);
}

TEST(IterationBounds, CountZeroAtTheEndAndNoResponsesEndTheWalk)
{
    Bytes countZero = idSet({{"A", 0, {{"a"}}}, {"B", 0, {}}});
    expectElementsThenEnd(countZero, static_cast<int>(countZero.size()), 1);
    expectElementsThenEnd(countZero, 0, 1);
    Bytes onlyCountZero = statSet({{"A", 0, {}}});
    expectElementsThenEnd(onlyCountZero, static_cast<int>(onlyCountZero.size()), 0);
    expectElementsThenEnd(onlyCountZero, 0, 0);
    for (Bytes none : {idSet({}), statSet({})}) {
        expectElementsThenEnd(none, static_cast<int>(none.size()), 0);
        expectElementsThenEnd(none, 0, 0);
    }
}

TEST(IterationBounds, LessThanACategoryIsNone)
{
    const Bytes content = idSet({{"g", 0, {{"17"}}}});
    HeldSet set(content);
    KRV_IdData_t id = {};
    for (int stated = 1; stated < EYECATCHER_SIZE; stated++) {
        set.token->rsBuffLen = stated;
        EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstId(set.token, &id)) << stated;
    }
}

TEST(IterationBounds, WithoutAStatedLengthTheWalkIsNotBounded)
{
    Bytes content = statSet({{"Q", 0, {{"a", letters(5000)}, {"b", "2"}}}, {"R", -1}});
    for (int stated : {0, -1, INT_MIN}) {
        HeldSet set(content);
        set.token->rsBuffLen = stated;
        Record record = untouchedRecord();
        EXPECT_EQ(0, getFirstStat(set.token, &record.stat));
        EXPECT_EQ(5000, record.stat.statValueLen);
        EXPECT_EQ(0, getNextStat(set.token, &record.stat));
        EXPECT_EQ(0, getNextStat(set.token, &record.stat));
        EXPECT_EQ(-1, record.stat.queryElementRC);
        EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextStat(set.token, &record.stat));
    }
}

TEST(IterationBounds, HugeLengthsDoNotWrapAround)
{
    for (std::int32_t length : {INT_MAX, INT_MAX - 3, INT_MAX - 40, 0x7FFFFF00}) {
        Bytes content = text("KRVIDSET") + hostWord(1) + queryHeader("Q", 0) + hostWord(3) + idElement("a")
            + hostWord(length) + zeros(40) + terminatorBytes();
        expectElementsThenEnd(content, static_cast<int>(content.size()), 1);
        Bytes header = text("KRVIDSET") + hostWord(1) + hostWord(length) + zeros(40) + terminatorBytes();
        expectElementsThenEnd(header, static_cast<int>(header.size()), 0);
    }
}


TEST(IterationBounds, ASetWithoutABufferOrWithLessThanACategoryIsRefused)
{
    for (bool statistics : {false, true}) {
        for (bool first : {false, true}) {
            HeldSet set(statistics ? statSet({}) : idSet({}));
            Record record = untouchedRecord();
            set.token->rsBuffLen = 7;
            EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, call(set, statistics, first, record));
            char* const block = set.token->rsBuffPtr;
            set.token->rsBuffPtr = nullptr;
            EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, call(set, statistics, first, record));
            set.token->rsBuffPtr = block;
            const Record untouched = untouchedRecord();
            EXPECT_EQ(0, std::memcmp(&untouched, &record, sizeof record));
        }
    }
}

TEST(IterationBounds, ACategoryWithoutACountIsTheEnd)
{
    for (int stated : {8, 9, 10, 11}) {
        for (bool first : {false, true}) {
            HeldSet set(idSet({{"Q", 0, {{"a"}}}}));
            set.token->rsBuffLen = stated;
            Record record = untouchedRecord();
            EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, call(set, false, first, record)) << stated;
            EXPECT_EQ(0, set.token->queryIndex);
        }
    }
}

TEST(IterationBounds, APositionBehindTheBufferIsTheEnd)
{
    HeldSet set(idSet({{"Q", 0, {{"a"}, {"b"}, {"c"}}}}));
    Record record = untouchedRecord();
    ASSERT_EQ(0, getFirstId(set.token, &record.id));
    ASSERT_EQ(0, getNextId(set.token, &record.id));
    set.token->rsBuffLen = 12; // in front of the position
    EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextId(set.token, &record.id));
    EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextId(set.token, &record.id));
}

// As a query leaves a set whose walk stood inside a query element.
TEST(IterationBounds, AWalkThatIsSetBackInsideASubsetStartsAnew)
{
    for (bool statistics : {false, true}) {
        const std::vector<SetQuery> queries = {{"Q", 0, {{"a", "1"}, {"b", "2"}, {"c", "3"}}}};
        HeldSet set(statistics ? statSet(queries) : idSet(queries));
        Record record = untouchedRecord();
        ASSERT_EQ(0, call(set, statistics, true, record));
        ASSERT_EQ(0, call(set, statistics, false, record));
        set.token->cursor = set.token->rsBuffPtr;
        set.token->queryIndex = 0;
        record = untouchedRecord();
        ASSERT_EQ(0, call(set, statistics, false, record));
        EXPECT_EQ("a", statistics ? std::string(record.stat.statIdPtr, 1) : std::string(record.id.idPtr, 1));
        EXPECT_EQ(0, std::memcmp(statistics ? "KRVSTSET" : "KRVIDSET", statistics ? record.stat.eyecatcher : record.id.eyecatcher, 8));
    }
}

} // namespace krvtest
