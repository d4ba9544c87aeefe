// The list of gateway tokens, on tokens made by hand: no socket is opened here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "failing_calls.h"
#include "krvstats.h"
#include "krvstats_ext.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"
#include "stapi_krv_resultsetbuffer.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

const std::string rule(80, '-');

// A whole token as an open connection has it, but for its socket. deleteGatewayToken frees all of it.
Internal_GatewayToken_t* makeToken(unsigned port = 4711)
{
    auto* token = static_cast<Internal_GatewayToken_t*>(std::calloc(1, sizeof(Internal_GatewayToken_t)));
    std::memcpy(token->eyecatcher, "KRVGWTOK", 8);
    token->portNumber = port;
    token->socketDescriptor = -1;
    char eyecatcher[] = "KRVRSROB";
    EXPECT_EQ(0, createResultSet(&token->connRSPtr, eyecatcher, 0x8888));
    token->resultSetBuf = static_cast<char*>(std::calloc(1, 32768 + 19));
    token->resultSetBufLen = 32768;
    addTerminator(token->resultSetBuf);
    token->connRSPtr->rsBuffPtr = token->resultSetBuf;
    token->connRSPtr->rsBuffLen = token->resultSetBufLen;
    token->owningPid = getpid();
    token->owningTid = pthread_self();
    token->protocolVersion = static_cast<char*>(std::calloc(1, 64));
    return token;
}

// An empty list before, and whatever a failed test left on it freed after.
class TokenList : public ::testing::Test {
protected:
    TokenList()
    {
        char* version = nullptr;
        EXPECT_EQ(KRVSTAT_OK, getStatsAPIVersion(&version));
        EXPECT_EQ(nullptr, gtListHeadPtr);
    }
    ~TokenList() override
    {
        while (gtListHeadPtr && deleteGatewayTokens() == GTL_RUNAWAY) { }
        gtListTailPtr = nullptr;
    }
};

// Bare records linked by hand, for walks only. Nothing frees them: the list must be empty again before they go.
struct BareList {
    explicit BareList(std::size_t count) : tokens(count)
    {
        for (std::size_t i = 0; i < count; i++) {
            std::memset(&tokens[i], 0, sizeof tokens[i]);
            tokens[i].owningPid = getpid();
            tokens[i].owningTid = pthread_self();
            if (i + 1 < count) tokens[i].nextGwyTokPtr = &tokens[i + 1];
        }
        if (count > 0) {
            gtListHeadPtr = &tokens.front();
            gtListTailPtr = &tokens.back();
        }
    }
    ~BareList()
    {
        gtListHeadPtr = nullptr;
        gtListTailPtr = nullptr;
    }
    std::vector<Internal_GatewayToken_t> tokens;
};

std::vector<Internal_GatewayToken_t*> listed()
{
    std::vector<Internal_GatewayToken_t*> tokens;
    for (Internal_GatewayToken_t* token = gtListHeadPtr; token && tokens.size() < 2000; token = token->nextGwyTokPtr)
        tokens.push_back(token);
    return tokens;
}

std::string formatted(Internal_GatewayToken_t* token)
{
    char text[512];
    EXPECT_EQ(0, formatGatewayToken(token, text));
    return text;
}

int chainAll(const std::vector<Internal_GatewayToken_t*>& tokens)
{
    int worst = 0;
    for (Internal_GatewayToken_t* token : tokens) worst |= chainGatewayToken(token);
    return worst;
}

std::vector<std::string> briefOf(const std::vector<TraceLine>& lines, int number)
{
    return brief(linesNumbered(lines, number));
}

std::string withoutTraceLines(const std::string& text)
{
    std::string rest;
    for (const std::string& line : splitLines(text))
        if (parseTrace(line)[0].number == 0) rest += line + "\n";
    return rest;
}

} // namespace

// ---- Chain --------------------------------------------------------------------------------------------------------

TEST_F(TokenList, TokensAreAppendedAtTheTail)
{
    std::vector<Internal_GatewayToken_t*> tokens = {makeToken(), makeToken(), makeToken()};
    for (std::size_t i = 0; i < tokens.size(); i++) {
        EXPECT_EQ(0, chainGatewayToken(tokens[i]));
        EXPECT_EQ(tokens[0], gtListHeadPtr);
        EXPECT_EQ(tokens[i], gtListTailPtr);
        EXPECT_EQ(nullptr, tokens[i]->nextGwyTokPtr);
    }
    EXPECT_EQ(tokens, listed());
    EXPECT_EQ(0, deleteGatewayTokens());
}

TEST_F(TokenList, ANullTokenIsNotChained)
{
    TraceFile trace(1);
    EXPECT_EQ(-108, chainGatewayToken(nullptr));
    EXPECT_EQ((std::vector<std::string>{"2021 *EXC* stapi_krv_gwytok.chainGatewayToken() Chain request was for a null token"}),
        brief(trace.lines()));
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST_F(TokenList, AHeadWithoutATailIsCorruptAndTakesNoToken)
{
    BareList list(2);
    gtListTailPtr = nullptr;
    Internal_GatewayToken_t fresh = {};
    TraceFile trace(1);
    EXPECT_EQ(KRVSTAT_GTL_CORRUPT, chainGatewayToken(&fresh));
    EXPECT_EQ(-115, KRVSTAT_GTL_CORRUPT);
    EXPECT_EQ((std::vector<std::string>{"2020 *EXC* stapi_krv_gwytok.chainGatewayToken() GTL state is corrupt - head("
                  + pointerText(&list.tokens[0]) + ") tail ((nil))"}),
        brief(trace.lines()));
    EXPECT_EQ(2u, listed().size());
    EXPECT_EQ(nullptr, gtListTailPtr);
}

TEST_F(TokenList, AStaleTailOfAnEmptyListDoesNotMatter)
{
    Internal_GatewayToken_t gone = {};
    gtListTailPtr = &gone;
    Internal_GatewayToken_t* token = makeToken();
    EXPECT_EQ(0, chainGatewayToken(token));
    EXPECT_EQ(token, gtListHeadPtr);
    EXPECT_EQ(token, gtListTailPtr);
    EXPECT_EQ(nullptr, gone.nextGwyTokPtr);
}

// ---- Find ---------------------------------------------------------------------------------------------------------

TEST_F(TokenList, FindTellsTheTokenBefore)
{
    BareList list(5);
    for (std::size_t i = 0; i < 5; i++) {
        Internal_GatewayToken_t* parent = &list.tokens[4];
        TraceFile trace(4);
        EXPECT_EQ(1004, findGatewayToken(&list.tokens[i], &parent));
        EXPECT_EQ(i == 0 ? nullptr : &list.tokens[i - 1], parent);
        EXPECT_EQ(1004, findGatewayToken(&list.tokens[i], nullptr));
        const std::string steps = std::to_string(i == 0 ? 0 : i - 1);
        const std::string line = "2026 DEBUG stapi_krv_gwytok.findGatewayToken() Target token found at GTL Entry(" + steps + ")";
        EXPECT_EQ((std::vector<std::string>{line, line}), briefOf(trace.lines(), 2026));
    }
}

TEST_F(TokenList, ATokenThatIsNotThereIsNotFound)
{
    BareList list(3);
    Internal_GatewayToken_t stranger = {};
    Internal_GatewayToken_t* parent = &list.tokens[1];
    TraceFile trace(4);
    EXPECT_EQ(1003, findGatewayToken(&stranger, &parent));
    EXPECT_EQ(&list.tokens[1], parent) << "only a token that is found has one before it";
    std::vector<TraceLine> lines = linesNumbered(trace.lines(), 2025);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("DEBUG", lines[0].kind);
    EXPECT_TRUE(lines[0].message.starts_with("stapi_krv_gwytok.findGatewayToken() Target token not found. GTL entries(")) << lines[0].message;
    EXPECT_TRUE(lines[0].message.ends_with(") head(" + pointerText(&list.tokens[0]) + ") last(" + pointerText(&list.tokens[2]) + ")")) << lines[0].message;
}

TEST_F(TokenList, ANullTargetIsRefusedBeforeTheListIsLookedAt)
{
    TraceFile trace(1);
    Internal_GatewayToken_t* parent = nullptr;
    EXPECT_EQ(1002, findGatewayToken(nullptr, &parent));
    BareList list(1);
    EXPECT_EQ(1002, findGatewayToken(nullptr, nullptr));
    const std::string line = "2028 *EXC* stapi_krv_gwytok.findGatewayToken() Target was a null token";
    EXPECT_EQ((std::vector<std::string>{line, line}), brief(trace.lines()));
}

TEST_F(TokenList, AnEmptyListIsReportedInTheWordsForCorruption)
{
    Internal_GatewayToken_t stranger = {};
    gtListTailPtr = &stranger;
    TraceFile trace(1);
    EXPECT_EQ(1001, findGatewayToken(&stranger, nullptr));
    EXPECT_EQ((std::vector<std::string>{"2027 *EXC* stapi_krv_gwytok.findGatewayToken() GTL state is corrupt - head((nil)) tail ("
                  + pointerText(&stranger) + ")"}),
        brief(trace.lines()));
}

TEST_F(TokenList, TheWalkTakes256Steps)
{
    const std::string runaway = "2024 *EXC* stapi_krv_gwytok.findGatewayToken() GTL iteration has hit RUNAWAY limit 256.....";
    BareList list(300);
    TraceFile trace(1);
    EXPECT_EQ(1004, findGatewayToken(&list.tokens[255], nullptr)) << "the 256th";
    Internal_GatewayToken_t* parent = nullptr;
    EXPECT_EQ(1004, findGatewayToken(&list.tokens[256], &parent)) << "the 257th";
    EXPECT_EQ(&list.tokens[255], parent);
    EXPECT_EQ("", trace.text());
    EXPECT_EQ(1005, findGatewayToken(&list.tokens[257], nullptr)) << "the 258th";
    EXPECT_EQ((std::vector<std::string>{runaway}), brief(trace.lines()));
    EXPECT_EQ(1005, findGatewayToken(&list.tokens[299], nullptr));
}

TEST_F(TokenList, AMissingTokenIsNotFoundIn256AndARunawayIn257)
{
    Internal_GatewayToken_t stranger = {};
    {
        BareList list(256);
        EXPECT_EQ(1003, findGatewayToken(&stranger, nullptr));
    }
    BareList list(257);
    EXPECT_EQ(1005, findGatewayToken(&stranger, nullptr));
}

TEST_F(TokenList, ACircularListEndsTheWalk)
{
    BareList list(3);
    list.tokens[2].nextGwyTokPtr = &list.tokens[0];
    Internal_GatewayToken_t stranger = {};
    EXPECT_EQ(1005, findGatewayToken(&stranger, nullptr));
    EXPECT_EQ(1004, findGatewayToken(&list.tokens[2], nullptr));
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, verifyGatewayToken(&stranger));
}

// ---- Verify -------------------------------------------------------------------------------------------------------

TEST_F(TokenList, AListedTokenOfThisThreadIsAccepted)
{
    BareList list(257);
    EXPECT_EQ(0, verifyGatewayToken(&list.tokens[0]));
    EXPECT_EQ(0, verifyGatewayToken(&list.tokens[1]));
    EXPECT_EQ(0, verifyGatewayToken(&list.tokens[256]));
}

TEST_F(TokenList, WhateverFindSaysBut1004IsNotFound)
{
    Internal_GatewayToken_t stranger = {};
    struct Case {
        std::size_t listed;
        Internal_GatewayToken_t* target;
        int findRc;
    };
    for (const Case& each : {Case{0, &stranger, 1001}, Case{0, nullptr, 1002}, Case{3, nullptr, 1002}, Case{3, &stranger, 1003},
             Case{257, &stranger, 1005}}) {
        BareList list(each.listed);
        TraceFile trace(1);
        EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, verifyGatewayToken(each.target));
        std::vector<TraceLine> lines = linesNumbered(trace.lines(), 2007);
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ("*EXC*", lines[0].kind);
        EXPECT_EQ("stapi_krv_gwytok.verifyGatewayToken(&gwTokPtr=" + pointerText(each.target) + ") Gateway token not found - findRc="
                + std::to_string(each.findRc),
            lines[0].message);
    }
    EXPECT_EQ(-101, KRVSTAT_GATEWAY_TOKEN_NOT_FOUND);
}

TEST_F(TokenList, AForkedChildDoesNotOwnTheToken)
{
    BareList list(2);
    TraceFile trace(1);
    pid_t child = fork();
    if (child == 0) _exit(verifyGatewayToken(&list.tokens[1]) == KRVSTAT_PID_MISMATCH ? 0 : 1);
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ((std::vector<std::string>{"2032 *EXC* stapi_krv_gwytok.verifyGatewayToken PID mismatch: currentPid="
                  + std::to_string(child) + ", owningPid=" + std::to_string(getpid())}),
        brief(trace.lines()));
    EXPECT_EQ(-123, KRVSTAT_PID_MISMATCH);
}

TEST_F(TokenList, AnotherThreadDoesNotOwnTheToken)
{
    BareList list(2);
    TraceFile trace(1);
    int result = 0;
    std::int32_t other = 0;
    std::thread thread([&] {
        other = static_cast<std::int32_t>(pthread_self());
        result = verifyGatewayToken(&list.tokens[1]);
    });
    thread.join();
    EXPECT_EQ(KRVSTAT_TID_MISMATCH, result);
    EXPECT_EQ(-124, KRVSTAT_TID_MISMATCH);
    EXPECT_EQ((std::vector<std::string>{"2033 *EXC* stapi_krv_gwytok.verifyGatewayToken TID mismatch: currentTid=" + std::to_string(other)
                  + ", owningTid=" + std::to_string(static_cast<std::int32_t>(pthread_self()))}),
        brief(trace.lines()));
}

TEST_F(TokenList, TheProcessIsComparedBeforeTheThread)
{
    BareList list(1);
    list.tokens[0].owningPid = getpid() + 1;
    int result = 0;
    std::thread thread([&] { result = verifyGatewayToken(&list.tokens[0]); });
    thread.join();
    EXPECT_EQ(KRVSTAT_PID_MISMATCH, result);
}

// ---- Delete -------------------------------------------------------------------------------------------------------

TEST_F(TokenList, NothingToDeleteIsRefusedInOrder)
{
    KRV_GatewayToken_t none = nullptr;
    Internal_GatewayToken_t stranger = {};
    stranger.socketDescriptor = -1;
    KRV_GatewayToken_t strange = &stranger;
    for (int lockRequired : {0, 1}) {
        EXPECT_EQ(KRVSTAT_NULL_GATEWAY_TOKEN_POINTER, deleteGatewayToken(nullptr, lockRequired));
        EXPECT_EQ(KRVSTAT_NULL_GATEWAY_TOKEN, deleteGatewayToken(&none, lockRequired));
    }
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, deleteGatewayToken(&strange, 1)) << "an empty list";
    BareList list(2);
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, deleteGatewayToken(&strange, 1));
    EXPECT_EQ(&stranger, strange);
    EXPECT_EQ(2u, listed().size());
    EXPECT_EQ(-108, KRVSTAT_NULL_GATEWAY_TOKEN_POINTER);
    EXPECT_EQ(-100, KRVSTAT_NULL_GATEWAY_TOKEN);
}

TEST_F(TokenList, TokensGoInEveryOrder)
{
    std::vector<std::size_t> order = {0, 1, 2, 3};
    do {
        std::vector<Internal_GatewayToken_t*> tokens = {makeToken(), makeToken(), makeToken(), makeToken()};
        ASSERT_EQ(0, chainAll(tokens));
        std::vector<Internal_GatewayToken_t*> left = tokens;
        for (std::size_t next : order) {
            KRV_GatewayToken_t handle = tokens[next];
            Internal_GatewayToken_t* tailBefore = gtListTailPtr;
            EXPECT_EQ(0, deleteGatewayToken(&handle, 1));
            left.erase(std::find(left.begin(), left.end(), tokens[next]));
            EXPECT_EQ(left, listed());
            EXPECT_EQ(left.empty() ? tailBefore : left.back(), gtListTailPtr) << "behind the last one it is left as it was";
        }
        Internal_GatewayToken_t* fresh = makeToken();
        EXPECT_EQ(0, chainGatewayToken(fresh)) << "a new token becomes head and tail again";
        EXPECT_EQ(fresh, gtListHeadPtr);
        EXPECT_EQ(fresh, gtListTailPtr);
        EXPECT_EQ(0, deleteGatewayTokens());
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(TokenList, WithTheLockHeldTheHeadIsDeleted)
{
    std::vector<Internal_GatewayToken_t*> tokens = {makeToken(), makeToken()};
    ASSERT_EQ(0, chainAll(tokens));
    KRV_GatewayToken_t handle = tokens[0];
    const TraceFile trace(4);
    ASSERT_EQ(0, requestLock(&gtlLock));
    EXPECT_EQ(0, deleteGatewayToken(&handle, 0));
    ASSERT_EQ(0, releaseLock(&gtlLock));
    EXPECT_EQ(1u, linesNumbered(trace.lines(), 2011).size()) << "it is freed";
    EXPECT_EQ((std::vector<Internal_GatewayToken_t*>{tokens[1]}), listed());
    EXPECT_EQ(tokens[1], gtListTailPtr);
}

TEST_F(TokenList, DeletingIsToldStepByStep)
{
    Internal_GatewayToken_t* token = makeToken();
    ASSERT_EQ(0, chainGatewayToken(token));
    const std::string buffer = pointerText(token->resultSetBuf), version = pointerText(token->protocolVersion), record = pointerText(token);
    KRV_GatewayToken_t handle = token;
    TraceFile trace(4);
    EXPECT_EQ(0, deleteGatewayToken(&handle, 1));
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ((std::vector<std::string>{"2043 DEBUG stapi_krv_gwytok.deleteGatewayToken About to free resultSetBuffer (" + buffer + ")"}), briefOf(lines, 2043));
    EXPECT_EQ((std::vector<std::string>{"2044 DEBUG stapi_krv_gwytok.deleteGatewayToken About to free protocolVersion String (" + version + ")"}), briefOf(lines, 2044));
    const std::string handleText = pointerText(&handle);
    EXPECT_EQ((std::vector<std::string>{"2010 DEBUG stapi_krv_gwytok.deleteGatewayToken(&gwTokPtr=" + handleText + ") Free gateway token(" + record + ") "}), briefOf(lines, 2010));
    EXPECT_EQ((std::vector<std::string>{"2011 DEBUG stapi_krv_gwytok.deleteGatewayToken(&gwTokPtr=" + handleText + ") Freed gateway token(" + record + ") "}), briefOf(lines, 2011));
    EXPECT_EQ(2009, lines.front().number);
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_EQ(2012, lines.back().number);
    EXPECT_EQ("EXIT", lines.back().kind);
    EXPECT_TRUE(lines.back().message.ends_with("rc=0"));
}

TEST_F(TokenList, AResultSetThatCannotBeDeletedIsOnlyTold)
{
    Internal_GatewayToken_t* token = makeToken();
    ASSERT_EQ(0, deleteResultSet(&token->connRSPtr));
    ASSERT_EQ(0, chainGatewayToken(token));
    KRV_GatewayToken_t handle = token;
    TraceFile trace(1);
    EXPECT_EQ(0, deleteGatewayToken(&handle, 1));
    EXPECT_EQ((std::vector<std::string>{"2037 *EXC* stapi_krv_gwytok.deleteGatewayToken Unable to delete ResultSet. rc=-127"}), briefOf(trace.lines(), 2037));
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST_F(TokenList, ATokenWithoutBuffersIsDeletedToo)
{
    Internal_GatewayToken_t* token = makeToken();
    std::free(token->resultSetBuf);
    std::free(token->protocolVersion);
    token->resultSetBuf = nullptr;
    token->protocolVersion = nullptr;
    ASSERT_EQ(0, chainGatewayToken(token));
    KRV_GatewayToken_t handle = token;
    EXPECT_EQ(0, deleteGatewayToken(&handle, 1));
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST_F(TokenList, ADescriptorThatCannotBeClosedDoesNotKeepTheToken)
{
    Internal_GatewayToken_t* token = makeToken();
    token->socketDescriptor = 1 << 20; // beyond what a process may have open
    ASSERT_EQ(0, chainGatewayToken(token));
    KRV_GatewayToken_t handle = token;
    TraceFile trace(3);
    EXPECT_EQ(0, deleteGatewayToken(&handle, 1));
    EXPECT_EQ(nullptr, gtListHeadPtr);
    std::vector<TraceLine> closing = linesNumbered(trace.lines(), 3009);
    ASSERT_EQ(1u, closing.size());
    EXPECT_TRUE(closing[0].message.ends_with("closeConnectionRc=-1"));
}

// ---- Delete all ---------------------------------------------------------------------------------------------------

TEST_F(TokenList, DeletingAllOfAnEmptyListHasNothingToDo)
{
    TraceFile trace(3);
    EXPECT_EQ(1006, deleteGatewayTokens());
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("ENTRY", lines[0].kind);
    EXPECT_EQ("EXIT", lines[1].kind);
    EXPECT_EQ("stapi_krv_gwytok.deleteGatewayTokens() Entries deleted=0 rc=1006", lines[1].message);
}

TEST_F(TokenList, DeletingAllNamesEachTokenBeforeItGoes)
{
    std::vector<Internal_GatewayToken_t*> tokens = {makeToken(1), makeToken(2), makeToken(3)};
    ASSERT_EQ(0, chainAll(tokens));
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < tokens.size(); i++)
        expected.push_back("2034 EVENT stapi_krv_gwytok.deleteGatewayTokens(indexToken=" + pointerText(tokens[i]) + ") GTL entry 000"
            + std::to_string(i) + ": " + formatted(tokens[i]));
    TraceFile trace(3);
    EXPECT_EQ(0, deleteGatewayTokens());
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ(expected, briefOf(lines, 2034));
    EXPECT_EQ("stapi_krv_gwytok.deleteGatewayTokens() Entries deleted=3 rc=0", lines.back().message);
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST_F(TokenList, DeletingAllStopsBehind256)
{
    for (std::size_t count : {255u, 256u, 257u, 300u}) {
        std::vector<Internal_GatewayToken_t*> tokens;
        for (std::size_t i = 0; i < count; i++) {
            tokens.push_back(makeToken());
            ASSERT_EQ(0, chainGatewayToken(tokens.back()));
        }
        TraceFile trace(3);
        EXPECT_EQ(count < 256 ? 0 : 1005, deleteGatewayTokens());
        EXPECT_EQ(count <= 256 ? 0 : count - 256, listed().size());
        std::vector<TraceLine> lines = trace.lines();
        EXPECT_EQ(std::min<std::size_t>(count, 256), linesNumbered(lines, 2034).size());
        std::vector<std::string> runaway;
        if (count >= 256)
            runaway.push_back("2014 *EXC* stapi_krv_gwytok.deleteGatewayTokens() GTL iteration has hit RUNAWAY limit 256.....");
        EXPECT_EQ(runaway, briefOf(lines, 2014));
        EXPECT_EQ("stapi_krv_gwytok.deleteGatewayTokens() Entries deleted=" + std::to_string(std::min<std::size_t>(count, 256))
                + " rc=" + (count < 256 ? "0" : "1005"),
            lines.back().message);
        EXPECT_EQ(count > 256 ? 0 : 1006, deleteGatewayTokens()) << "the rest";
    }
}

// ---- Format and dump ----------------------------------------------------------------------------------------------

TEST_F(TokenList, ATokenIsFormatted)
{
    Internal_GatewayToken_t token = {};
    std::memcpy(token.eyecatcher, "KRVGWTOK", 8);
    token.portNumber = 65535;
    token.connStatus = 3;
    token.socketDescriptor = -1;
    token.connRSPtr = reinterpret_cast<Internal_ResultSetToken_t*>(&token);
    token.resultSetBuf = token.eyecatcher + 3;
    token.owningPid = 0xAB;
    token.owningTid = static_cast<ThreadId>(0x1234ABCDul);
    char text[512];
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(0, formatGatewayToken(&token, text));
    EXPECT_EQ("GatwayToken(" + pointerText(&token) + ") eyecatcher(KRVGWTOK) port(65535) connStatus(3) socket(-1) connRSToken("
            + pointerText(&token) + ") resultSetBuf(" + pointerText(token.eyecatcher + 3)
            + ") owningPid(000000AB) owningTid(1234ABCD) nextGwyTokPtr((nil))",
        text);
    token.nextGwyTokPtr = &token;
    EXPECT_EQ(0, formatGatewayToken(&token, text));
    EXPECT_TRUE(std::string(text).ends_with("nextGwyTokPtr(" + pointerText(&token) + ")"));
}

TEST_F(TokenList, NoTokenIsFormattedAsNullAndNoBufferIsRefused)
{
    char text[512];
    EXPECT_EQ(0, formatGatewayToken(nullptr, text));
    EXPECT_STREQ("GatwayToken(NULL)", text);
    Internal_GatewayToken_t token = {};
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, formatGatewayToken(&token, nullptr));
    EXPECT_EQ(KRVSTAT_NULL_BUFFER, formatGatewayToken(nullptr, nullptr));
    EXPECT_EQ(-103, KRVSTAT_NULL_BUFFER);
}

TEST_F(TokenList, AnEmptyListIsDumpedAsEmpty)
{
    const std::string expected = "Gateway Token List dump\n" + rule + "\nThe Gateway Token List is EMPTY\n" + rule + "\n";
    for (int level : {0, 5}) {
        TraceFile trace(level);
        EXPECT_EQ(1006, dumpGatewayTokens());
        EXPECT_EQ(expected, withoutTraceLines(trace.text()));
        std::vector<TraceLine> lines = trace.lines();
        EXPECT_EQ(level == 0 ? 0u : 1u, linesNumbered(lines, 2016).size());
        EXPECT_EQ(level == 0 ? 0u : 1u, linesNumbered(lines, 2018).size());
    }
}

TEST_F(TokenList, EachTokenIsDumpedWithItsResultSet)
{
    std::vector<Internal_GatewayToken_t*> tokens = {makeToken(1), makeToken(2), makeToken(3)};
    ASSERT_EQ(0, chainAll(tokens));
    // the second one holds an answer, as a copy would: KRVIDSET, 0 queries, terminator
    char* cursor = tokens[1]->resultSetBuf;
    char category[] = "KRVIDSET";
    addPlatformChars(&cursor, category, 8);
    addInteger(&cursor, 0);
    addTerminator(cursor);
    tokens[1]->connRSPtr->cursor = tokens[1]->resultSetBuf;
    tokens[1]->connRSPtr->owner = 0x9999;
    // the third has none
    ASSERT_EQ(0, deleteResultSet(&tokens[2]->connRSPtr));

    char address[2][16];
    for (int i = 0; i < 2; i++)
        std::snprintf(address[i], sizeof address[i], "0x%8.8X: ",
            static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(tokens[static_cast<std::size_t>(i)]->resultSetBuf)));
    const unsigned char terminator[4] = {0x0F, 0x0E, 0x0F, 0x0E};
    const bool little = std::memcmp(tokens[0]->resultSetBuf, terminator, 4) == 0;
    std::string expected = "Gateway Token List dump\n" + rule + "\n";
    expected += "Gateway Token List entry -0001- : " + formatted(tokens[0]) + "\n";
    expected += "Dump of ResultSet(" + pointerText(tokens[0]->connRSPtr) + ") owner(API) buffer(" + pointerText(tokens[0]->resultSetBuf) + ") cursor((nil))\n" + rule + "\n";
    expected += std::string(address[0]) + (little ? "0F0E0F0E" : "0E0F0E0F") + " 00000000 00000000 00000000 : \n" + rule + "\n";
    expected += "Gateway Token List entry -0002- : " + formatted(tokens[1]) + "\n";
    expected += "Dump of ResultSet(" + pointerText(tokens[1]->connRSPtr) + ") owner(USR) buffer(" + pointerText(tokens[1]->resultSetBuf) + ") cursor("
        + pointerText(tokens[1]->resultSetBuf) + ")\n" + rule + "\n";
    expected += std::string(address[1]) + "4B525649 44534554 00000000          : KRVIDSET....\n" + rule + "\n";
    expected += "Gateway Token List entry -0003- : " + formatted(tokens[2]) + "\n";
    expected += "Total number of Gateway Token List entries=3\n" + rule + "\n";
    TraceFile trace(0);
    EXPECT_EQ(0, dumpGatewayTokens());
    EXPECT_EQ(expected, trace.text());
}

TEST_F(TokenList, AResultSetIsDumpedWhileNobodyElseWrites)
{
    std::vector<Internal_GatewayToken_t*> tokens = {makeToken(1)};
    ASSERT_EQ(0, chainAll(tokens));
    TraceFile trace(0);
    const Injected counted =
        withFailing(failingMutexLock, 0, [&] { return dumpResultSetInternal(tokens[0]->connRSPtr); }, 1000);
    EXPECT_EQ(0, counted.result);
    EXPECT_EQ(1, counted.seen) << "the trace's lock is taken once";
}

TEST_F(TokenList, TheDumpShows256AndCallsThatARunaway)
{
    for (std::size_t count : {255u, 256u, 257u}) {
        BareList list(count);
        TraceFile trace(1);
        EXPECT_EQ(count < 256 ? 0 : 1005, dumpGatewayTokens());
        const std::string text = trace.text();
        std::vector<std::string> runaway;
        if (count >= 256)
            runaway.push_back("2017 *EXC* stapi_krv_gwytok.dumpGatewayTokens() Gateway Token List iteration has hit RUNAWAY limit 256.....");
        EXPECT_EQ(runaway, briefOf(parseTrace(text), 2017));
        std::vector<std::string> lines = splitLines(withoutTraceLines(text));
        const std::size_t shown = std::min<std::size_t>(count, 256);
        ASSERT_EQ(shown + 4, lines.size());
        char last[64];
        std::snprintf(last, sizeof last, "Gateway Token List entry -%4.4d- : GatwayToken(", static_cast<int>(shown));
        EXPECT_TRUE(lines[shown + 1].starts_with(last));
        EXPECT_EQ("Total number of Gateway Token List entries=" + std::to_string(shown), lines[shown + 2]);
        EXPECT_EQ(rule, lines[shown + 3]);
    }
}

TEST_F(TokenList, ACircularListIsDumpedUpToTheLimit)
{
    BareList list(2);
    list.tokens[1].nextGwyTokPtr = &list.tokens[0];
    TraceFile trace(0);
    EXPECT_EQ(1005, dumpGatewayTokens());
    EXPECT_EQ(256u + 4, splitLines(trace.text()).size());
}

// ---- The lock -----------------------------------------------------------------------------------------------------

TEST_F(TokenList, EveryOperationOfItsOwnTakesTheListLockOnce)
{
    struct Operation {
        const char* name;
        int (*call)(Internal_GatewayToken_t*);
    };
    const Operation operations[] = {
        {"chain", [](Internal_GatewayToken_t* token) { return chainGatewayToken(token); }},
        {"verify", [](Internal_GatewayToken_t* token) { return verifyGatewayToken(token); }},
        {"dump", [](Internal_GatewayToken_t*) { return dumpGatewayTokens(); }},
        {"delete", [](Internal_GatewayToken_t* token) { return deleteGatewayToken(&token, 1); }},
        {"delete all", [](Internal_GatewayToken_t*) { return deleteGatewayTokens() == 1006 ? 0 : -1; }},
    };
    TraceFile trace(1); // no line but those of the lock is written then
    Internal_GatewayToken_t* token = makeToken();
    for (const Operation& operation : operations) {
        trace.forget();
        Injected unlocked{};
        Injected locked = withFailing(failingMutexLock, EINVAL, [&] {
            unlocked = withFailing(failingMutexUnlock, EPERM, [&] { return operation.call(token); });
            return unlocked.result;
        });
        EXPECT_EQ(0, locked.result) << operation.name << ": what the lock says is ignored";
        EXPECT_EQ(1, locked.hits) << operation.name;
        EXPECT_EQ(1, unlocked.hits) << operation.name;
        EXPECT_EQ((std::vector<std::string>{
                      "3105 *EXC* stapi_krv_lock.requestLock(lockPtr=" + pointerText(&gtlLock) + ") Lock request failed errno=" + std::to_string(EINVAL),
                      "3109 *EXC* stapi_krv_lock.releaseLock(lockPtr=" + pointerText(&gtlLock) + ") Lock release failed errno=" + std::to_string(EPERM)}),
            [&] {
                std::vector<TraceLine> lines = trace.lines();
                std::erase_if(lines, [](const TraceLine& line) { return line.number == 0; });
                return brief(lines);
            }())
            << operation.name;
    }
}

TEST_F(TokenList, FindAndDeletingTheHeadExpectTheLockHeld)
{
    Internal_GatewayToken_t* token = makeToken();
    ASSERT_EQ(0, chainGatewayToken(token));
    KRV_GatewayToken_t handle = token;
    TraceFile trace(0);
    Injected counted = withFailing(failingMutexLock, 0, [&] { return findGatewayToken(token, nullptr); }, 1000);
    EXPECT_EQ(1004, counted.result);
    EXPECT_EQ(0, counted.seen);
    counted = withFailing(failingMutexLock, 0, [&] { return deleteGatewayToken(&handle, 0); }, 1000);
    EXPECT_EQ(0, counted.result);
    EXPECT_EQ(0, counted.seen);
}

TEST_F(TokenList, ThreadsChainVerifyAndDeleteTheirOwnTokens)
{
    constexpr int threads = 8, rounds = 50;
    std::vector<int> failures(threads, 0);
    std::vector<std::thread> workers;
    for (int i = 0; i < threads; i++)
        workers.emplace_back([&failures, i] {
            for (int round = 0; round < rounds; round++) {
                KRV_GatewayToken_t handles[3] = {makeToken(), makeToken(), makeToken()};
                for (KRV_GatewayToken_t handle : handles)
                    failures[static_cast<std::size_t>(i)] += chainGatewayToken(handle) != 0;
                for (KRV_GatewayToken_t handle : handles)
                    failures[static_cast<std::size_t>(i)] += verifyGatewayToken(handle) != 0;
                for (int next : {1, 2, 0})
                    failures[static_cast<std::size_t>(i)] += deleteGatewayToken(&handles[next], 1) != 0;
            }
        });
    for (std::thread& worker : workers) worker.join();
    EXPECT_EQ(std::vector<int>(threads, 0), failures);
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST_F(TokenList, ATokenOfAnotherProcessIsClosedWithoutAWord)
{
    int ends[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    Internal_GatewayToken_t* token = makeToken();
    token->socketDescriptor = ends[0];
    token->owningPid = getpid() + 1;
    ASSERT_EQ(0, chainGatewayToken(token));
    KRV_GatewayToken_t handle = token;
    EXPECT_EQ(0, deleteGatewayToken(&handle, 1));
    EXPECT_EQ(nullptr, gtListHeadPtr);
    char byte = 0;
    EXPECT_EQ(0, recv(ends[1], &byte, 1, MSG_DONTWAIT)) << "the end, and nothing in front of it";
    close(ends[1]);
}

// ---- Tokens whose query could not get the list --------------------------------------------------------------------

namespace {

// A query of the calling thread that gives the list up at its deadline: what it was about is left to the next call that
// gets the list.
int queryWhileTheListIsHeld(KRV_GatewayToken_t token)
{
    std::promise<void> held, done;
    std::thread holder([&] {
        requestLock(&gtlLock);
        held.set_value();
        done.get_future().wait();
        releaseLock(&gtlLock);
    });
    held.get_future().wait();
    KRV_ResultSetToken_t set = nullptr;
    setCallDeadline(20);
    const int rc = getStats(token, &set);
    setCallDeadline(0);
    done.set_value();
    holder.join();
    return rc;
}

// Any call that gets the list.
void getTheList()
{
    Internal_GatewayToken_t stranger = {};
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, interruptGatewayConnection(&stranger));
}

} // namespace

TEST_F(TokenList, LosesATokenOnceAQueryOfItsOwnerWasLate)
{
    std::vector<Internal_GatewayToken_t*> tokens = {makeToken(), makeToken(), makeToken()};
    ASSERT_EQ(0, chainAll(tokens));
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryWhileTheListIsHeld(tokens[1]));
    EXPECT_EQ(tokens, listed());
    getTheList();
    EXPECT_EQ((std::vector<Internal_GatewayToken_t*>{tokens[0], tokens[2]}), listed());
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryWhileTheListIsHeld(tokens[2]));
    getTheList();
    EXPECT_EQ((std::vector<Internal_GatewayToken_t*>{tokens[0]}), listed());
    EXPECT_EQ(tokens[0], gtListTailPtr);
}

TEST_F(TokenList, KeepsATokenThatALateQueryDidNotOwn)
{
    Internal_GatewayToken_t* token = makeToken();
    ASSERT_EQ(0, chainGatewayToken(token));
    int rc = 0;
    std::thread([&] { rc = queryWhileTheListIsHeld(token); }).join();
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, rc);
    getTheList();
    EXPECT_EQ(std::vector<Internal_GatewayToken_t*>{token}, listed()) << "another thread's";
    token->owningPid = getpid() + 1;
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryWhileTheListIsHeld(token));
    getTheList();
    EXPECT_EQ(std::vector<Internal_GatewayToken_t*>{token}, listed()) << "another process's";
}

TEST_F(TokenList, IsLeftAloneByALateQueryAboutNoTokenOfIt)
{
    Internal_GatewayToken_t* token = makeToken();
    ASSERT_EQ(0, chainGatewayToken(token));
    Internal_GatewayToken_t stranger = {};
    std::memset(&stranger, 0xA5, sizeof stranger);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryWhileTheListIsHeld(&stranger));
    getTheList();
    EXPECT_EQ(std::vector<Internal_GatewayToken_t*>{token}, listed());
}

TEST_F(TokenList, IsSearchedToItsEndForATokenOfALateQuery)
{
    std::vector<Internal_GatewayToken_t*> tokens;
    for (int i = 0; i < 300; i++) {
        tokens.push_back(makeToken());
        ASSERT_EQ(0, chainGatewayToken(tokens.back()));
    }
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryWhileTheListIsHeld(tokens.back()));
    getTheList();
    tokens.pop_back();
    EXPECT_EQ(tokens, listed());
    EXPECT_EQ(tokens.back(), gtListTailPtr);
}

TEST_F(TokenList, ThatGoesRoundIsNotSearchedForEverForATokenOfALateQuery)
{
    BareList list(300);
    list.tokens[299].nextGwyTokPtr = &list.tokens[0];
    Internal_GatewayToken_t stranger = {};
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, queryWhileTheListIsHeld(&stranger));
    getTheList();
}
