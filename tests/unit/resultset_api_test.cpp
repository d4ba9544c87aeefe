// Copies of result sets, their end, and dumps.
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
#include "watched_allocator.h"

namespace krvtest {

namespace {

const Bytes idContent = idSet({{"g", 0, {{"17"}, {"18"}}}, {"h", -5}});
const Bytes statContent = statSet({{"g", 0, {{"17", "one"}, {"18", "two"}}}});

Bytes bufferBytes(const Internal_ResultSetToken_t* token, std::size_t count)
{
    const unsigned char* start = reinterpret_cast<const unsigned char*>(token->rsBuffPtr);
    return Bytes(start, start + count);
}

std::string idText(const KRV_IdData_t& id)
{
    return std::string(id.idPtr, static_cast<std::size_t>(id.idLen));
}

void expectNumbersIn(const std::vector<TraceLine>& lines, const std::set<int>& allowed)
{
    for (const TraceLine& line : lines) EXPECT_TRUE(allowed.contains(line.number)) << line.text;
}

const std::set<int> copyNumbers{1072, 1073, 1074, 1075, 1076, 1077, 1078, 1079, 1135};
const std::set<int> freeNumbers{1080, 1081, 1082, 1083, 1084, 1085, 1086, 1087, 1136};
const std::set<int> dumpNumbers{1102, 1103, 1104, 1105};

template <typename Call> int inChild(Call call)
{
    pid_t child = fork();
    if (child == 0) _exit(-call());
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return 1;
    return -WEXITSTATUS(status);
}

// The calling thread's foreign set.
struct ForeignSet {
    HeldSet set{idContent, HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API};
};

} // namespace

// ---- Copying ------------------------------------------------------------------------------------------------------

TEST(CopyResultSet, IsUserOwnedAndDeep)
{
    HeldSet source(idContent, 500, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    source.token->category = 77;
    KRV_ResultSetToken_t copy = nullptr;
    ASSERT_EQ(0, copyResultSet(source.token, &copy));
    ASSERT_NE(nullptr, copy);
    EXPECT_NE(source.token, copy);
    EXPECT_EQ(0, std::memcmp("KRVRSUSR", copy->eyecatcher, 8));
    EXPECT_EQ(0x9999, copy->owner);
    EXPECT_EQ(77, copy->category);
    EXPECT_EQ(nullptr, copy->queryString);
    EXPECT_EQ(500, copy->rsBuffLen) << "the capacity, not the bytes in use";
    EXPECT_NE(source.block(), copy->rsBuffPtr);
    EXPECT_EQ(copy->rsBuffPtr, copy->cursor);
    EXPECT_EQ(0, copy->queryIndex);
    EXPECT_EQ(0, copy->owningPid);
    EXPECT_TRUE(sameBytes(bufferBytes(source.token, 500), bufferBytes(copy, 500)));
    // the source may go
    std::memset(source.block(), 0, 500);
    EXPECT_TRUE(sameBytes(idContent, bufferBytes(copy, idContent.size())));
    EXPECT_EQ(0, freeResultSet(&copy));
    EXPECT_EQ(nullptr, copy);
}

TEST(CopyResultSet, StartsAtTheBeginningWhereverTheSourceStands)
{
    HeldSet source(idContent);
    KRV_IdData_t id;
    ASSERT_EQ(0, getFirstId(source.token, &id));
    KRV_ResultSetToken_t copy = nullptr;
    ASSERT_EQ(0, copyResultSet(source.token, &copy));
    ASSERT_EQ(0, getNextId(copy, &id));
    EXPECT_EQ("17", idText(id));
    ASSERT_EQ(0, getNextId(source.token, &id));
    EXPECT_EQ("18", idText(id)) << "the source goes on where it was";
    ASSERT_EQ(0, getNextId(copy, &id));
    EXPECT_EQ("18", idText(id));
    EXPECT_EQ(0, freeResultSet(&copy));
}

TEST(CopyResultSet, OfACopyIsACopy)
{
    HeldSet source(statContent, HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    KRV_ResultSetToken_t first = nullptr;
    KRV_ResultSetToken_t second = nullptr;
    ASSERT_EQ(0, copyResultSet(source.token, &first));
    ASSERT_EQ(0, copyResultSet(first, &second));
    EXPECT_EQ(0, freeResultSet(&first));
    KRV_StatData_t stat;
    ASSERT_EQ(0, getFirstStat(second, &stat));
    EXPECT_EQ(0, std::memcmp("one", stat.statValuePtr, 3));
    EXPECT_EQ(0, freeResultSet(&second));
}

TEST(CopyResultSet, MayBeUsedByAnyThread)
{
    HeldSet source(idContent, HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    KRV_ResultSetToken_t copy = nullptr;
    ASSERT_EQ(0, copyResultSet(source.token, &copy));
    std::thread([&] {
        KRV_IdData_t id;
        char* text = nullptr;
        EXPECT_EQ(0, getFirstId(copy, &id));
        EXPECT_EQ(0, getIdQuery(copy, &text));
        EXPECT_STREQ("17:18", text);
        EXPECT_EQ(0, freeResultSet(&copy));
    }).join();
    EXPECT_EQ(nullptr, copy);
}

TEST(CopyResultSet, EndsInItsTerminatorWhereverTheSourcesOneStands)
{
    for (int outside = 0; outside <= 4; outside++) {
        int stated = static_cast<int>(idContent.size()) - outside;
        HeldSet source(idContent, stated);
        KRV_ResultSetToken_t copy = nullptr;
        ASSERT_EQ(0, copyResultSet(source.token, &copy));
        EXPECT_EQ(stated, copy->rsBuffLen);
        EXPECT_TRUE(sameBytes(idContent, bufferBytes(copy, idContent.size()))) << outside << " bytes outside";
        KRV_IdData_t id;
        EXPECT_EQ(0, getFirstId(copy, &id));
        EXPECT_EQ(0, getNextId(copy, &id));
        EXPECT_EQ(0, getNextId(copy, &id));
        EXPECT_EQ(KRVSTAT_RESULT_SET_EMPTY, getNextId(copy, &id));
        TraceFile trace(0);
        EXPECT_EQ(0, dumpResultSet(copy));
        EXPECT_EQ(resultSetDump(copy, idContent.size() - 4), trace.text());
        EXPECT_EQ(0, freeResultSet(&copy));
    }
}

TEST(CopyResultSet, OfASetWithoutALengthIsEmpty)
{
    for (int stated : {0, -1}) {
        HeldSet source(idContent);
        source.token->rsBuffLen = stated;
        KRV_ResultSetToken_t copy = nullptr;
        ASSERT_EQ(0, copyResultSet(source.token, &copy));
        EXPECT_EQ(stated, copy->rsBuffLen);
        EXPECT_TRUE(sameBytes(terminatorBytes() + zeros(RESULT_SET_ROOM - 4), bufferBytes(copy, RESULT_SET_ROOM)));
        EXPECT_EQ(0, freeResultSet(&copy));
    }
}

TEST(CopyResultSet, HasZeroedRoomForDumpsBehindIt)
{
    HeldSet source(idContent, 100);
    // soil what is likely to be handed out
    {
        std::vector<char> soiled(100 + RESULT_SET_ROOM, 0x5A);
        EXPECT_EQ(0x5A, soiled.back());
    }
    KRV_ResultSetToken_t copy = nullptr;
    ASSERT_EQ(0, copyResultSet(source.token, &copy));
    // a terminator may stand right behind the stated length; what follows it is looked at by dumps only
    EXPECT_TRUE(sameBytes(zeros(RESULT_SET_ROOM - 4),
                          slice(bufferBytes(copy, 100 + RESULT_SET_ROOM), 104, RESULT_SET_ROOM - 4)));
    EXPECT_EQ(0, freeResultSet(&copy));
}

TEST(CopyResultSet, ChecksItsArgumentsInOrder)
{
    HeldSet good(idContent);
    HeldSet empty(terminatorBytes(), 32, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    empty.token->owningPid = 1;
    HeldSet lost(idContent, HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    lost.token->owningPid = 1;
    char* kept = lost.token->rsBuffPtr;
    lost.token->rsBuffPtr = nullptr;
    KRV_ResultSetToken_t copy = reinterpret_cast<KRV_ResultSetToken_t>(1);
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, copyResultSet(nullptr, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, copyResultSet(nullptr, &copy));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_POINTER, copyResultSet(lost.token, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_POINTER, copyResultSet(good.token, nullptr));
    EXPECT_EQ(KRVSTAT_NO_RESULT_BUFFER, copyResultSet(lost.token, &copy));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, copyResultSet(empty.token, &copy));
    lost.token->rsBuffPtr = kept;
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, copyResultSet(lost.token, &copy));
    EXPECT_EQ(reinterpret_cast<KRV_ResultSetToken_t>(1), copy);
}

TEST(CopyResultSet, OfAConnectionsSetIsForItsOwnThreadAndProcess)
{
    ForeignSet foreign;
    KRV_ResultSetToken_t copy = nullptr;
    std::thread([&] { EXPECT_EQ(KRVSTAT_TID_MISMATCH, copyResultSet(foreign.set.token, &copy)); }).join();
    EXPECT_EQ(nullptr, copy);
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, inChild([&] { return copyResultSet(foreign.set.token, &copy); }));
}

TEST(CopyResultSet, WithoutARecordGivesNull)
{
    HeldSet source(idContent, 5000);
    KRV_ResultSetToken_t copy = reinterpret_cast<KRV_ResultSetToken_t>(1);
    TraceFile trace(1);
    int rc, failures;
    {
        AllocationWatch watch(sizeof(Internal_ResultSetToken_t), sizeof(Internal_ResultSetToken_t));
        watch.fail(0, 1);
        rc = copyResultSet(source.token, &copy);
        failures = watch.failures();
    }
    ASSERT_EQ(1, failures);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    EXPECT_EQ(nullptr, copy);
    std::vector<TraceLine> lines = linesFrom(trace.lines(), "API.copyResultSet");
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ("API.copyResultSet() Invalid source resultset krvStatRc=d", lines[0].message);
    expectNumbersIn(lines, copyNumbers);
}

TEST(CopyResultSet, WithoutAScratchAreaLeavesTheHandle)
{
    ASSERT_EQ(0, setAPITraceLevel(0)); // the first call of a process keeps a block of its own
    HeldSet source(idContent, 5000);
    KRV_ResultSetToken_t copy = reinterpret_cast<KRV_ResultSetToken_t>(1);
    int rc, failures, left;
    {
        AllocationWatch watch(sizeof(Internal_ResultSetToken_t), 32000);
        watch.fail(1, 1);
        rc = copyResultSet(source.token, &copy);
        failures = watch.failures();
        left = watch.blocksLeft();
    }
    ASSERT_EQ(1, failures);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    EXPECT_EQ(reinterpret_cast<KRV_ResultSetToken_t>(1), copy);
    EXPECT_EQ(0, left);
}

TEST(CopyResultSet, WithoutABufferLeavesATokenThatCanBeFreed)
{
    HeldSet source(idContent, 5000);
    KRV_ResultSetToken_t copy = nullptr;
    TraceFile trace(4);
    int rc, failures;
    {
        AllocationWatch watch(5000, 5000 + 64);
        watch.fail(0, 1);
        rc = copyResultSet(source.token, &copy);
        failures = watch.failures();
    }
    ASSERT_EQ(1, failures);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(nullptr, copy->rsBuffPtr);
    std::vector<TraceLine> lines = linesFrom(trace.lines(), "API.copyResultSet");
    expectNumbersIn(lines, copyNumbers);
    EXPECT_EQ(1, countOf(lines, "*EXC*", "API.copyResultSet() Malloc failed for 5000 bytes")) << trace.text();
    EXPECT_EQ(1, countOf(lines, "DEBUG", "API.copyResultSet Called malloc for 5000 bytes. rc=" + pointerText(nullptr)))
        << trace.text();
    EXPECT_EQ(0u, linesFrom(lines, "API.copyResultSet Copied").size()) << trace.text();

    // what can be done with it
    KRV_ResultSetToken_t other = nullptr;
    EXPECT_EQ(KRVSTAT_NO_RESULT_BUFFER, dumpResultSet(copy));
    EXPECT_EQ(KRVSTAT_NO_RESULT_BUFFER, copyResultSet(copy, &other));
    trace.forget();
    std::string address = pointerText(copy);
    EXPECT_EQ(0, freeResultSet(&copy));
    EXPECT_EQ(nullptr, copy);
    EXPECT_EQ(1, countOf(trace.lines(), "*EXC*",
                         "API.freeResultSet(rsPtr=" + address + ") Result set buffer pointer was already null"))
        << trace.text();
}

TEST(CopyResultSetTrace, ShowsTheWork)
{
    HeldSet source(idContent, 500);
    KRV_ResultSetToken_t copy = nullptr;
    TraceFile trace(4);
    ASSERT_EQ(0, copyResultSet(source.token, &copy));
    std::vector<TraceLine> lines = linesFrom(trace.lines(), "API.copyResultSet");
    expectNumbersIn(lines, copyNumbers);
    EXPECT_EQ((std::vector<std::string>{"ENTRY", "EVENT", "DEBUG", "EVENT", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(1072, lines.front().number);
    EXPECT_EQ("API.copyResultSet(srcRs=" + pointerText(source.token) + ",&tarRsPtr=" + pointerText(&copy)
                  + ") Created result set token(" + pointerText(copy) + ")",
              lines.at(1).message);
    EXPECT_EQ("API.copyResultSet Called malloc for 500 bytes. rc=" + pointerText(copy->rsBuffPtr), lines.at(2).message)
        << "the room behind it is not told";
    EXPECT_EQ("API.copyResultSet Copied resultsetbuffer from " + pointerText(source.block()) + " to "
                  + pointerText(copy->rsBuffPtr),
              lines.at(3).message);
    EXPECT_TRUE(lines.back().message.ends_with("rc=0")) << lines.back().text;
    EXPECT_EQ(0, freeResultSet(&copy));
}

TEST(CopyResultSetTrace, NamesARefusal)
{
    HeldSet empty(terminatorBytes(), 32);
    HeldSet lost(idContent);
    char* kept = lost.token->rsBuffPtr;
    lost.token->rsBuffPtr = nullptr;
    KRV_ResultSetToken_t copy = nullptr;
    TraceFile trace(1);
    ASSERT_EQ(KRVSTAT_NO_RESULT_BUFFER, copyResultSet(lost.token, &copy));
    ASSERT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, copyResultSet(empty.token, &copy));
    ASSERT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, copyResultSet(nullptr, &copy));
    ASSERT_EQ(KRVSTAT_NULL_RESULT_SET_POINTER, copyResultSet(empty.token, nullptr));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"*EXC*", "*EXC*", "*EXC*", "*EXC*"}), kinds(lines)) << trace.text();
    expectNumbersIn(lines, copyNumbers);
    EXPECT_EQ("API.copyResultSet(srcRs=" + pointerText(lost.token) + ") resultSetBuf is NULL - no data to copy",
              lines[0].message);
    EXPECT_EQ("API.copyResultSet Resultset does not contain recognised content", lines[1].message);
    EXPECT_TRUE(lines[2].message.starts_with("API.copyResultSet")) << lines[2].text;
    EXPECT_TRUE(lines[3].message.starts_with("API.copyResultSet")) << lines[3].text;
    lost.token->rsBuffPtr = kept;
}

// ---- Freeing ------------------------------------------------------------------------------------------------------

TEST(FreeResultSet, GivesEverythingBack)
{
    ASSERT_EQ(0, setAPITraceLevel(0)); // the first call of a process keeps a block of its own
    HeldSet source(statContent, 5000);
    KRV_ResultSetToken_t copy = nullptr;
    int requests, left;
    {
        AllocationWatch watch(sizeof(Internal_ResultSetToken_t), 40000);
        ASSERT_EQ(0, copyResultSet(source.token, &copy));
        ASSERT_EQ(0, freeResultSet(&copy));
        requests = watch.requests();
        left = watch.blocksLeft();
    }
    EXPECT_GE(requests, 3);
    EXPECT_EQ(0, left);
    EXPECT_EQ(nullptr, copy);
}

TEST(FreeResultSet, ChecksItsArgumentsInOrder)
{
    TraceFile trace(1);
    KRV_ResultSetToken_t none = nullptr;
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_POINTER, freeResultSet(nullptr));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, freeResultSet(&none));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"*EXC*", "*EXC*"}), kinds(lines)) << trace.text();
    expectNumbersIn(lines, freeNumbers);
    EXPECT_EQ("API.freeResultSet(&rsPtr=" + pointerText(nullptr) + ") Supplied result set pointer is NULL",
              lines[0].message);
    EXPECT_EQ("API.freeResultSet(&rsPtr=" + pointerText(&none) + ") Supplied result set token is NULL", lines[1].message);
}

TEST(FreeResultSet, RefusesAConnectionsSetAndLeavesIt)
{
    HeldSet set(idContent, HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    Bytes before = recordBytes(set.token);
    KRV_ResultSetToken_t handle = set.token;
    TraceFile trace(1);
    EXPECT_EQ(KRVSTAT_RESULT_SET_NOT_USER_OWNED, freeResultSet(&handle));
    EXPECT_EQ(set.token, handle);
    EXPECT_TRUE(sameBytes(before, recordBytes(set.token)));
    KRV_IdData_t id;
    EXPECT_EQ(0, getFirstId(set.token, &id));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ("*EXC*", lines[0].kind);
    expectNumbersIn(lines, freeNumbers);
    EXPECT_EQ("API.freeResultSet(rsPtr=" + pointerText(set.token) + ") Cannot free result sets with owner=34952",
              lines[0].message);
}

TEST(FreeResultSet, RefusesEveryOtherOwner)
{
    HeldSet set(idContent);
    set.token->owner = 5;
    TraceFile trace(1);
    EXPECT_EQ(KRVSTAT_RESULT_SET_NOT_USER_OWNED, freeResultSet(&set.token));
    ASSERT_NE(nullptr, set.token);
    EXPECT_NE(std::string::npos, trace.text().find(") Cannot free result sets with owner=5\n")) << trace.text();
}

TEST(FreeResultSet, TakesAnyContent)
{
    HeldSet source(idContent);
    KRV_ResultSetToken_t copy = nullptr;
    ASSERT_EQ(0, copyResultSet(source.token, &copy));
    std::memset(copy->rsBuffPtr, 0, 8);
    EXPECT_EQ(0, freeResultSet(&copy));
    EXPECT_EQ(nullptr, copy);
}

TEST(FreeResultSetTrace, ShowsTheWork)
{
    HeldSet source(idContent);
    KRV_ResultSetToken_t copy = nullptr;
    ASSERT_EQ(0, copyResultSet(source.token, &copy));
    std::string token = pointerText(copy);
    std::string buffer = pointerText(copy->rsBuffPtr);
    TraceFile trace(4);
    ASSERT_EQ(0, freeResultSet(&copy));
    std::vector<TraceLine> lines = linesFrom(trace.lines(), "API.freeResultSet");
    expectNumbersIn(lines, freeNumbers);
    EXPECT_EQ((std::vector<std::string>{"ENTRY", "DEBUG", "EVENT", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(1080, lines.front().number);
    EXPECT_EQ("API.freeResultSet() free result set buffer storage (" + buffer + ")", lines.at(1).message);
    EXPECT_TRUE(lines.at(2).message.starts_with("API.freeResultSetFreed result set ")) << lines.at(2).text;
    EXPECT_TRUE(lines.back().message.ends_with("rc=0")) << lines.back().text;
}

// ---- Dumping ------------------------------------------------------------------------------------------------------

TEST(DumpResultSet, WritesTheBufferWhateverTheLevel)
{
    for (const Bytes& content : {idContent, statContent}) {
        HeldSet set(content, 500);
        for (int level = 0; level <= 2; level++) {
            TraceFile trace(level);
            EXPECT_EQ(0, dumpResultSet(set.token));
            EXPECT_EQ(resultSetDump(set.token, content.size() - 4), trace.text()) << "level " << level;
        }
    }
}

TEST(DumpResultSet, ChecksItsArgumentsInOrder)
{
    HeldSet empty(terminatorBytes(), 32, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    empty.token->owningPid = 1;
    HeldSet lost(idContent);
    char* kept = lost.token->rsBuffPtr;
    lost.token->rsBuffPtr = nullptr;
    TraceFile trace(1);
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, dumpResultSet(nullptr));
    EXPECT_EQ(KRVSTAT_NO_RESULT_BUFFER, dumpResultSet(lost.token));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, dumpResultSet(empty.token));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"*EXC*", "*EXC*", "*EXC*"}), kinds(lines)) << trace.text();
    expectNumbersIn(lines, dumpNumbers);
    EXPECT_TRUE(lines[0].message.starts_with("API.dumpResultSet")) << lines[0].text;
    EXPECT_EQ("API.dumpResultSet(rsPtr=" + pointerText(lost.token) + ") resultSetBuf is NULL - no data to dump",
              lines[1].message);
    EXPECT_EQ("API.dumpResultSet Resultset does not contain recognised content", lines[2].message);
    lost.token->rsBuffPtr = kept;
}

TEST(DumpResultSet, OfAConnectionsSetIsForItsOwnThreadAndProcess)
{
    ForeignSet foreign;
    TraceFile trace(0);
    std::thread([&] { EXPECT_EQ(KRVSTAT_TID_MISMATCH, dumpResultSet(foreign.set.token)); }).join();
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, inChild([&] { return dumpResultSet(foreign.set.token); }));
    EXPECT_EQ("", trace.text());
    EXPECT_EQ(0, dumpResultSet(foreign.set.token));
    EXPECT_EQ(resultSetDump(foreign.set.token, idContent.size() - 4), trace.text());
}

TEST(DumpResultSet, ShowsWhereTheWalkStands)
{
    HeldSet set(idContent);
    KRV_IdData_t id;
    ASSERT_EQ(0, getFirstId(set.token, &id));
    TraceFile trace(0);
    EXPECT_EQ(0, dumpResultSet(set.token));
    EXPECT_NE(std::string::npos, trace.text().find("next(" + pointerText(id.idPtr + id.idLen) + ")\n")) << trace.text();
    ASSERT_EQ(0, getNextId(set.token, &id)) << "the walk goes on";
    EXPECT_EQ("18", idText(id));
}

TEST(DumpResultSetTrace, HasItsFrame)
{
    HeldSet set(idContent);
    TraceFile trace(3);
    EXPECT_EQ(0, dumpResultSet(set.token));
    std::vector<TraceLine> lines = linesFrom(trace.lines(), "API.dumpResultSet");
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(1102, lines[0].number);
    expectNumbersIn(lines, dumpNumbers);
    EXPECT_TRUE(lines[1].message.ends_with("rc=0")) << lines[1].text;
}

} // namespace krvtest
