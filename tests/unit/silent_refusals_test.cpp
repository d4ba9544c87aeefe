// Refusals at trace level 0: each has its code, and nothing is written anywhere.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "failing_calls.h"
#include "krvstats.h"
#include "krvstats_ext.h"
#include "result_sets.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_resultsetbuffer.h"
#include "stapi_krv_socketcomms.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

char folder[] = "/";

int openWithoutHost()
{
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    return openRemoteGatewayConnection(nullptr, 7845, &token, &version);
}

int chainToACorruptList()
{
    Internal_GatewayToken_t head = {};
    Internal_GatewayToken_t added = {};
    gtListHeadPtr = &head;
    gtListTailPtr = nullptr;
    const int rc = chainGatewayToken(&added);
    gtListHeadPtr = nullptr;
    return rc;
}

int dumpWithoutABuffer()
{
    HeldSet set(idSet({}));
    char* const buffer = set.token->rsBuffPtr;
    set.token->rsBuffPtr = nullptr;
    const int rc = dumpResultSet(set.token);
    set.token->rsBuffPtr = buffer;
    return rc;
}

int flowNothing()
{
    char* data = nullptr;
    char name[] = "BASE";
    GatewayRequest header = {};
    ReasonCodes reasons = {};
    return flow(-1, 10, &data, name, &header, &reasons);
}

struct Refusal {
    const char* name;
    int (*call)();
    int expected;
};

const Refusal refusals[] = {
    {"open without a host name", openWithoutHost, -133},
    {"close of nothing", [] { return closeGatewayConnection(nullptr); }, -108},
    {"free of nothing", [] { return freeResultSet(nullptr); }, -125},
    {"dump without a buffer", dumpWithoutABuffer, -110},
    {"interruption of nothing", [] { return interruptGatewayConnection(nullptr); }, -100},
    {"deadline below zero", [] { return setCallDeadline(-1); }, -104},
    {"trace file that is a folder", [] { return setAPITraceFile(folder); }, -130},
    {"chaining of nothing", [] { return chainGatewayToken(nullptr); }, -108},
    {"chaining to a corrupt list", chainToACorruptList, -115},
    {"finding of nothing", [] { return findGatewayToken(nullptr, nullptr); }, 1002},
    {"flow of nothing", flowNothing, -1},
};

} // namespace

TEST(RefusalsAtLevelZero, HaveTheirCodesAndWriteNothing)
{
    ASSERT_EQ(0, setAPITraceLevel(0));
    TraceFile trace(0);
    const CapturedStderr captured;
    for (const Refusal& refusal : refusals) {
        EXPECT_EQ(refusal.expected, refusal.call()) << refusal.name;
        EXPECT_EQ("", trace.text()) << refusal.name;
        EXPECT_EQ("", captured.text()) << refusal.name;
    }
}

TEST(RefusalsAtLevelZero, OfANameBufferThatCannotBeMadeWriteNothing)
{
    ASSERT_EQ(0, setAPITraceLevel(0));
    ASSERT_EQ(0, setAPITraceFile(nullptr));
    std::free(statAPITraceFilename);
    statAPITraceFilename = nullptr;
    const ScratchFolder scratch;
    std::string name = scratch.path("trace");
    const CapturedStderr captured;
    const Injected injected =
        withFailing(failingMalloc, ENOMEM, [&] { return setAPITraceFile(name.data()); }, 0, TRACE_FILENAME_SIZE);
    EXPECT_EQ(1, injected.hits);
    EXPECT_EQ(-111, injected.result);
    EXPECT_EQ("", captured.text());
    EXPECT_EQ(stderr, statAPITraceHandle);
    EXPECT_EQ(0, setAPITraceFile(nullptr)) << "made by the next call";
    EXPECT_STREQ("stderr", statAPITraceFilename);
}
