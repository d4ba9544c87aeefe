// Result-set tokens: how they are made, who may use them, how they are dumped and deleted.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "krvstats.h"
#include "result_sets.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_resultsetbuffer.h"
#include "trace_claims.h"
#include "watched_allocator.h"

namespace krvtest {

namespace {

char gatewayOwned[] = "KRVRSROB";
char userOwned[] = "KRVRSUSR";

const std::string createPrefix = "stapi_krv_resultsetbuffer.createResultSet";
const std::string deletePrefix = "stapi_krv_resultsetbuffer.deleteResultSet";
const std::string verifyPrefix = "stapi_krv_resultsetbuffer.verifyAPIResultSetToken";
const std::string dumpPrefix = "stapi_krv_resultsetbuffer.dumpResultSetInternal";

std::string hexText(unsigned long long value)
{
    char digits[32];
    std::snprintf(digits, sizeof digits, "%x", static_cast<unsigned int>(value));
    return digits;
}

std::string tidText(ThreadId thread)
{
    unsigned long long value = 0;
    std::memcpy(&value, &thread, sizeof thread);
    return hexText(value);
}

// What `call` returns in a forked child.
template <typename Call> int inChild(Call call)
{
    pid_t child = fork();
    if (child == 0) _exit(-call());
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return 1;
    return -WEXITSTATUS(status);
}

bool allZero(const char* bytes, std::size_t count)
{
    for (std::size_t i = 0; i < count; i++)
        if (bytes[i] != 0) return false;
    return true;
}

} // namespace

TEST(CreateResultSet, OfAGatewayTokenIsBoundToProcessAndThread)
{
    KRV_ResultSetToken_t token = nullptr;
    ASSERT_EQ(0, createResultSet(&token, gatewayOwned, 0x8888));
    ASSERT_NE(nullptr, token);
    EXPECT_EQ(0, std::memcmp(token->eyecatcher, "KRVRSROB", 8));
    EXPECT_EQ(34952, token->owner);
    EXPECT_EQ(0, token->category);
    EXPECT_EQ(nullptr, token->queryString);
    ASSERT_NE(nullptr, token->validatedQueryPtr);
    EXPECT_TRUE(allZero(token->validatedQueryPtr, 32000));
    EXPECT_EQ(0, token->queryIndex);
    EXPECT_EQ(nullptr, token->cacheElementPtr);
    EXPECT_EQ(0, token->cacheElementLen);
    EXPECT_EQ(0, token->cacheElementRC);
    EXPECT_EQ(getpid(), token->owningPid);
    EXPECT_TRUE(pthread_equal(pthread_self(), token->owningTid));
    EXPECT_EQ(0, deleteResultSet(&token));
    EXPECT_EQ(nullptr, token);
}

TEST(CreateResultSet, OfTheUserHasNoOwnerIds)
{
    KRV_ResultSetToken_t token = nullptr;
    ASSERT_EQ(0, createResultSet(&token, userOwned, 0x9999));
    ASSERT_NE(nullptr, token);
    EXPECT_EQ(0, std::memcmp(token->eyecatcher, "KRVRSUSR", 8));
    EXPECT_EQ(39321, token->owner);
    EXPECT_EQ(0, token->owningPid);
    EXPECT_TRUE(allZero(token->validatedQueryPtr, 32000));
    EXPECT_EQ(0, deleteResultSet(&token));
}

TEST(CreateResultSet, ZeroesWhatItsCreatorSetsLater)
{
    // a freed record of other bytes is likely to be handed out again
    KRV_ResultSetToken_t token = nullptr;
    void* soiled = std::malloc(sizeof(Internal_ResultSetToken_t));
    for (std::size_t i = 0; i < sizeof(Internal_ResultSetToken_t); i++) static_cast<volatile char*>(soiled)[i] = 0x5A;
    std::free(soiled);
    ASSERT_EQ(0, createResultSet(&token, userOwned, 0x9999));
    EXPECT_EQ(nullptr, token->rsBuffPtr);
    EXPECT_EQ(0, token->rsBuffLen);
    EXPECT_EQ(nullptr, token->cursor);
    EXPECT_EQ(0, token->queryCount);
    EXPECT_EQ(0, token->elementResultCount);
    EXPECT_EQ(0, token->elementResultIndex);
    EXPECT_EQ(0, deleteResultSet(&token));
}

TEST(CreateResultSet, ZeroesItsScratchAreaAndNothingBehindIt)
{
    for (int owner : {0x8888, 0x9999}) {
        KRV_ResultSetToken_t token = nullptr;
        AllocationWatch watch(1, 100000);
        watch.soil(16);
        const int rc = createResultSet(&token, userOwned, owner);
        const int damaged = watch.damaged();
        ASSERT_EQ(0, rc);
        EXPECT_EQ(0, damaged);
        EXPECT_TRUE(allZero(token->validatedQueryPtr, 32000));
        EXPECT_EQ(0, deleteResultSet(&token));
    }
}

TEST(CreateResultSet, RefusesNullPointersBeforeTheOwner)
{
    KRV_ResultSetToken_t token = reinterpret_cast<KRV_ResultSetToken_t>(1);
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, createResultSet(nullptr, userOwned, 0x9999));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, createResultSet(&token, nullptr, 0x9999));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, createResultSet(nullptr, nullptr, 0x1234));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, createResultSet(&token, nullptr, 0x1234));
    EXPECT_EQ(reinterpret_cast<KRV_ResultSetToken_t>(1), token);
}

TEST(CreateResultSet, RefusesEveryOtherOwnerAndAllocatesNothing)
{
    for (int owner : {0x1234, 0, -1, 0x8887, 0x8889, 0x9998, 0x999A, 0x18888, 0x19999}) {
        KRV_ResultSetToken_t token = reinterpret_cast<KRV_ResultSetToken_t>(1);
        AllocationWatch watch(1, 100000);
        int rc = createResultSet(&token, userOwned, owner);
        int requests = watch.requests();
        EXPECT_EQ(KRVSTAT_INVALID_RESULT_SET_OWNER, rc) << owner;
        EXPECT_EQ(0, requests) << owner;
        EXPECT_EQ(reinterpret_cast<KRV_ResultSetToken_t>(1), token);
    }
}

TEST(CreateResultSet, WithoutARecordGivesNull)
{
    TraceFile trace(4);
    KRV_ResultSetToken_t token = reinterpret_cast<KRV_ResultSetToken_t>(1);
    int rc, failures;
    {
        AllocationWatch watch(sizeof(Internal_ResultSetToken_t), sizeof(Internal_ResultSetToken_t));
        watch.fail(0, 1);
        rc = createResultSet(&token, userOwned, 0x9999);
        failures = watch.failures();
    }
    ASSERT_EQ(1, failures);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    EXPECT_EQ(nullptr, token);
    std::vector<TraceLine> lines = trace.lines();
    expectNumbersRise(lines, 2127, 2132);
    std::string size = std::to_string(sizeof(Internal_ResultSetToken_t));
    EXPECT_EQ(1, countOf(lines, "*EXC*", createPrefix + " Failed to allocate " + size + " bytes")) << trace.text();
    EXPECT_EQ(1, countOf(lines, "DEBUG", createPrefix + " Called malloc for " + size + " bytes. rc=" + pointerText(nullptr)))
        << trace.text();
    EXPECT_TRUE(lines.back().message.ends_with("rc=-111")) << lines.back().text;
}

TEST(CreateResultSet, WithoutAScratchAreaLeavesTheHandleAndKeepsNothing)
{
    TraceFile trace(4);
    KRV_ResultSetToken_t token = reinterpret_cast<KRV_ResultSetToken_t>(1);
    int rc, failures, left;
    {
        AllocationWatch watch(sizeof(Internal_ResultSetToken_t), 32000);
        // the record is the first of this size
        watch.fail(1, 1);
        rc = createResultSet(&token, userOwned, 0x9999);
        failures = watch.failures();
        left = watch.blocksLeft();
    }
    ASSERT_EQ(1, failures);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, rc);
    EXPECT_EQ(reinterpret_cast<KRV_ResultSetToken_t>(1), token);
    EXPECT_EQ(0, left) << "the record was freed";
    std::string size = std::to_string(sizeof(Internal_ResultSetToken_t));
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ(2127, lines.front().number);
    EXPECT_EQ(2132, lines.back().number);
    for (const TraceLine& line : lines) EXPECT_TRUE(line.number >= 2127 && line.number <= 2132) << line.text;
    EXPECT_EQ(1, countOf(lines, "*EXC*", createPrefix + " Failed to allocate " + size + " bytes"))
        << "the record's size, not the area's: " << trace.text();
    EXPECT_EQ(1, countOf(lines, "DEBUG", createPrefix + " Called malloc for 32000 bytes. rc=" + pointerText(nullptr)))
        << trace.text();
}

TEST(CreateResultSet, TracesBothAllocations)
{
    TraceFile trace(4);
    KRV_ResultSetToken_t token = nullptr;
    ASSERT_EQ(0, createResultSet(&token, userOwned, 0x9999));
    std::vector<TraceLine> lines = linesFrom(trace.lines(), createPrefix);
    EXPECT_EQ((std::vector<std::string>{"ENTRY", "DEBUG", "DEBUG", "EXIT"}), kinds(lines)) << trace.text();
    expectNumbersRise(lines, 2127, 2132);
    EXPECT_EQ(2132, lines.back().number);
    EXPECT_TRUE(lines.back().message.ends_with("rc=0")) << lines.back().text;
    EXPECT_EQ(createPrefix + " Called malloc for " + std::to_string(sizeof(Internal_ResultSetToken_t)) + " bytes. rc="
                  + pointerText(token),
              lines.at(1).message);
    EXPECT_EQ(createPrefix + " Called malloc for 32000 bytes. rc=" + pointerText(token->validatedQueryPtr),
              lines.at(2).message);
    EXPECT_EQ(0, deleteResultSet(&token));
}

TEST(DeleteResultSet, ChecksBothPointersInOrder)
{
    KRV_ResultSetToken_t none = nullptr;
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_POINTER, deleteResultSet(nullptr));
    EXPECT_EQ(KRVSTAT_NULL_RESULT_SET_TOKEN, deleteResultSet(&none));
}

TEST(DeleteResultSet, FreesRecordAndTextsButNotTheBuffer)
{
    char* buffer = static_cast<char*>(std::malloc(500));
    std::memset(buffer, 'b', 500);
    KRV_ResultSetToken_t token = nullptr;
    int requests, left;
    {
        AllocationWatch watch(100, 40000);
        ASSERT_EQ(0, createResultSet(&token, userOwned, 0x9999));
        token->queryString = static_cast<char*>(std::malloc(300));
        token->rsBuffPtr = buffer;
        ASSERT_EQ(0, deleteResultSet(&token));
        requests = watch.requests();
        left = watch.blocksLeft();
    }
    EXPECT_GE(requests, 2);
    EXPECT_EQ(0, left);
    EXPECT_EQ(nullptr, token);
    EXPECT_EQ('b', buffer[499]);
    std::free(buffer);
}

TEST(DeleteResultSet, OfATokenWithoutTextsFreesTheRecordOnly)
{
    KRV_ResultSetToken_t token = nullptr;
    ASSERT_EQ(0, createResultSet(&token, userOwned, 0x9999));
    std::free(token->validatedQueryPtr);
    token->validatedQueryPtr = nullptr;
    std::string address = pointerText(token);
    TraceFile trace(4);
    EXPECT_EQ(0, deleteResultSet(&token));
    EXPECT_EQ(nullptr, token);
    std::vector<TraceLine> lines = trace.lines();
    expectNumbersRise(lines, 2133, 2138);
    EXPECT_EQ(0u, linesFrom(lines, deletePrefix + " Free result set verifiedQueryString").size()) << trace.text();
    EXPECT_EQ(1, countOf(lines, "DEBUG", deletePrefix + " Free result set token(" + address + ")")) << trace.text();
}

TEST(DeleteResultSet, TracesWhatItFrees)
{
    KRV_ResultSetToken_t token = nullptr;
    ASSERT_EQ(0, createResultSet(&token, userOwned, 0x9999));
    std::string address = pointerText(token);
    std::string area = pointerText(token->validatedQueryPtr);
    TraceFile trace(4);
    EXPECT_EQ(0, deleteResultSet(&token));
    std::vector<TraceLine> lines = trace.lines();
    expectNumbersRise(lines, 2133, 2138);
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_EQ("EXIT", lines.back().kind);
    EXPECT_EQ(1, countOf(lines, "DEBUG", deletePrefix + " Free result set verifiedQueryString(" + area + ")"));
    EXPECT_EQ(1, countOf(lines, "DEBUG", deletePrefix + " Free result set token(" + address + ")"));
    int freed = 0;
    for (const TraceLine& line : lines) freed += line.message.starts_with(deletePrefix + " Freed result set token(");
    EXPECT_EQ(1, freed) << trace.text();
}

TEST(VerifyOwner, LetsTheCreatorIn)
{
    HeldSet set(idSet({}), HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    TraceFile trace(4);
    EXPECT_EQ(0, verifyAPIResultSetTokenOwner(set.token));
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(2141, lines[0].number);
    EXPECT_EQ(2144, lines[1].number);
    EXPECT_TRUE(lines[1].message.ends_with("rc=0")) << lines[1].text;
}

TEST(VerifyOwner, RefusesAnotherThread)
{
    HeldSet set(idSet({}), HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    TraceFile trace(4);
    int rc = 0;
    std::string current;
    std::thread([&] {
        rc = verifyAPIResultSetTokenOwner(set.token);
        current = tidText(pthread_self());
    }).join();
    EXPECT_EQ(KRVSTAT_TID_MISMATCH, rc);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "*EXC*", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(2143, lines[1].number);
    EXPECT_EQ(verifyPrefix + " TID mismatch: currentTid=" + current + ", owningTid=" + tidText(pthread_self()),
              lines[1].message);
    EXPECT_TRUE(lines[2].message.ends_with("rc=-124")) << lines[2].text;
}

TEST(VerifyOwner, RefusesAForkedChildByItsProcess)
{
    HeldSet set(idSet({}), HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, inChild([&] { return verifyAPIResultSetTokenOwner(set.token); }));
}

TEST(VerifyOwner, TestsTheProcessFirstAndNamesBoth)
{
    HeldSet set(idSet({}), HeldSet::ofContent, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    set.token->owningPid = 0x1ABC;
    TraceFile trace(1);
    int rc = 0;
    std::thread([&] { rc = verifyAPIResultSetTokenOwner(set.token); }).join();
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, rc);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(1u, lines.size()) << trace.text();
    EXPECT_EQ(2142, lines[0].number);
    EXPECT_EQ("*EXC*", lines[0].kind);
    EXPECT_EQ(verifyPrefix + " PID mismatch: currentPid=" + hexText(static_cast<unsigned int>(getpid()))
                  + ", owningPid=1abc",
              lines[0].message);
}

TEST(DumpResultSetInternal, RefusesNullAndWritesNoDump)
{
    TraceFile trace(4);
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, dumpResultSetInternal(nullptr));
    EXPECT_EQ(std::string::npos, trace.text().find("Dump of ResultSet")) << trace.text();
    EXPECT_EQ(std::string::npos, trace.text().find("-----")) << trace.text();
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ((std::vector<std::string>{"ENTRY", "EXIT"}), kinds(lines)) << trace.text();
    EXPECT_EQ(2139, lines[0].number);
    EXPECT_EQ(2140, lines[1].number);
    EXPECT_EQ(dumpPrefix + "(rsPtr=" + pointerText(nullptr) + ") bytes dumped=0 rc=-103", lines[1].message);
}

TEST(DumpResultSetInternal, WritesTheWholeBufferWhateverTheLevel)
{
    Bytes content = statSet({{"cpu", 0, {{"cpu.user", "17"}, {"cpu.idle", "83\x01\x7F"}}}, {"x", -5}});
    for (int level = 0; level <= 5; level++) {
        HeldSet set(content, static_cast<int>(content.size()) + 40);
        TraceFile trace(level);
        EXPECT_EQ(0, dumpResultSetInternal(set.token));
        std::string dump = resultSetDump(set.token, content.size() - 4);
        if (level < 3) {
            EXPECT_EQ(dump, trace.text()) << "level " << level;
            continue;
        }
        std::vector<TraceLine> lines = trace.lines();
        EXPECT_EQ(2139, lines.front().number);
        EXPECT_EQ("ENTRY", lines.front().kind);
        EXPECT_EQ(2140, lines.back().number);
        EXPECT_EQ("EXIT", lines.back().kind);
        EXPECT_EQ(dumpPrefix + "(rsPtr=" + pointerText(set.token) + ") bytes dumped="
                      + std::to_string(content.size() - 4) + " rc=0",
                  lines.back().message);
        EXPECT_EQ(lines.front().text + "\n" + dump + lines.back().text + "\n", trace.text()) << "level " << level;
    }
}

TEST(DumpResultSetInternal, EndsAtTheTerminatorWhereverItStandsInALine)
{
    for (std::size_t length = 0; length <= 34; length++) {
        Bytes content = idSet({{std::string(length, 'q'), -1}});
        HeldSet set(content);
        set.token->cursor = set.token->rsBuffPtr + 8;
        TraceFile trace(3);
        EXPECT_EQ(0, dumpResultSetInternal(set.token));
        std::size_t terminatorAt = content.size() - 4;
        EXPECT_NE(std::string::npos, trace.text().find("\n" + resultSetDump(set.token, terminatorAt)))
            << "terminator at " << terminatorAt << "\n"
            << trace.text() << resultSetDump(set.token, terminatorAt);
        EXPECT_NE(std::string::npos, trace.text().find(" bytes dumped=" + std::to_string(terminatorAt) + " rc=0"));
    }
}

TEST(DumpResultSetInternal, OfATerminatorAloneIsHeaderOneLineAndTwoRules)
{
    HeldSet set(terminatorBytes(), 32, RESULT_SET_ROOM, RESULT_SET_OWNER_API);
    TraceFile trace(0);
    EXPECT_EQ(0, dumpResultSetInternal(set.token));
    std::vector<std::string> lines = splitLines(trace.text());
    ASSERT_EQ(4u, lines.size()) << trace.text();
    EXPECT_EQ("Dump of ResultSet(" + pointerText(set.token) + ") owner(8888) head(" + pointerText(set.block())
                  + ") next(" + pointerText(set.block()) + ")",
              lines[0]);
    EXPECT_EQ(std::string(80, '-'), lines[1]);
    EXPECT_EQ(setDump(set.block(), 0), lines[2] + "\n");
    EXPECT_TRUE(lines[2].ends_with("0F0E0F0E 00000000 00000000 00000000 : ")
                || lines[2].ends_with("0E0F0E0F 00000000 00000000 00000000 : "))
        << lines[2];
    EXPECT_EQ(std::string(80, '-'), lines[3]);
}

TEST(DumpResultSetInternal, DumpIsNotInterleavedWithOtherThreads)
{
    Bytes content = idSet({{letters(400), 0, {{"a"}, {"b"}}}});
    HeldSet set(content);
    TraceFile trace(1);
    std::thread other([] {
        for (int i = 0; i < 500; i++) addTerminator(nullptr);
    });
    for (int i = 0; i < 20; i++) EXPECT_EQ(0, dumpResultSetInternal(set.token));
    other.join();
    std::string whole = resultSetDump(set.token, content.size() - 4);
    std::string text = trace.text();
    int found = 0;
    for (std::size_t at = text.find(whole); at != std::string::npos; at = text.find(whole, at + 1)) found++;
    EXPECT_EQ(20, found);
}

} // namespace krvtest
