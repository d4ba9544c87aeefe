// Opening and closing connections: checks in their order, what a token holds, who owns the version text, what is said.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include "failing_calls.h"
#include "gateway_process.h"
#include "krvstats.h"
#include "scripted_peer.h"
#include "stapi_krv_diag.h"
#include "stapi_krv_gwytok.h"
#include "stapi_krv_impl.h"
#include "stapi_krv_resultsetbuffer.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

char localHost[] = "127.0.0.1";
const std::string rule(80, '-');

std::size_t openDescriptors()
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) count++;
    return count;
}

// By how many bytes the memory in use grows when the work is done again and again. What a first time keeps does not count,
// nor what the allocator has at hand. (Sanitizers say 0, and look for what is left themselves.)
template <typename Work>
std::size_t growthThrough(Work work)
{
    constexpr int times = 32;
    work();
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < times; i++) work();
    return mallinfo2().uordblks - before;
}

// What an open is given, so that tests see what it leaves alone.
struct Opened {
    KRV_GatewayToken_t token = reinterpret_cast<KRV_GatewayToken_t>(&token);
    char* version = reinterpret_cast<char*>(&version);

    bool untouched() const
    {
        return token == reinterpret_cast<KRV_GatewayToken_t>(const_cast<KRV_GatewayToken_t*>(&token))
            && version == reinterpret_cast<char*>(const_cast<char**>(&version));
    }
    int open(int port) { return openRemoteGatewayConnection(localHost, port, &token, &version); }
};

std::vector<Internal_GatewayToken_t*> listed()
{
    std::vector<Internal_GatewayToken_t*> tokens;
    for (Internal_GatewayToken_t* token = gtListHeadPtr; token && tokens.size() < 1000; token = token->nextGwyTokPtr) tokens.push_back(token);
    return tokens;
}

std::string formatted(Internal_GatewayToken_t* token)
{
    char text[512];
    EXPECT_EQ(0, formatGatewayToken(token, text));
    return text;
}

std::vector<std::string> briefOf(const TraceFile& trace, int number)
{
    return brief(linesNumbered(trace.lines(), number));
}

// What stands behind the first argument, which may be an address inside the library.
std::vector<std::string> endingsOf(const TraceFile& trace, int number)
{
    std::vector<std::string> found;
    for (const std::string& each : briefOf(trace, number)) found.push_back(each.substr(each.find(", ")));
    return found;
}

} // namespace

// ---- Arguments ----------------------------------------------------------------------------------------------------

TEST(OpenArguments, AreCheckedInOrderBeforeAnythingIsDone)
{
    // Each combination of good and bad; a bad port goes before a missing token, that before a missing version, that
    // before a missing host.
    for (int bad = 1; bad < 16; bad++) {
        Opened out;
        int expected = bad & 8 ? -107 : bad & 4 ? -108 : bad & 2 ? -105 : -133;
        TraceFile trace(4);
        EXPECT_EQ(expected, openRemoteGatewayConnection(bad & 1 ? nullptr : localHost, bad & 8 ? 0 : 1, bad & 4 ? nullptr : &out.token,
                                bad & 2 ? nullptr : &out.version))
            << "combination " << bad;
        EXPECT_TRUE(out.untouched());
        EXPECT_EQ(nullptr, gtListHeadPtr);
        std::vector<TraceLine> lines = trace.lines();
        ASSERT_EQ(3u, lines.size()) << "entry, one exception for the first failure, exit";
        EXPECT_EQ(1001, lines[0].number);
        EXPECT_EQ("*EXC*", lines[1].kind);
        EXPECT_EQ(1142, lines[1].number);
        EXPECT_EQ(1002, lines[2].number);
        EXPECT_TRUE(lines[2].message.ends_with("rc=" + std::to_string(expected)));
    }
    EXPECT_EQ(-107, KRVSTAT_INVALID_PORT);
    EXPECT_EQ(-108, KRVSTAT_NULL_GATEWAY_TOKEN_POINTER);
    EXPECT_EQ(-105, KRVSTAT_NULL_PROTOCOL_VERSION_POINTER);
    EXPECT_EQ(-133, KRVSTAT_NULL_HOSTNAME);
}

TEST(OpenArguments, OfTheLocalOpenAreCheckedLikewise)
{
    for (int bad = 2; bad < 16; bad += 2) {
        Opened out;
        int expected = bad & 8 ? -107 : bad & 4 ? -108 : -105;
        EXPECT_EQ(expected, openGatewayConnection(bad & 8 ? 65536 : 1, bad & 4 ? nullptr : &out.token, bad & 2 ? nullptr : &out.version));
        EXPECT_TRUE(out.untouched());
    }
}

TEST(OpenArguments, PortsFromOneTo65535PassTheCheck)
{
    for (int port : {0, 65536, -1, INT_MIN, INT_MAX}) {
        Opened out;
        EXPECT_EQ(KRVSTAT_INVALID_PORT, out.open(port)) << port;
    }
    char noSuchHost[] = "256.256.256.256.0xinvalid.........";
    for (int port : {1, 65535}) {
        Opened out;
        EXPECT_NE(KRVSTAT_INVALID_PORT, openRemoteGatewayConnection(noSuchHost, port, &out.token, &out.version)) << port;
        EXPECT_EQ(KRVSTAT_HOST_NOT_RESOLVED, openRemoteGatewayConnection(noSuchHost, port, &out.token, &out.version)) << port;
        EXPECT_TRUE(out.untouched());
    }
}

TEST(OpenArguments, TheEntryLineNamesThem)
{
    TraceFile trace(3);
    Opened out;
    EXPECT_EQ(-107, openGatewayConnection(0, &out.token, &out.version));
    const std::string pointers = "&gwTokPtr=0x" + pointerText(&out.token) + ", &protoColVersion=0x" + pointerText(&out.version);
    std::vector<TraceLine> lines = trace.lines();
    ASSERT_EQ(5u, lines.size());
    EXPECT_EQ("1000 ENTRY API.openGatewayConnection(port=0, " + pointers, brief(lines)[0]);
    EXPECT_EQ("1001 ENTRY API.openRemoteGatewayConnection(hostname=127.0.0.1, port=0, " + pointers, brief(lines)[1]);
    EXPECT_EQ(1142, lines[2].number);
    EXPECT_EQ(1002, lines[3].number);
    EXPECT_EQ(1003, lines[4].number);
    EXPECT_EQ("EXIT", lines[4].kind);
    EXPECT_TRUE(lines[4].message.starts_with("API.openGatewayConnection(") && lines[4].message.ends_with("rc=-107"));

    trace.forget();
    EXPECT_EQ(-133, openRemoteGatewayConnection(nullptr, 1, &out.token, &out.version));
    EXPECT_EQ("1001 ENTRY API.openRemoteGatewayConnection(hostname=NULL, port=1, " + pointers, brief(trace.lines())[0]);
}

// ---- Open ---------------------------------------------------------------------------------------------------------

TEST(Open, FillsTheTokenAndPutsItOnTheList)
{
    GatewayProcess gateway;
    Opened out;
    ASSERT_EQ(KRVSTAT_OK, out.open(gateway.port()));
    EXPECT_EQ((std::vector<Internal_GatewayToken_t*>{out.token}), listed());
    EXPECT_EQ(out.token, gtListTailPtr);
    EXPECT_EQ(0, std::memcmp("KRVGWTOK", out.token->eyecatcher, 8));
    EXPECT_EQ(static_cast<std::uint32_t>(gateway.port()), out.token->portNumber);
    EXPECT_EQ(1, out.token->connStatus);
    EXPECT_GE(out.token->socketDescriptor, 0);
    EXPECT_EQ(getpid(), out.token->owningPid);
    EXPECT_TRUE(pthread_equal(pthread_self(), out.token->owningTid));
    EXPECT_EQ(nullptr, out.token->nextGwyTokPtr);
    ASSERT_NE(nullptr, out.token->resultSetBuf);
    EXPECT_EQ(32768, out.token->resultSetBufLen);
    const std::uint32_t terminator = 0x0E0F0E0F;
    EXPECT_EQ(0, std::memcmp(&terminator, out.token->resultSetBuf, 4)) << "an empty buffer";

    Internal_ResultSetToken_t* set = out.token->connRSPtr;
    ASSERT_NE(nullptr, set);
    EXPECT_EQ(0, std::memcmp("KRVRSROB", set->eyecatcher, 8));
    EXPECT_EQ(0x8888, set->owner);
    EXPECT_EQ(out.token->resultSetBuf, set->rsBuffPtr);
    EXPECT_EQ(32768, set->rsBuffLen);
    EXPECT_EQ(nullptr, set->queryString);
    EXPECT_EQ(getpid(), set->owningPid);
    KRV_IdData_t id = {};
    KRV_StatData_t stat = {};
    char* text = nullptr;
    KRV_ResultSetToken_t copy = nullptr;
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getFirstId(set, &id)) << "before any query";
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getNextStat(set, &stat));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, getIdQuery(set, &text));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, copyResultSet(set, &copy));
    EXPECT_EQ(KRVSTAT_WRONG_RESULT_SET_CONTENT, dumpResultSet(set));
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out.token));
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
    EXPECT_EQ(0, gateway.stop());
}

TEST(Open, TheLocalOneIsTheRemoteOneToTheLoopback)
{
    GatewayProcess gateway;
    Opened out;
    TraceFile trace(3);
    ASSERT_EQ(KRVSTAT_OK, openGatewayConnection(gateway.port(), &out.token, &out.version));
    EXPECT_STREQ("1.1.0", out.version);
    EXPECT_NE(std::string::npos, trace.text().find("API.openRemoteGatewayConnection(hostname=127.0.0.1, port="));
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out.token));
}

TEST(Open, TheVersionTextIsSharedWithTheTokenAndFreedWithIt)
{
    GatewayProcess gateway;
    Opened out;
    TraceFile trace(4);
    ASSERT_EQ(KRVSTAT_OK, out.open(gateway.port()));
    EXPECT_STREQ("1.1.0", out.version);
    EXPECT_EQ(out.version, out.token->protocolVersion) << "the very block";
    std::vector<std::string> events = briefOf(trace, 1142);
    EXPECT_EQ((std::vector<std::string>{"1142 EVENT API.openRemoteGatewayConnection(&protoColVersion=0x" + pointerText(&out.version)
                  + ") created String for proto@0x" + pointerText(out.version)}),
        events);
    const std::string version = pointerText(out.version);
    trace.forget();
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out.token));
    EXPECT_EQ((std::vector<std::string>{"2044 DEBUG stapi_krv_gwytok.deleteGatewayToken About to free protocolVersion String (" + version + ")"}),
        briefOf(trace, 2044));
}

TEST(Open, AnEmptyVersionTextIsOneToo)
{
    GatewayAnswers answers;
    answers.version = "";
    ScriptedPeer peer({opening(answers) + farewell()});
    Opened out;
    ASSERT_EQ(KRVSTAT_OK, out.open(peer.port()));
    EXPECT_STREQ("", out.version);
    EXPECT_EQ(out.version, out.token->protocolVersion);
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out.token));
    peer.finish();
    EXPECT_EQ("", peer.problem());
}

TEST(Open, AVersionTextOf63CharactersFitsAndOneOf64IsRefused)
{
    for (std::size_t length : {63u, 64u}) {
        GatewayAnswers answers;
        answers.version = std::string(length, 'v');
        ScriptedPeer peer({opening(answers) + farewell()});
        Opened out;
        EXPECT_EQ(length == 63 ? KRVSTAT_OK : KRVSTAT_GATEWAY_PROTOCOL_ERROR, out.open(peer.port()));
        EXPECT_EQ(length == 63, !out.untouched());
        if (length == 63) {
            EXPECT_EQ(answers.version, out.version);
            EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out.token));
        }
        EXPECT_EQ(nullptr, gtListHeadPtr);
        peer.finish();
        EXPECT_EQ("", peer.problem()) << "the farewell is said in both cases";
    }
}

TEST(Open, IsToldStepByStep)
{
    GatewayProcess gateway;
    Opened out;
    TraceFile trace(4);
    ASSERT_EQ(KRVSTAT_OK, out.open(gateway.port()));
    const std::string token = pointerText(out.token), port = std::to_string(gateway.port());
    const std::string recordSize = std::to_string(sizeof(Internal_GatewayToken_t));
    EXPECT_EQ((std::vector<std::string>{"2038 DEBUG stapi_krv_gwytok.createGatewayToken Called malloc for " + recordSize + " bytes. rc=" + token}), briefOf(trace, 2038));
    std::vector<TraceLine> buffer = linesNumbered(trace.lines(), 2040);
    ASSERT_EQ(1u, buffer.size());
    EXPECT_NE(std::string::npos, buffer[0].message.find("32768"));
    EXPECT_NE(std::string::npos, buffer[0].message.find(pointerText(out.token->resultSetBuf)));
    EXPECT_EQ((std::vector<std::string>{"2002 ENTRY stapi_krv_gwytok.openStatsSocket(gwTokPtr=" + token + ") Attempting to connect to 127.0.0.1:" + port}), briefOf(trace, 2002));
    EXPECT_EQ((std::vector<std::string>{"2003 EVENT stapi_krv_gwytok.openStatsSocket() Connected to Gateway 127.0.0.1:" + port + " - socketDescriptor("
                  + std::to_string(out.token->socketDescriptor) + ")"}),
        briefOf(trace, 2003));
    EXPECT_EQ((std::vector<std::string>{"2005 EXIT stapi_krv_gwytok.openStatsSocket(gwTokPtr=" + token + ", hostname=127.0.0.1, port=" + port + ") rc=0"}), briefOf(trace, 2005));
    EXPECT_EQ((std::vector<std::string>{"2033 EVENT stapi_krv_gwytok.createGatewayToken(&gwTokPtr=" + pointerText(&out.token) + ") " + formatted(out.token)}), briefOf(trace, 2033));
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out.token));
}

TEST(Open, NobodyListening)
{
    int port = unusedPort();
    Opened out;
    TraceFile trace(4);
    std::size_t before = openDescriptors();
    EXPECT_EQ(KRVSTAT_CONNECTION_REFUSED, out.open(port));
    EXPECT_EQ(-135, KRVSTAT_CONNECTION_REFUSED);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(before, openDescriptors());
    EXPECT_EQ((std::vector<std::string>{"2004 *EXC* stapi_krv_gwytok.openStatsSocket() Failed to connect to Gateway 127.0.0.1:"
                  + std::to_string(port) + ", connect rc = -104"}),
        briefOf(trace, 2004));
    EXPECT_EQ(1u, linesNumbered(trace.lines(), 2011).size()) << "the token is removed again";
    std::vector<TraceLine> exit = linesNumbered(trace.lines(), 2005);
    ASSERT_EQ(1u, exit.size());
    EXPECT_TRUE(exit[0].message.ends_with("rc=-135"));
}

TEST(Open, EachFailureOfTheExchangeHasItsCodeAndLeavesNothing)
{
    struct Case {
        const char* misbehaviour;
        int expected;
    };
    for (const Case& each : {
             Case{"close-before@handshake", -118}, Case{"bad-eyecatcher@handshake", -118}, Case{"header-rc=3@handshake", -118},
             Case{"refuse-auth=5@auth1", -118}, Case{"close-before@auth1", -118}, Case{"header-rc==-101@auth2", -132},
             Case{"header-rc==-105@auth2", -136}, Case{"header-rc=7@auth2", -118}, Case{"close-before@init", -122}, Case{"refuse-admin=7@init", -122},
             Case{"header-rc==-4@init", -122}, Case{"header-rc==-1@init", -102}, Case{"header-rc=61444@init", -122}, Case{"exception@attribute", -122}, Case{"reset-before@attribute", -122},
             Case{"header-rc==-1@attribute", -102}, Case{"version-length==-1@attribute", -122},
         }) {
        GatewayProcess gateway({each.misbehaviour});
        Opened out;
        std::size_t before = openDescriptors();
        TraceFile trace(2);
        EXPECT_EQ(each.expected, out.open(gateway.port())) << each.misbehaviour;
        EXPECT_TRUE(out.untouched()) << each.misbehaviour;
        EXPECT_EQ(nullptr, gtListHeadPtr) << each.misbehaviour;
        bool connected = std::strstr(each.misbehaviour, "@init") || std::strstr(each.misbehaviour, "@attribute");
        std::vector<TraceLine> removal = linesNumbered(trace.lines(), 2042);
        ASSERT_EQ(connected ? 1u : 0u, removal.size()) << each.misbehaviour;
        if (connected) {
            EXPECT_EQ("EVENT", removal[0].kind);
            EXPECT_TRUE(removal[0].message.ends_with(" due to comms failure " + std::to_string(each.expected))) << removal[0].message;
        }
        EXPECT_EQ(before + 1, openDescriptors()) << "the trace file alone";
        EXPECT_EQ(0, gateway.stop());
    }
}

TEST(Open, ThatFindsNoHostClosesNothing)
{
    ASSERT_NE(-1, fcntl(STDIN_FILENO, F_GETFD)) << "descriptor 0 is what a token without a socket must not be taken to hold";
    const std::size_t before = openDescriptors();
    char noSuchHost[] = "256.256.256.256.0xinvalid.........";
    Opened out;
    EXPECT_EQ(KRVSTAT_HOST_NOT_RESOLVED, openRemoteGatewayConnection(noSuchHost, 1, &out.token, &out.version));
    EXPECT_NE(-1, fcntl(STDIN_FILENO, F_GETFD));
    EXPECT_EQ(before, openDescriptors());
}

TEST(Open, ThatFailsSaysThatItsTokenIsDeleted)
{
    const TraceFile trace(3);
    Opened out;
    EXPECT_EQ(KRVSTAT_CONNECTION_REFUSED, out.open(unusedPort()));
    EXPECT_EQ((std::vector<std::string>{", lockRequired=1)"}), endingsOf(trace, 2009));
    EXPECT_EQ((std::vector<std::string>{", lockRequired=1) rc=0"}), endingsOf(trace, 2012));
}

TEST(Open, SaysHowManyBytesCouldNotBeHad)
{
    const TraceFile trace(1);
    const std::size_t token = sizeof(Internal_GatewayToken_t);
    Opened out;
    const Injected withoutToken = withFailing(failingMalloc, ENOMEM, [&] { return out.open(1); }, 0, token);
    EXPECT_EQ(1, withoutToken.hits);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, withoutToken.result);
    EXPECT_EQ((std::vector<std::string>{"2039 *EXC* stapi_krv_gwytok.createGatewayToken Failed to allocate "
                  + std::to_string(token) + " bytes"}),
        briefOf(trace, 2039));
    const Injected withoutBuffer = withFailing(failingMalloc, ENOMEM, [&] { return out.open(1); }, 0, 32768);
    EXPECT_EQ(1, withoutBuffer.hits);
    EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, withoutBuffer.result);
    EXPECT_EQ((std::vector<std::string>{"2041 *EXC* stapi_krv_gwytok.createGatewayToken Failed to allocate 32768 bytes."}),
        briefOf(trace, 2041));
}

TEST(Open, LeavesNoMemoryBehindWhereTheNextBlockCannotBeHad)
{
    char* version = nullptr;
    ASSERT_EQ(KRVSTAT_OK, getStatsAPIVersion(&version));
    for (int number : {0, 1, 2, 4}) { // token, result set, query text, buffer; number 3, the version, may be missing
        Opened out;
        EXPECT_EQ(0u, growthThrough([&] {
            const Injected injected = withFailing(failingMalloc, ENOMEM, [&] { return out.open(1); }, number);
            EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, injected.result) << number;
            EXPECT_EQ(1, injected.hits) << number;
        })) << number;
    }
}

TEST(Open, EachFailingAllocationEndsItWithNothingLeftBehind)
{
    GatewayProcess gateway;
    std::size_t before = openDescriptors();
    bool failed = true;
    int allocation = 0;
    for (; failed && allocation < 500; allocation++) {
        Opened out;
        Injected injected = withFailing(failingMalloc, ENOMEM, [&] { return out.open(gateway.port()); }, allocation);
        failed = injected.hits == 1;
        if (injected.result == KRVSTAT_OK) {
            EXPECT_EQ(out.version, out.token->protocolVersion);
            EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out.token));
        } else {
            EXPECT_TRUE(out.untouched()) << "allocation " << allocation;
            EXPECT_LT(injected.result, 0);
        }
        EXPECT_EQ(nullptr, gtListHeadPtr) << "allocation " << allocation;
        EXPECT_EQ(before, openDescriptors()) << "allocation " << allocation;
    }
    EXPECT_FALSE(failed);
    EXPECT_GT(allocation, 10);
    EXPECT_EQ(0, gateway.stop());
}

TEST(Open, ACorruptListRefusesANewConnection)
{
    Internal_GatewayToken_t head = {};
    char* version = nullptr;
    ASSERT_EQ(0, getStatsAPIVersion(&version));
    gtListHeadPtr = &head;
    gtListTailPtr = nullptr;
    Opened out;
    TraceFile trace(1);
    std::size_t before = openDescriptors();
    EXPECT_EQ(KRVSTAT_GTL_CORRUPT, out.open(unusedPort()));
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(nullptr, head.nextGwyTokPtr);
    EXPECT_EQ(1u, linesNumbered(trace.lines(), 2020).size());
    EXPECT_EQ(0u, growthThrough([&] { EXPECT_EQ(KRVSTAT_GTL_CORRUPT, out.open(unusedPort())); }));
    EXPECT_EQ(before, openDescriptors());
    gtListHeadPtr = nullptr;
}

TEST(Open, ManyConnectionsAtOnceAndClosedInAnyOrder)
{
    GatewayProcess gateway;
    std::vector<Opened> out(5);
    for (Opened& each : out) ASSERT_EQ(KRVSTAT_OK, each.open(gateway.port()));
    EXPECT_EQ(5u, listed().size());
    for (std::size_t next : {2u, 0u, 4u, 1u, 3u}) {
        EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out[next].token));
        std::vector<Internal_GatewayToken_t*> left = listed();
        EXPECT_EQ(0, std::count(left.begin(), left.end(), out[next].token));
    }
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
    EXPECT_EQ(0, gateway.stop());
}

// ---- Close --------------------------------------------------------------------------------------------------------

TEST(Close, RefusesNothing)
{
    TraceFile trace(1);
    KRV_GatewayToken_t none = nullptr;
    ASSERT_EQ(0, setAPITraceLevel(5));
    trace.forget();
    EXPECT_EQ(-108, closeGatewayConnection(nullptr));
    EXPECT_EQ(-100, closeGatewayConnection(&none));
    std::vector<int> numbers;
    for (const TraceLine& line : trace.lines()) numbers.push_back(line.number);
    EXPECT_EQ((std::vector<int>{1004, 1005, 1006, 1004, 1005, 1006}), numbers) << "and goes no further";

    ASSERT_EQ(0, setAPITraceLevel(1));
    trace.forget();
    EXPECT_EQ(-108, closeGatewayConnection(nullptr));
    EXPECT_EQ(-100, closeGatewayConnection(&none));
    EXPECT_EQ((std::vector<std::string>{"1005 *EXC* API.closeGatewayConnection(&gwTokPtr=(nil)) Null gateway token Pointer",
                  "1005 *EXC* API.closeGatewayConnection(gwTokPtr=(nil)) Null gateway token"}),
        brief(trace.lines()));
}

TEST(Close, SaysGoodbyeAndLeavesTheHandle)
{
    GatewayProcess gateway;
    Opened out;
    ASSERT_EQ(KRVSTAT_OK, out.open(gateway.port()));
    std::size_t before = openDescriptors();
    KRV_GatewayToken_t handle = out.token;
    TraceFile trace(2);
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out.token));
    EXPECT_EQ(handle, out.token) << "the caller's handle is not cleared";
    EXPECT_EQ(before, openDescriptors()) << "a socket less, the trace file more";
    EXPECT_EQ((std::vector<std::string>{"1133 EVENT API.closeGatewayConnection Closed Gateway connection for token " + pointerText(handle)}), briefOf(trace, 1133));
    EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&out.token)) << "closed already";
    EXPECT_TRUE(gateway.awaitTranscript("C>G close "));
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
    EXPECT_EQ(0, gateway.stop());
}

TEST(Close, ByAnyThreadOfTheProcess)
{
    GatewayProcess gateway;
    Opened out;
    ASSERT_EQ(KRVSTAT_OK, out.open(gateway.port()));
    int result = -1;
    std::thread other([&] { result = closeGatewayConnection(&out.token); });
    other.join();
    EXPECT_EQ(KRVSTAT_OK, result);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(0, gateway.stop());
}

TEST(Close, AGatewayThatIsGoneIsNoError)
{
    GatewayProcess gateway({"close-after@attribute"});
    Opened out;
    ASSERT_EQ(KRVSTAT_OK, out.open(gateway.port()));
    EXPECT_TRUE(gateway.awaitTranscript("--- - closed"));
    EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&out.token));
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST(CloseAll, WithNoneOpenIsFine)
{
    TraceFile trace(3);
    EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    EXPECT_EQ((std::vector<std::string>{"1134 EVENT API.closeAllGatewayConnections Closed all Gateway connections"}), briefOf(trace, 1134));
    EXPECT_EQ(1007, trace.lines().front().number);
    EXPECT_EQ(1008, trace.lines().back().number);
    EXPECT_TRUE(trace.lines().back().message.ends_with("rc=0"));
}

TEST(CloseAll, ClosesEveryConnection)
{
    GatewayProcess gateway;
    std::size_t before = openDescriptors();
    std::vector<Opened> out(4);
    for (Opened& each : out) ASSERT_EQ(KRVSTAT_OK, each.open(gateway.port()));
    EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(before, openDescriptors());
    for (Opened& each : out) EXPECT_EQ(KRVSTAT_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&each.token));
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
    EXPECT_EQ(0, gateway.stop());
}

TEST(CloseAll, IsToldConnectionByConnection)
{
    GatewayProcess gateway;
    std::vector<Opened> out(2);
    for (Opened& each : out) ASSERT_EQ(KRVSTAT_OK, each.open(gateway.port()));
    const TraceFile trace(3);
    EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    EXPECT_EQ((std::vector<std::string>{", lockRequired=0)", ", lockRequired=0)"}), endingsOf(trace, 2009));
    EXPECT_EQ((std::vector<std::string>{", lockRequired=0) rc=0", ", lockRequired=0) rc=0"}), endingsOf(trace, 2012));
}

// Puts so many tokens on the list, as other connections would.
void chainTokens(int count)
{
    for (int i = 0; i < count; i++) {
        auto* token = static_cast<Internal_GatewayToken_t*>(std::calloc(1, sizeof(Internal_GatewayToken_t)));
        token->socketDescriptor = -1;
        ASSERT_EQ(0, chainGatewayToken(token));
    }
}

TEST(Open, ThatFailsLeavesNothingBehindHoweverManyAreOpen)
{
    char* version = nullptr;
    ASSERT_EQ(0, getStatsAPIVersion(&version));
    GatewayProcess gateway({"close-before@init"});
    const int closedPort = unusedPort();
    const std::size_t before = openDescriptors();
    int open = 0;
    for (int count : {255, 256, 257, 258, 300}) {
        chainTokens(count - open);
        open = count;
        Internal_GatewayToken_t* const last = gtListTailPtr;
        Opened out;
        EXPECT_EQ(KRVSTAT_CONNECTION_REFUSED, out.open(closedPort)) << count;
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, out.open(gateway.port())) << count;
        EXPECT_TRUE(out.untouched()) << count;
        EXPECT_EQ(static_cast<std::size_t>(count), listed().size());
        EXPECT_EQ(last, gtListTailPtr) << count;
        EXPECT_EQ(before, openDescriptors()) << count;
    }
    EXPECT_EQ(KRVSTAT_GTL_CORRUPT, closeAllGatewayConnections());
    EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    EXPECT_EQ(0, gateway.stop());
}

TEST(CloseAll, ALimitOf256IsReportedAsACorruptList)
{
    char* version = nullptr;
    ASSERT_EQ(0, getStatsAPIVersion(&version));
    for (int count : {255, 256, 257}) {
        chainTokens(count);
        EXPECT_EQ(count < 256 ? KRVSTAT_OK : KRVSTAT_GTL_CORRUPT, closeAllGatewayConnections());
        EXPECT_EQ(count == 257 ? 1u : 0u, listed().size());
        EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    }
}

// ---- State dump ---------------------------------------------------------------------------------------------------

TEST(DumpState, WithNoneOpenAtAnyLevel)
{
    for (int level : {0, 1, 2}) {
        TraceFile trace(level);
        EXPECT_EQ(KRVSTAT_OK, dumpState());
        EXPECT_EQ("krvstats state dump: API Version=1_1_0_1 Trace Level=" + std::to_string(level) + " statAPITraceFile=" + trace.path()
                + "\nGateway Token List dump\n" + rule + "\nThe Gateway Token List is EMPTY\n" + rule + "\n",
            trace.text());
    }
}

TEST(DumpState, ShowsEachConnectionWithItsResultSet)
{
    GatewayProcess gateway;
    std::vector<Opened> out(2);
    for (Opened& each : out) ASSERT_EQ(KRVSTAT_OK, each.open(gateway.port()));
    KRV_ResultSetToken_t set = nullptr;
    ASSERT_EQ(KRVSTAT_OK, getResourceGroupIds(out[1].token, &set));
    TraceFile trace(0);
    EXPECT_EQ(KRVSTAT_OK, dumpState());
    std::vector<std::string> lines = splitLines(trace.text());
    ASSERT_GE(lines.size(), 14u);
    EXPECT_EQ("krvstats state dump: API Version=1_1_0_1 Trace Level=0 statAPITraceFile=" + trace.path(), lines[0]);
    EXPECT_EQ("Gateway Token List dump", lines[1]);
    EXPECT_EQ(rule, lines[2]);
    EXPECT_EQ("Gateway Token List entry -0001- : " + formatted(out[0].token), lines[3]);
    EXPECT_EQ("Dump of ResultSet(" + pointerText(out[0].token->connRSPtr) + ") owner(API) buffer(" + pointerText(out[0].token->resultSetBuf)
            + ") cursor(" + pointerText(out[0].token->connRSPtr->cursor) + ")",
        lines[4]);
    EXPECT_EQ(rule, lines[5]);
    EXPECT_TRUE(isDumpLine(lines[6])) << "the terminator at the start fills a line";
    EXPECT_EQ(rule, lines[7]);
    EXPECT_EQ("Gateway Token List entry -0002- : " + formatted(out[1].token), lines[8]);
    EXPECT_EQ("Dump of ResultSet(" + pointerText(set) + ") owner(API) buffer(" + pointerText(set->rsBuffPtr) + ") cursor(" + pointerText(set->cursor) + ")", lines[9]);
    EXPECT_EQ(rule, lines[10]);
    EXPECT_NE(std::string::npos, lines[11].find("4B525649 44534554")) << "KRVIDSET";
    EXPECT_EQ("Total number of Gateway Token List entries=2", lines[lines.size() - 2]);
    EXPECT_EQ(rule, lines.back());
    EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
}

TEST(DumpState, WritesItsEntryAndExit)
{
    TraceFile trace(3);
    EXPECT_EQ(KRVSTAT_OK, dumpState());
    std::vector<TraceLine> lines = trace.lines();
    EXPECT_EQ(1106, lines.front().number);
    EXPECT_EQ("ENTRY", lines.front().kind);
    EXPECT_EQ("krvstats state dump: API Version=1_1_0_1 Trace Level=3 statAPITraceFile=" + trace.path(), lines[1].text);
    EXPECT_EQ(1107, lines.back().number);
    EXPECT_EQ("EXIT", lines.back().kind);
    EXPECT_TRUE(lines.back().message.ends_with("rc=0")) << "the result of the list's dump is not returned";
}

TEST(DumpState, ItsFirstLineAndTheListAreWrittenWithoutTraceLock)
{
    TraceFile trace(0);
    Injected counted = withFailing(failingMutexLock, 0, [] { return dumpState(); }, 1000);
    EXPECT_EQ(KRVSTAT_OK, counted.result);
    EXPECT_LE(counted.seen, 2) << "the list's lock, and one look at the destination's name";
}
