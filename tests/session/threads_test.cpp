// An agent with many threads: healthy connections keep their pace while others hang, and everything that one thread may
// do to another's connection is done at the same time.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <random>

#include <csignal>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "gateway_process.h"
#include "hanging_gateways.h"
#include "scripted_peer.h"
#include "trace_capture.h"

using namespace krvtest;

namespace {

char localHost[] = "127.0.0.1";

// Small answers: the trace of long ones would keep the threads waiting for each other.
const char* const threeStatistics = "protocol: \"1.1.0\"\n"
                                    "groups:\n"
                                    "  - id: alpha\n"
                                    "    statistics:\n"
                                    "      - {id: a, value: \"1\"}\n"
                                    "      - {id: b, value: \"2\"}\n"
                                    "      - {id: c, value: \"3\"}\n";

double stressSeconds()
{
    const char* named = std::getenv("KRVSTATS_STRESS_SECONDS");
    return named && *named ? std::atof(named) : 3;
}

// Thirty threads, each with a connection of its own and a number of queries to get through.
struct Pace {
    double ms;        // all together
    double slowestMs; // of any single query
};

Pace pace(int port, int queries)
{
    std::vector<std::thread> threads;
    std::mutex mutex;
    Pace measured = {0, 0};
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < 30; ++i) {
        threads.emplace_back([&] {
            Connection connection;
            double slowest = 0;
            EXPECT_EQ(0, connection.open(port));
            for (int done = 0; done < queries; ++done) {
                const Timed query = timed([&] { return connection.query(); });
                EXPECT_EQ(0, query.rc);
                slowest = std::max(slowest, query.ms);
            }
            EXPECT_EQ(0, connection.close());
            const std::lock_guard held(mutex);
            measured.slowestMs = std::max(measured.slowestMs, slowest);
        });
    }
    for (std::thread& each : threads) each.join();
    measured.ms = millisecondsSince(start);
    return measured;
}

} // namespace

TEST(HealthyConnections, KeepTheirPaceWhileFiveHangAndOneIsBeingClosed)
{
    Caller hanging[5], closer;
    GatewayProcess silent({"no-answer@get-stats"});
    GatewayProcess silentAtClose({"no-answer@close"});
    GatewayProcess gateway;
    constexpr int queries = 40;
    const Pace alone = pace(gateway.port(), queries);

    Connection connections[5], closing;
    std::vector<std::future<Timed>> waiting;
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(0, resultOf(hanging[i].start([&, i] { return connections[i].open(silent.port()); })).rc);
        waiting.push_back(hanging[i].start([&, i] { return connections[i].query(); }));
    }
    for (int i = 1; i <= 5; ++i) ASSERT_TRUE(silent.awaitTranscript(std::to_string(i) + " *** get-stats"));
    ASSERT_EQ(0, resultOf(closer.start([&] { return closing.open(silentAtClose.port()); })).rc);
    waiting.push_back(closer.start([&] { return closing.close(); }));
    ASSERT_TRUE(silentAtClose.awaitTranscript("*** close"));

    const Pace beside = pace(gateway.port(), queries);
    std::printf("    thirty connections, %d queries each: alone %.0f ms (slowest query %.1f), beside six that hang %.0f ms (%.1f)\n", queries, alone.ms,
        alone.slowestMs, beside.ms, beside.slowestMs);
    RecordProperty("alone_ms", static_cast<int>(alone.ms));
    RecordProperty("beside_ms", static_cast<int>(beside.ms));
    EXPECT_LT(beside.ms, 3 * alone.ms + generousMs);
    EXPECT_LT(beside.slowestMs, 3 * alone.slowestMs + generousMs);
    for (const auto& call : waiting) EXPECT_FALSE(isBack(call)) << "they hung all the while";

    EXPECT_EQ(KRVSTAT_OK, closeAllGatewayConnections());
    silentAtClose.stop();
    for (int i = 0; i < 5; ++i) EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, resultOf(std::move(waiting[static_cast<std::size_t>(i)])).rc);
    EXPECT_EQ(KRVSTAT_OK, resultOf(std::move(waiting[5])).rc);
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(0, gateway.stop());
}

// ---- The agent of docs/threads.md ---------------------------------------------------------------------------------

TEST(AgentOfTheDocument, ReportsEachGatewayAndStopsWhenToldTo)
{
    GatewayProcess gateway({}, threeStatistics);
    GatewayProcess silent({"no-answer@get-stats"});
    const ScratchFolder scratch;
    const std::string healthy = "127.0.0.1:" + std::to_string(gateway.port());
    const std::string hanging = "127.0.0.1:" + std::to_string(silent.port());
    const std::string closed = "127.0.0.1:" + std::to_string(unusedPort());
    std::vector<std::string> words = {KRVSTATS_AGENT_PROGRAM, healthy, hanging, closed, healthy};
    if (*KRVSTATS_TEST_LAUNCHER) words.insert(words.begin(), KRVSTATS_TEST_LAUNCHER);
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, scratch.path("output").c_str(), O_WRONLY | O_CREAT, 0600);
    pid_t agent = 0;
    ASSERT_EQ(0, posix_spawnp(&agent, words[0].c_str(), &actions, nullptr, arguments.data(), environ));
    posix_spawn_file_actions_destroy(&actions);

    // Four gateways, four lines: the one that hangs is given up after two seconds.
    EXPECT_TRUE(soon([&] { return splitLines(readWholeFile(scratch.path("output"))).size() >= 4; }));
    std::vector<std::string> lines = splitLines(readWholeFile(scratch.path("output")));
    std::sort(lines.begin(), lines.end());
    std::vector<std::string> expected = {healthy + ": 3 statistics", healthy + ": 3 statistics",
        closed + ": open: Nobody listens at that address and port. (KRVSTAT_CONNECTION_REFUSED)",
        hanging + ": query: " + getReturnCodeText(KRVSTAT_GATEWAY_PROTOCOL_ERROR) + " (KRVSTAT_GATEWAY_PROTOCOL_ERROR)"};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, lines);

    EXPECT_EQ(0, kill(agent, SIGTERM));
    int status = -1;
    EXPECT_TRUE(soon([&] { return waitpid(agent, &status, WNOHANG) == agent; }));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_TRUE(gateway.awaitTranscript("C>G close "));
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
}

// ---- Everything at once -------------------------------------------------------------------------------------------

namespace {

struct Counts {
    std::atomic<long> opens{0}, queries{0}, walks{0}, lost{0}, closed{0}, interrupted{0}, late{0}, dumps{0}, switches{0};
};

// A connection that others may close or interrupt. Who takes the handle out may do one of the two, once; the owner
// goes on with its queries until one tells that the connection is gone.
using Shared = std::atomic<KRV_GatewayToken_t>;

struct Stress {
    int port;
    int silentPort;
    std::atomic<bool> ended{false};
    Shared shared[8] = {};
    Counts counts;
};

// Owns a connection that nobody else touches but to dump it: every call must succeed.
void ownPrivately(Stress& stress, unsigned seed)
{
    std::mt19937 random(seed);
    while (!stress.ended) {
        Connection connection;
        setCallDeadline(random() % 2 == 0 ? 0 : 60000);
        ASSERT_EQ(0, connection.open(stress.port)) << "seed " << seed;
        ++stress.counts.opens;
        KRV_ResultSetToken_t copy = nullptr;
        for (auto query = random() % 20; query > 0; --query) {
            KRV_ResultSetToken_t set = nullptr;
            ASSERT_EQ(0, getStats(connection.token, &set)) << "seed " << seed;
            ++stress.counts.queries;
            KRV_StatData_t statistic = {};
            int found = 0;
            for (int rc = getFirstStat(set, &statistic); rc == 0; rc = getNextStat(set, &statistic)) ++found;
            ASSERT_EQ(3, found) << "seed " << seed;
            ++stress.counts.walks;
            if (!copy) {
                ASSERT_EQ(0, copyResultSet(set, &copy));
            }
            if (random() % 8 == 0) {
                ASSERT_EQ(0, dumpResultSet(set));
            }
        }
        ASSERT_EQ(0, connection.close()) << "seed " << seed;
        if (copy) {
            ASSERT_EQ(0, freeResultSet(&copy));
        }
    }
}

// Owns a connection that others close and interrupt at any moment.
void ownInPublic(Stress& stress, Shared& handle, unsigned seed)
{
    std::mt19937 random(seed);
    while (!stress.ended) {
        Connection connection;
        ASSERT_EQ(0, openRemoteGatewayConnection(localHost, stress.port, &connection.token, &connection.version)) << "seed " << seed;
        ++stress.counts.opens;
        handle = connection.token;
        int rc = 0;
        while (rc == 0 && !stress.ended) {
            rc = connection.query();
            ++stress.counts.queries;
        }
        // -124: it was closed while no query went on, and its address belongs to another thread's connection by now.
        ASSERT_TRUE(rc == 0 || rc == KRVSTAT_GATEWAY_PROTOCOL_ERROR || rc == KRVSTAT_GATEWAY_TOKEN_NOT_FOUND || rc == KRVSTAT_TID_MISMATCH)
            << rc << ", seed " << seed;
        if (rc != 0) ++stress.counts.lost;
        if (handle.exchange(nullptr)) {
            EXPECT_EQ(0, rc) << "nobody took the handle, seed " << seed;
            EXPECT_EQ(0, connection.close()) << "seed " << seed;
        }
    }
}

void disturb(Stress& stress, unsigned seed)
{
    std::mt19937 random(seed);
    while (!stress.ended) {
        KRV_GatewayToken_t token = stress.shared[random() % 8].exchange(nullptr);
        if (!token) continue;
        if (random() % 2 == 0) {
            EXPECT_EQ(KRVSTAT_OK, closeGatewayConnection(&token)) << "seed " << seed;
            ++stress.counts.closed;
        } else {
            EXPECT_EQ(KRVSTAT_OK, interruptGatewayConnection(token)) << "seed " << seed;
            ++stress.counts.interrupted;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
    }
}

// Opens and asks where no answer ever comes.
void comeLate(Stress& stress, unsigned seed)
{
    std::mt19937 random(seed);
    while (!stress.ended) {
        Connection connection;
        setCallDeadline(static_cast<int>(1 + random() % 30));
        EXPECT_EQ(KRVSTAT_CONNECT_TIMEOUT, connection.open(stress.silentPort)) << "seed " << seed;
        ++stress.counts.late;
    }
}

void dump(Stress& stress)
{
    while (!stress.ended) {
        EXPECT_EQ(0, dumpState());
        ++stress.counts.dumps;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

// One trace file, let go of and opened again as log rotation does it, at level 4 but for moments.
void switchTrace(Stress& stress, const std::string& path)
{
    const std::string rotated = path + ".1";
    std::string name = path;
    while (!stress.ended) {
        EXPECT_EQ(0, std::rename(path.c_str(), rotated.c_str()));
        EXPECT_EQ(0, setAPITraceFile(name.data()));
        EXPECT_EQ(0, setAPITraceLevel(0));
        EXPECT_EQ(0, setAPITraceLevel(4));
        struct stat file = {};
        EXPECT_EQ(0, stat(path.c_str(), &file)) << "the new file is there";
        ++stress.counts.switches;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// On a busy machine, or where one thread at a time runs, some things take longer to happen than the run lasts.
constexpr int longestWait = 60; // seconds

bool eachHappened(const Counts& counts)
{
    return counts.walks > 0 && counts.closed > 0 && counts.interrupted > 0 && counts.late > 0 && counts.dumps > 0 && counts.switches > 0;
}

} // namespace

// KRVSTATS_STRESS_SECONDS says how long; KRVSTATS_STRESS_SEED repeats a run's choices.
TEST(SixteenThreads, WithTheirConnectionsTracedSwitchedDumpedAndClosedByOthers)
{
    const char* named = std::getenv("KRVSTATS_STRESS_SEED");
    const unsigned seed = named && *named ? static_cast<unsigned>(std::strtoul(named, nullptr, 10)) : std::random_device()();
    GatewayProcess gateway({}, threeStatistics);
    SilentListener silent(1024);
    EXPECT_EQ(0, setCallDeadline(0));
    const std::size_t descriptors = openDescriptors();
    Stress stress = {gateway.port(), silent.port(), {}, {}, {}};
    {
        TraceFile trace(4);
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < 8; ++i) {
            threads.emplace_back([&stress, i, seed] { ownPrivately(stress, seed + i); });
            threads.emplace_back([&stress, i, seed] { ownInPublic(stress, stress.shared[i], seed + 100 + i); });
        }
        threads.emplace_back([&] { disturb(stress, seed + 200); });
        threads.emplace_back([&] { comeLate(stress, seed + 300); });
        threads.emplace_back([&] { dump(stress); });
        threads.emplace_back([&] { switchTrace(stress, trace.path()); });
        const Clock::time_point start = Clock::now();
        const auto goesOn = [&] {
            const auto milliseconds = millisecondsSince(start) - 1000 * stressSeconds();
            return milliseconds < 0 || (milliseconds < 1000 * longestWait && !eachHappened(stress.counts));
        };
        while (goesOn() && !HasFailure()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        stress.ended = true;
        for (std::thread& each : threads) each.join();
    }
    const Counts& counts = stress.counts;
    std::printf("    seed %u: %ld opens, %ld queries, %ld walks, %ld lost, %ld closed and %ld interrupted by others, %ld late, %ld dumps, %ld switches\n", seed,
        counts.opens.load(), counts.queries.load(), counts.walks.load(), counts.lost.load(), counts.closed.load(), counts.interrupted.load(), counts.late.load(),
        counts.dumps.load(), counts.switches.load());
    EXPECT_GT(counts.walks, 0);
    EXPECT_GT(counts.closed, 0);
    EXPECT_GT(counts.interrupted, 0);
    EXPECT_GT(counts.late, 0);
    EXPECT_GT(counts.dumps, 0);
    EXPECT_GT(counts.switches, 0);
    EXPECT_LE(counts.lost, counts.closed + counts.interrupted);

    // A connection that was interrupted just before the end is still open; its owner has gone.
    EXPECT_EQ(0, closeAllGatewayConnections());
    EXPECT_EQ(nullptr, gtListHeadPtr);
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
    EXPECT_EQ(0, gateway.stop());
}
