// Walking a result set: what each call finds, where the walk stands afterwards, and what is refused.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "krvstats.h"
#include "result_sets.h"
#include "stapi_krv_resultsetbuffer.h"
#include "trace_claims.h"

namespace krvtest {

namespace {

constexpr int untouchedInt = 0x5A5A5A5A;

KRV_IdData_t untouchedId()
{
    KRV_IdData_t record;
    std::memset(&record, 0x5A, sizeof record);
    return record;
}

KRV_StatData_t untouchedStat()
{
    KRV_StatData_t record;
    std::memset(&record, 0x5A, sizeof record);
    return record;
}

std::string eyecatcherOf(const char* field)
{
    return std::string(field, 8);
}

// "rc QUERYELEMENT/CODE id" of a found id.
std::string shown(int rc, const KRV_IdData_t& record)
{
    std::string line = std::to_string(rc);
    if (rc != 0) return line;
    line += " " + std::string(record.queryElementPtr, static_cast<std::size_t>(record.queryElementLen)) + "/"
        + std::to_string(record.queryElementRC);
    if (record.queryElementRC >= 0) line += " " + std::string(record.idPtr, static_cast<std::size_t>(record.idLen));
    return line;
}

std::string shown(int rc, const KRV_StatData_t& record)
{
    std::string line = std::to_string(rc);
    if (rc != 0) return line;
    line += " " + std::string(record.queryElementPtr, static_cast<std::size_t>(record.queryElementLen)) + "/"
        + std::to_string(record.queryElementRC);
    if (record.queryElementRC >= 0)
        line += " " + std::string(record.statIdPtr, static_cast<std::size_t>(record.statIdLen)) + "="
            + std::string(record.statValuePtr, static_cast<std::size_t>(record.statValueLen));
    return line;
}

std::string firstId(HeldSet& set)
{
    KRV_IdData_t record = untouchedId();
    int rc = getFirstId(set.token, &record);
    return shown(rc, record);
}

std::string nextId(HeldSet& set)
{
    KRV_IdData_t record = untouchedId();
    int rc = getNextId(set.token, &record);
    return shown(rc, record);
}

std::string firstStat(HeldSet& set)
{
    KRV_StatData_t record = untouchedStat();
    int rc = getFirstStat(set.token, &record);
    return shown(rc, record);
}

std::string nextStat(HeldSet& set)
{
    KRV_StatData_t record = untouchedStat();
    int rc = getNextStat(set.token, &record);
    return shown(rc, record);
}

const std::vector<SetQuery> threeQueries = {
    {"Q1", 0, {{"a", "1"}, {"b", "22"}}},
    {"Q2", -5},
    {"Q3", 0, {{"c", ""}}},
};

// Offsets in the two sets of these queries.
constexpr std::size_t q1Text = 16;
constexpr std::size_t idA = q1Text + 2 + 4 + 4 + 4;
constexpr std::size_t idB = idA + 1 + 4;

template <typename Call> int inChild(Call call)
{
    pid_t child = fork();
    if (child == 0) _exit(-call());
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return 1;
    return -WEXITSTATUS(status);
}

} // namespace

TEST(Iteration, OfIdsGivesEachInOrderThenTheEndAgainAndAgain)
{
    HeldSet set(idSet(threeQueries));
    EXPECT_EQ("0 Q1/0 a", firstId(set));
    EXPECT_EQ("0 Q1/0 b", nextId(set));
    EXPECT_EQ("0 Q2/-5", nextId(set));
    EXPECT_EQ("0 Q3/0 c", nextId(set));
    for (int i = 0; i < 5; i++) EXPECT_EQ("-113", nextId(set));
    EXPECT_EQ("0 Q1/0 a", firstId(set)) << "a first call starts again";
    EXPECT_EQ("0 Q1/0 b", nextId(set));
    EXPECT_EQ("0 Q1/0 a", firstId(set)) << "also in the middle";
}

TEST(Iteration, OfStatisticsGivesEachInOrderThenTheEndAgainAndAgain)
{
    HeldSet set(statSet(threeQueries));
    EXPECT_EQ("0 Q1/0 a=1", firstStat(set));
    EXPECT_EQ("0 Q1/0 b=22", nextStat(set));
    EXPECT_EQ("0 Q2/-5", nextStat(set));
    EXPECT_EQ("0 Q3/0 c=", nextStat(set));
    for (int i = 0; i < 5; i++) EXPECT_EQ("-113", nextStat(set));
    EXPECT_EQ("0 Q1/0 a=1", firstStat(set));
    EXPECT_EQ("0 Q1/0 b=22", nextStat(set));
    EXPECT_EQ("0 Q1/0 a=1", firstStat(set));
}

TEST(Iteration, ByNextAloneGivesTheSame)
{
    HeldSet ids(idSet(threeQueries));
    for (const char* each : {"0 Q1/0 a", "0 Q1/0 b", "0 Q2/-5", "0 Q3/0 c", "-113", "-113"}) EXPECT_EQ(each, nextId(ids));
    HeldSet stats(statSet(threeQueries));
    for (const char* each : {"0 Q1/0 a=1", "0 Q1/0 b=22", "0 Q2/-5", "0 Q3/0 c=", "-113", "-113"})
        EXPECT_EQ(each, nextStat(stats));
}

TEST(Iteration, RecordsPointIntoTheBuffer)
{
    HeldSet set(idSet(threeQueries));
    KRV_IdData_t record = untouchedId();
    ASSERT_EQ(0, getFirstId(set.token, &record));
    EXPECT_EQ("KRVIDSET", eyecatcherOf(record.eyecatcher));
    EXPECT_EQ(set.block() + q1Text, record.queryElementPtr);
    EXPECT_EQ(2, record.queryElementLen);
    EXPECT_EQ(set.block() + idA, record.idPtr);
    EXPECT_EQ(1, record.idLen);

    HeldSet stats(statSet(threeQueries));
    KRV_StatData_t stat = untouchedStat();
    ASSERT_EQ(0, getFirstStat(stats.token, &stat));
    EXPECT_EQ("KRVSTSET", eyecatcherOf(stat.eyecatcher));
    EXPECT_EQ(stats.block() + q1Text, stat.queryElementPtr);
    EXPECT_EQ(stats.block() + idA, stat.statIdPtr);
    EXPECT_EQ(stats.block() + idA + 1 + 4, stat.statValuePtr);
    EXPECT_EQ(1, stat.statValueLen);
}

TEST(Iteration, EyecatcherIsFilledOnlyWhereAWalkStarts)
{
    HeldSet set(idSet(threeQueries));
    KRV_IdData_t record = untouchedId();
    std::string untouched(8, 0x5A);
    ASSERT_EQ(0, getNextId(set.token, &record));
    EXPECT_EQ("KRVIDSET", eyecatcherOf(record.eyecatcher)) << "a next call that starts";
    record = untouchedId();
    ASSERT_EQ(0, getNextId(set.token, &record));
    EXPECT_EQ(untouched, eyecatcherOf(record.eyecatcher)) << "inside a subset";
    ASSERT_EQ(0, getNextId(set.token, &record));
    EXPECT_EQ(untouched, eyecatcherOf(record.eyecatcher)) << "at a query header";
    ASSERT_EQ(0, getFirstId(set.token, &record));
    EXPECT_EQ("KRVIDSET", eyecatcherOf(record.eyecatcher));

    HeldSet stats(statSet(threeQueries));
    KRV_StatData_t stat = untouchedStat();
    ASSERT_EQ(0, getNextStat(stats.token, &stat));
    EXPECT_EQ("KRVSTSET", eyecatcherOf(stat.eyecatcher));
    stat = untouchedStat();
    ASSERT_EQ(0, getNextStat(stats.token, &stat));
    EXPECT_EQ(untouched, eyecatcherOf(stat.eyecatcher));
}

TEST(Iteration, FailedQueryElementLeavesTheElementFields)
{
    HeldSet ids(idSet({{"bad", -5}, {"Q", 0, {{"a"}}}}));
    KRV_IdData_t id = untouchedId();
    ASSERT_EQ(0, getFirstId(ids.token, &id));
    EXPECT_EQ(-5, id.queryElementRC);
    EXPECT_EQ(3, id.queryElementLen);
    EXPECT_EQ(untouchedInt, id.idLen);
    EXPECT_EQ(untouchedId().idPtr, id.idPtr);
    ASSERT_EQ(0, getNextId(ids.token, &id));
    EXPECT_EQ(0, id.queryElementRC);
    EXPECT_EQ('a', *id.idPtr);

    HeldSet stats(statSet({{"Q", 0, {{"a", "1"}}}, {"bad", INT32_MIN}}));
    KRV_StatData_t stat = untouchedStat();
    ASSERT_EQ(0, getFirstStat(stats.token, &stat));
    stat = untouchedStat();
    ASSERT_EQ(0, getNextStat(stats.token, &stat));
    EXPECT_EQ(INT32_MIN, stat.queryElementRC);
    EXPECT_EQ(untouchedInt, stat.statIdLen);
    EXPECT_EQ(untouchedInt, stat.statValueLen);
    EXPECT_EQ(untouchedStat().statIdPtr, stat.statIdPtr);
    EXPECT_EQ(untouchedStat().statValuePtr, stat.statValuePtr);
}

TEST(Iteration, PositiveCodeHasElements)
{
    HeldSet set(idSet({{"Q", 7, {{"a"}, {"b"}}}}));
    EXPECT_EQ("0 Q/7 a", firstId(set));
    EXPECT_EQ("0 Q/7 b", nextId(set));
    EXPECT_EQ("-113", nextId(set));
}

TEST(Iteration, KeepsItsPositionInTheToken)
{
    HeldSet set(idSet(threeQueries));
    ASSERT_EQ("0 Q1/0 a", firstId(set));
    EXPECT_EQ(3, set.token->queryCount);
    EXPECT_EQ(1, set.token->queryIndex);
    EXPECT_EQ(2, set.token->elementResultCount);
    EXPECT_EQ(2, set.token->elementResultIndex);
    EXPECT_EQ(set.block() + idA + 1, set.token->cursor);
    EXPECT_EQ(set.block() + q1Text, set.token->cacheElementPtr);
    EXPECT_EQ(2, set.token->cacheElementLen);
    EXPECT_EQ(0, set.token->cacheElementRC);

    ASSERT_EQ("0 Q1/0 b", nextId(set));
    EXPECT_EQ(2, set.token->queryIndex) << "the subset is used up";
    EXPECT_EQ(0, set.token->elementResultIndex);
    EXPECT_EQ(set.block() + idB + 1, set.token->cursor);

    ASSERT_EQ("0 Q2/-5", nextId(set));
    EXPECT_EQ(3, set.token->queryIndex);
    EXPECT_EQ(0, set.token->elementResultIndex);
    EXPECT_EQ(set.block() + idB + 1 + 4 + 2 + 4, set.token->cursor);
    EXPECT_EQ(-5, set.token->cacheElementRC);

    ASSERT_EQ("0 Q3/0 c", nextId(set));
    EXPECT_EQ(4, set.token->queryIndex);
    EXPECT_EQ(0, set.token->elementResultIndex);
    EXPECT_EQ(1, set.token->elementResultCount);
    Bytes atEnd = recordBytes(set.token);
    ASSERT_EQ("-113", nextId(set));
    EXPECT_TRUE(sameBytes(atEnd, recordBytes(set.token)));
}

TEST(Iteration, FirstFailedQueryElementCountsAndMoves)
{
    HeldSet set(statSet({{"bad", -1}, {"Q", 0, {{"a", "1"}}}}));
    ASSERT_EQ("0 bad/-1", firstStat(set));
    EXPECT_EQ(2, set.token->queryCount);
    EXPECT_EQ(2, set.token->queryIndex);
    EXPECT_EQ(0, set.token->elementResultIndex);
    EXPECT_EQ(set.block() + 12 + 4 + 3 + 4, set.token->cursor);
    EXPECT_EQ("0 Q/0 a=1", nextStat(set));
}

TEST(Iteration, QueryCountIsNeverCompared)
{
    Bytes content = idSet({{"A", 0, {{"a"}}}, {"B", 0, {{"b"}}}});
    for (std::int32_t count : {0, 1, -1, 1000, INT32_MIN}) {
        Bytes word = hostWord(count);
        std::copy(word.begin(), word.end(), content.begin() + 8);
        HeldSet set(content);
        EXPECT_EQ("0 A/0 a", firstId(set));
        EXPECT_EQ(count, set.token->queryCount);
        EXPECT_EQ("0 B/0 b", nextId(set));
        EXPECT_EQ("-113", nextId(set));
    }
}

TEST(Iteration, CountOfZeroStillReadsOneElement)
{
    // the next header, taken for an element: its length and text, and then its code is taken for a header's length
    HeldSet set(idSet({{"A", 0, {}}, {"B", 0, {{"b"}}}}));
    EXPECT_EQ("0 A/0 B", firstId(set));
    EXPECT_EQ(0, set.token->elementResultIndex);
    EXPECT_EQ(2, set.token->queryIndex);
}

TEST(Iteration, OfAnEmptySetIsAtItsEnd)
{
    for (bool statistics : {false, true}) {
        HeldSet set(text(statistics ? "KRVSTSET" : "KRVIDSET") + terminatorBytes());
        set.token->queryIndex = 3;
        set.token->elementResultIndex = 2;
        Bytes before = recordBytes(set.token);
        for (int i = 0; i < 3; i++) {
            KRV_IdData_t id = untouchedId();
            KRV_StatData_t stat = untouchedStat();
            EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY,
                      statistics ? getFirstStat(set.token, &stat) : getFirstId(set.token, &id));
            EXPECT_TRUE(sameBytes(before, recordBytes(set.token)));
            EXPECT_EQ(untouchedInt, id.queryElementLen);
            EXPECT_EQ(untouchedInt, id.queryElementRC);
            EXPECT_EQ(untouchedInt, id.idLen);
            EXPECT_EQ(untouchedInt, stat.queryElementLen);
            EXPECT_EQ(untouchedInt, stat.statIdLen);
        }
        set.token->queryIndex = 0;
        set.token->elementResultIndex = 0;
        for (int i = 0; i < 3; i++) EXPECT_EQ("-113", statistics ? nextStat(set) : nextId(set));
    }
}

TEST(Iteration, EndLeavesTheRecord)
{
    HeldSet set(idSet({{"Q", 0, {{"a"}}}}));
    ASSERT_EQ("0 Q/0 a", firstId(set));
    KRV_IdData_t record = untouchedId();
    ASSERT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextId(set.token, &record));
    KRV_IdData_t untouched = untouchedId();
    EXPECT_EQ(0, std::memcmp(&untouched, &record, sizeof record));

    HeldSet stats(statSet({{"Q", 0, {{"a", "1"}}}}));
    ASSERT_EQ("0 Q/0 a=1", firstStat(stats));
    KRV_StatData_t stat = untouchedStat();
    ASSERT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextStat(stats.token, &stat));
    KRV_StatData_t untouchedToo = untouchedStat();
    EXPECT_EQ(0, std::memcmp(&untouchedToo, &stat, sizeof stat));
}

TEST(Iteration, TextsMayHoldAnyByte)
{
    std::string odd("\0\xFF\x0F\x0E\x0F\x0E\x7F", 7);
    HeldSet set(statSet({{odd, 0, {{odd, odd + odd}}}}));
    EXPECT_EQ("0 " + odd + "/0 " + odd + "=" + odd + odd, firstStat(set));
    EXPECT_EQ("-113", nextStat(set));
}

// ---- Arguments ----------------------------------------------------------------------------------------------------

TEST(IterationArguments, AreCheckedInOrder)
{
    HeldSet ids(idSet(threeQueries));
    HeldSet stats(statSet(threeQueries));
    KRV_IdData_t id;
    KRV_StatData_t stat;
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, getFirstId(nullptr, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, getNextId(nullptr, &id));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, getFirstStat(nullptr, &stat));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, getNextStat(nullptr, nullptr));
    // the record before the category
    EXPECT_EQ(KRVSTAT_NULL_ID_DATA_POINTER, getFirstId(stats.token, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_ID_DATA_POINTER, getNextId(stats.token, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_STAT_DATA_POINTER, getFirstStat(ids.token, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_STAT_DATA_POINTER, getNextStat(ids.token, nullptr));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstId(stats.token, &id));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getNextId(stats.token, &id));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstStat(ids.token, &stat));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getNextStat(ids.token, &stat));
}

TEST(IterationArguments, AnEmptyBufferHasNeitherContent)
{
    HeldSet set(terminatorBytes(), 32768, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    KRV_IdData_t id;
    KRV_StatData_t stat;
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstId(set.token, &id));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getNextId(set.token, &id));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstStat(set.token, &stat));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getNextStat(set.token, &stat));
}

TEST(IterationArguments, EveryByteOfTheCategoryCounts)
{
    for (std::size_t i = 0; i < 8; i++) {
        Bytes content = idSet(threeQueries);
        content[i] ^= 0x20;
        HeldSet set(content);
        KRV_IdData_t id;
        EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstId(set.token, &id)) << "byte " << i;
    }
}

TEST(IterationArguments, ContentIsTestedBeforeTheOwner)
{
    HeldSet set(idSet(threeQueries), HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    set.token->owningPid = 1;
    KRV_IdData_t id;
    KRV_StatData_t stat;
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstStat(set.token, &stat));
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, getFirstId(set.token, &id));
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, getNextId(set.token, &id));
}

TEST(IterationArguments, AConnectionsSetIsForItsOwnThreadAndProcess)
{
    HeldSet ids(idSet(threeQueries), HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    HeldSet stats(statSet(threeQueries), HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    EXPECT_EQ("0 Q1/0 a", firstId(ids));
    EXPECT_EQ("0 Q1/0 a=1", firstStat(stats));
    Bytes idsBefore = recordBytes(ids.token);
    Bytes statsBefore = recordBytes(stats.token);
    std::thread([&] {
        for (int i = 0; i < 2; i++) {
            EXPECT_EQ("-124", firstId(ids));
            EXPECT_EQ("-124", nextId(ids));
            EXPECT_EQ("-124", firstStat(stats));
            EXPECT_EQ("-124", nextStat(stats));
        }
    }).join();
    EXPECT_TRUE(sameBytes(idsBefore, recordBytes(ids.token)));
    EXPECT_TRUE(sameBytes(statsBefore, recordBytes(stats.token)));
    KRV_IdData_t id;
    KRV_StatData_t stat;
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, inChild([&] { return getFirstId(ids.token, &id); }));
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, inChild([&] { return getNextId(ids.token, &id); }));
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, inChild([&] { return getFirstStat(stats.token, &stat); }));
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, inChild([&] { return getNextStat(stats.token, &stat); }));
}

TEST(IterationArguments, AUsersSetIsForEveryThreadAndProcess)
{
    HeldSet set(idSet(threeQueries));
    EXPECT_EQ("0 Q1/0 a", firstId(set));
    std::thread([&] { EXPECT_EQ("0 Q1/0 b", nextId(set)); }).join();
    KRV_IdData_t id;
    EXPECT_EQ(0, inChild([&] { return getNextId(set.token, &id); }));
}

TEST(IterationArguments, RefusalsLeaveTheWalkWhereItIs)
{
    HeldSet set(idSet(threeQueries));
    ASSERT_EQ("0 Q1/0 a", firstId(set));
    Bytes before = recordBytes(set.token);
    KRV_StatData_t stat;
    EXPECT_EQ(KRVSTAT_NULL_ID_DATA_POINTER, getFirstId(set.token, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_ID_DATA_POINTER, getNextId(set.token, nullptr));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstStat(set.token, &stat));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getNextStat(set.token, &stat));
    EXPECT_TRUE(sameBytes(before, recordBytes(set.token)));
    EXPECT_EQ("0 Q1/0 b", nextId(set));
}

// ---- Trace --------------------------------------------------------------------------------------------------------

namespace {

struct CallNames {
    std::string call;
    int entry; // and the two behind it
    std::string worker;
    std::set<int> workerNumbers;
    int workerEntry;
};

const CallNames firstIdNames{"API.getFirstId", 1150, "stapi_krv_impl.getFirstIdInternal",
                             {1043, 1044, 1045, 1046, 1047, 1048, 1049, 1137}, 1043};
const CallNames nextIdNames{"API.getNextId", 1153, "stapi_krv_impl.getNextIdInternal",
                            {1050, 1051, 1052, 1053, 1054, 1055, 1056, 1057, 1138}, 1050};
const CallNames firstStatNames{"API.getFirstStat", 1156, "stapi_krv_impl.getFirstStatInternal",
                               {1058, 1059, 1060, 1061, 1062, 1063, 1139}, 1058};
const CallNames nextStatNames{"API.getNextStat", 1159, "stapi_krv_impl.getNextStatInternal",
                              {1064, 1065, 1066, 1067, 1068, 1069, 1070, 1071, 1140}, 1064};

// The frame of a call, and that its worker's lines have the worker's numbers.
void expectFrame(const TraceFile& trace, const CallNames& names, int rc)
{
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_GE(lines.size(), 2u) << trace.text();
    EXPECT_EQ(names.entry, lines.front().number);
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_TRUE(lines.front().message.starts_with(names.call + "(")) << lines.front().text;
    EXPECT_EQ(names.entry + 2, lines.back().number);
    EXPECT_EQ("EXIT", lines.back().kind);
    EXPECT_TRUE(lines.back().message.starts_with(names.call + "(")) << lines.back().text;
    EXPECT_TRUE(lines.back().message.ends_with("rc=" + std::to_string(rc))) << lines.back().text;
    std::vector<TraceLine> worker = linesFrom(lines, names.worker);
    if (worker.empty()) return;
    EXPECT_EQ(names.workerEntry, worker.front().number);
    EXPECT_EQ("ENTRY", worker.front().kind);
    EXPECT_EQ("EXIT", worker.back().kind);
    for (const TraceLine& line : worker) EXPECT_TRUE(names.workerNumbers.contains(line.number)) << line.text;
}

void expectLine(const TraceFile& trace, const std::string& kind, const std::string& message, int count = 1)
{
    EXPECT_EQ(count, countOf(trace.lines(), kind, message)) << message << "\n" << trace.text();
}

} // namespace

TEST(IterationTrace, OfAFirstId)
{
    HeldSet set(idSet(threeQueries));
    KRV_IdData_t id;
    TraceFile trace(4);
    ASSERT_EQ(0, getFirstId(set.token, &id));
    expectFrame(trace, firstIdNames, 0);
    expectLine(trace, "EVENT",
               firstIdNames.worker + " Successfully retrieved first Id from resultset " + pointerText(set.token));
    expectLine(trace, "EXIT", firstIdNames.worker + "() endOfResults=0 krvStatRc=0");
    expectLine(trace, "DEBUG", firstIdNames.worker + " End of subset queryIndex=2. Resultset=" + pointerText(set.token), 0);
}

TEST(IterationTrace, OfAFirstIdThatUsesUpItsSubset)
{
    HeldSet set(idSet({{"Q", 0, {{"a"}}}}));
    KRV_IdData_t id;
    TraceFile trace(4);
    ASSERT_EQ(0, getFirstId(set.token, &id));
    expectFrame(trace, firstIdNames, 0);
    expectLine(trace, "DEBUG", firstIdNames.worker + " End of subset queryIndex=2. Resultset=" + pointerText(set.token));
}

TEST(IterationTrace, OfAFirstIdThatFailed)
{
    HeldSet set(idSet({{"Q", -9}}));
    KRV_IdData_t id;
    TraceFile trace(4);
    ASSERT_EQ(0, getFirstId(set.token, &id));
    expectFrame(trace, firstIdNames, 0);
    expectLine(trace, "EVENT", firstIdNames.worker + "(rsPtr=" + pointerText(set.token) + ",idDataPtr=" + pointerText(&id)
                                   + ") Found negative queryElementRC(-9)");
    EXPECT_EQ(std::string::npos, trace.text().find("Successfully retrieved"));
}

TEST(IterationTrace, OfAFirstStatThatFailedHasNoEvent)
{
    HeldSet set(statSet({{"Q", -9}}));
    KRV_StatData_t stat;
    TraceFile trace(4);
    ASSERT_EQ(0, getFirstStat(set.token, &stat));
    expectFrame(trace, firstStatNames, 0);
    for (const TraceLine& line : trace.lines()) EXPECT_NE("EVENT", line.kind) << line.text;
}

TEST(IterationTrace, OfAnEnd)
{
    HeldSet ids(text("KRVIDSET") + terminatorBytes());
    HeldSet stats(text("KRVSTSET") + terminatorBytes());
    KRV_IdData_t id;
    KRV_StatData_t stat;
    TraceFile trace(3);
    ASSERT_EQ(-113, getFirstId(ids.token, &id));
    expectFrame(trace, firstIdNames, -113);
    expectLine(trace, "EXIT", firstIdNames.worker + "() endOfResults=1 krvStatRc=-113");
    trace.forget();
    ASSERT_EQ(-113, getFirstStat(stats.token, &stat));
    expectFrame(trace, firstStatNames, -113);
    expectLine(trace, "EXIT", firstStatNames.worker + "() last=1 rc=-113");
}

TEST(IterationTrace, OfANextThatStartsInAnEmptySet)
{
    HeldSet ids(text("KRVIDSET") + terminatorBytes());
    HeldSet stats(text("KRVSTSET") + terminatorBytes());
    KRV_IdData_t id;
    KRV_StatData_t stat;
    TraceFile trace(4);
    ASSERT_EQ(-113, getNextId(ids.token, &id));
    expectFrame(trace, nextIdNames, -113);
    expectLine(trace, "DEBUG", nextIdNames.worker + " No getFirstId() called on Resultset=" + pointerText(ids.token)
                                   + ". Datacursor=" + pointerText(ids.block() + 12));
    trace.forget();
    ASSERT_EQ(-113, getNextStat(stats.token, &stat));
    expectFrame(trace, nextStatNames, -113);
    expectLine(trace, "DEBUG", nextStatNames.worker + " No getFirstStat() called on Resultset=" + pointerText(stats.token)
                                   + ". Datacursor=" + pointerText(stats.block() + 12));
}

TEST(IterationTrace, OfAFirstStat)
{
    HeldSet set(statSet(threeQueries));
    KRV_StatData_t stat;
    TraceFile trace(4);
    ASSERT_EQ(0, getFirstStat(set.token, &stat));
    expectFrame(trace, firstStatNames, 0);
    expectLine(trace, "EVENT",
               firstStatNames.worker + " Successfully retrieved first stat from resultset " + pointerText(set.token));
    expectLine(trace, "EXIT", firstStatNames.worker + "() last=0 rc=0");
    std::string head = firstStatNames.worker + " Caching new query element details. Resultset=" + pointerText(set.token)
        + ", Datacursor=";
    std::string tail =
        ", queryElementLen=2, queryElementPtr=" + pointerText(set.block() + q1Text) + ", queryElementRC=0";
    int found = 0;
    for (const TraceLine& line : trace.lines())
        found += line.kind == "DEBUG" && line.message.starts_with(head) && line.message.ends_with(tail);
    EXPECT_EQ(1, found) << trace.text();
}

TEST(IterationTrace, OfANextThatStartsGoesOnAndFails)
{
    struct Kind {
        bool statistics;
        const CallNames& names;
        std::string noFirst, retrieved, record;
    };
    const Kind kindsOfCalls[] = {
        {false, nextIdNames, " No getFirstId() called on Resultset=", " Successfully retrieved the next Id from resultset ",
         "idDataPtr="},
        {true, nextStatNames, " No getFirstStat() called on Resultset=",
         " Successfully retrieved the next stat from resultset ", "statDataPtr="},
    };
    for (const Kind& kind : kindsOfCalls) {
        HeldSet set(kind.statistics ? statSet(threeQueries) : idSet(threeQueries));
        KRV_IdData_t id;
        KRV_StatData_t stat;
        auto next = [&] { return kind.statistics ? getNextStat(set.token, &stat) : getNextId(set.token, &id); };
        const void* record = kind.statistics ? static_cast<void*>(&stat) : static_cast<void*>(&id);
        std::string token = pointerText(set.token);
        std::string length = kind.statistics ? ", statIdLen=1" : ", idLen=1";
        auto has = [&](const TraceFile& trace, const std::string& head, const std::string& tail) {
            int found = 0;
            for (const TraceLine& line : trace.lines())
                found += line.kind == "DEBUG" && line.message.starts_with(kind.names.worker + head)
                    && line.message.ends_with(tail);
            return found;
        };
        TraceFile trace(4);
        ASSERT_EQ(0, next());
        expectFrame(trace, kind.names, 0);
        EXPECT_EQ(1, has(trace, kind.noFirst + token + ". Datacursor=", "")) << trace.text();
        EXPECT_EQ(1, has(trace, " Processing query header 1 of 3. Resultset=" + token + ", Datacursor=",
                         ", queryElementLen=2, queryElementPtr=" + pointerText(set.block() + q1Text)
                             + ", queryElementRC=0"))
            << trace.text();
        EXPECT_EQ(1, has(trace, " Processing queryIndex=1, elementResultIndex=1. Resultset=" + token + ", dataCursor=",
                         length))
            << trace.text();
        expectLine(trace, "EVENT", kind.names.worker + kind.retrieved + token);

        trace.forget();
        ASSERT_EQ(0, next());
        EXPECT_EQ(0, has(trace, kind.noFirst, "")) << trace.text();
        EXPECT_EQ(0, has(trace, " Processing query header", "")) << trace.text();
        EXPECT_EQ(1, has(trace, " Processing queryIndex=1, elementResultIndex=2. Resultset=" + token + ", dataCursor=",
                         length))
            << trace.text();
        expectLine(trace, "DEBUG", kind.names.worker + " End of subset queryIndex=2. Resultset=" + token);
        expectLine(trace, "EVENT", kind.names.worker + kind.retrieved + token);

        trace.forget();
        ASSERT_EQ(0, next());
        expectFrame(trace, kind.names, 0);
        expectLine(trace, "EVENT", kind.names.worker + "(rsPtr=" + token + "," + kind.record + pointerText(record)
                                       + ") Found negative queryElementRC(-5)");
        EXPECT_EQ(std::string::npos, trace.text().find("Successfully retrieved")) << trace.text();

        ASSERT_EQ(0, next());
        trace.forget();
        ASSERT_EQ(-113, next());
        expectFrame(trace, kind.names, -113);
        EXPECT_EQ(std::string::npos, trace.text().find("EVENT")) << trace.text();
    }
}

TEST(IterationTrace, OfARefusal)
{
    HeldSet ids(idSet(threeQueries));
    HeldSet stats(statSet(threeQueries));
    KRV_IdData_t id;
    KRV_StatData_t stat;
    TraceFile trace(3);
    auto expectRefusal = [&](const CallNames& names, const std::string& message, int rc) {
        std::vector<TraceLine> lines = trace.lines();
        ASSERT_EQ((std::vector<std::string>{"ENTRY", "*EXC*", "EXIT"}), kinds(lines)) << trace.text();
        expectFrame(trace, names, rc);
        EXPECT_EQ(names.entry + 1, lines[1].number);
        if (!message.empty()) {
            EXPECT_EQ(message, lines[1].message);
        } else {
            EXPECT_TRUE(lines[1].message.starts_with(names.call)) << lines[1].text;
        }
        trace.forget();
    };
    ASSERT_EQ(-119, getFirstId(stats.token, &id));
    expectRefusal(firstIdNames, "API.getFirstId Resultset does not contain id data", -119);
    ASSERT_EQ(-119, getNextId(stats.token, &id));
    expectRefusal(nextIdNames, "API.getNextId Resultset does not contain id data", -119);
    ASSERT_EQ(-119, getFirstStat(ids.token, &stat));
    expectRefusal(firstStatNames, "API.getFirstStat Resultset does not contain statistics", -119);
    ASSERT_EQ(-119, getNextStat(ids.token, &stat));
    expectRefusal(nextStatNames, "API.getNextStat Resultset does not contain statistics", -119);
    ASSERT_EQ(-127, getFirstId(nullptr, &id));
    expectRefusal(firstIdNames, "", -127);
    ASSERT_EQ(-128, getNextId(ids.token, nullptr));
    expectRefusal(nextIdNames, "", -128);
    ASSERT_EQ(-127, getFirstStat(nullptr, &stat));
    expectRefusal(firstStatNames, "", -127);
    ASSERT_EQ(-129, getNextStat(ids.token, nullptr));
    expectRefusal(nextStatNames, "", -129);
}

} // namespace krvtest
