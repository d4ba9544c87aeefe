// After the library's first call and ten thousand queries of sixteen threads the application finds its process as it was:
// its signals, its locale, its files, its threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "gateway_process.h"
#include "krvstats.h"
#include "uninstrumented.h"

#if defined(__SANITIZE_THREAD__)
// The kernel's call is one step, ThreadSanitizer's stand-in for it several: two threads in it at once can leave behind
// what neither wanted.
extern "C" int __interceptor_sigaction(int signal, const struct sigaction* next, struct sigaction* previous);

extern "C" TESTS_UNINSTRUMENTED int sigaction(int signal, const struct sigaction* next, struct sigaction* previous) noexcept
{
    static char busy = 0;
    while (__atomic_test_and_set(&busy, __ATOMIC_ACQUIRE)) sched_yield();
    const int rc = __interceptor_sigaction(signal, next, previous);
    __atomic_clear(&busy, __ATOMIC_RELEASE);
    return rc;
}
#endif

using namespace krvtest;

namespace {

constexpr int threadCount = 16;
constexpr int queriesEach = 625;
constexpr int queriesOfAConnection = 125;
static_assert(threadCount * queriesEach == 10000);

// What an application sees of its process.
struct Host {
    struct sigaction pipe = {};
    sigset_t mask = {};
    std::string locale;
    std::string folder;
    mode_t fileMask = 0;
    itimerval timer = {};
    std::vector<std::string> files;
    std::vector<std::string> variables;
    std::size_t threads = 0;
};

std::size_t entriesOf(const char* folder)
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator(folder)) count++;
    return count;
}

std::vector<std::string> openFiles()
{
    std::vector<std::string> found;
    for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone; // the one that reads the folder
        const std::string target = std::filesystem::read_symlink(each, gone).string();
        if (target.find("/proc/") != 0) found.push_back(each.path().filename().string() + " " + target);
    }
    std::sort(found.begin(), found.end());
    return found;
}

Host lookAtHost()
{
    Host host;
    sigaction(SIGPIPE, nullptr, &host.pipe);
    pthread_sigmask(SIG_SETMASK, nullptr, &host.mask);
    host.locale = std::setlocale(LC_ALL, nullptr);
    host.folder = std::filesystem::current_path().string();
    host.fileMask = umask(0);
    umask(host.fileMask);
    getitimer(ITIMER_REAL, &host.timer);
    host.files = openFiles();
    for (char** each = environ; *each; each++) host.variables.push_back(*each);
    host.threads = entriesOf("/proc/self/task");
    return host;
}

bool sameSignals(const sigset_t& left, const sigset_t& right)
{
    for (int signal = 1; signal < NSIG; signal++)
        if (sigismember(&left, signal) != sigismember(&right, signal)) return false;
    return true;
}

void expectSame(const Host& before, const Host& after)
{
    EXPECT_EQ(reinterpret_cast<void*>(before.pipe.sa_sigaction), reinterpret_cast<void*>(after.pipe.sa_sigaction));
    EXPECT_EQ(before.pipe.sa_flags, after.pipe.sa_flags);
    EXPECT_TRUE(sameSignals(before.pipe.sa_mask, after.pipe.sa_mask));
    EXPECT_TRUE(sameSignals(before.mask, after.mask));
    EXPECT_EQ(before.locale, after.locale);
    EXPECT_EQ(before.folder, after.folder);
    EXPECT_EQ(before.fileMask, after.fileMask);
    EXPECT_EQ(0, std::memcmp(&before.timer, &after.timer, sizeof before.timer));
    EXPECT_EQ(before.files, after.files);
    EXPECT_EQ(before.variables, after.variables);
    EXPECT_EQ(before.threads, after.threads);
}

std::string answerOf(KRV_ResultSetToken_t set)
{
    std::string answer;
    KRV_StatData_t stat = {};
    for (int rc = getFirstStat(set, &stat); rc == 0; rc = getNextStat(set, &stat)) {
        answer.append(stat.statIdPtr, static_cast<std::size_t>(stat.statIdLen)).append("=");
        answer.append(stat.statValuePtr, static_cast<std::size_t>(stat.statValueLen)).append(" ");
    }
    return answer;
}

// In a thread of its own, with a mask of its own.
void queryAgainAndAgain(int port, int queries)
{
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);

    char id[] = "beta.one:alpha.one";
    KRV_GatewayToken_t token = nullptr;
    char* version = nullptr;
    for (int done = 0; done < queries; done++) {
        if (!token) {
            ASSERT_EQ(0, openGatewayConnection(port, &token, &version));
        }
        KRV_ResultSetToken_t set = nullptr;
        ASSERT_EQ(0, getStatsByStatId(token, id, &set));
        ASSERT_EQ("beta.one=two alpha.one=1 ", answerOf(set));
        if (done % queriesOfAConnection == queriesOfAConnection - 1) {
            ASSERT_EQ(0, closeGatewayConnection(&token));
            token = nullptr;
        }
    }
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    EXPECT_TRUE(sameSignals(before, after));
    EXPECT_EQ(LC_GLOBAL_LOCALE, uselocale(nullptr));
}

void queryFromAllThreads(int port)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; i++) threads.emplace_back([port] { queryAgainAndAgain(port, queriesEach); });
    for (std::thread& each : threads) each.join();
}

void onPipe(int, siginfo_t*, void*) {}

struct sigaction withHandler()
{
    struct sigaction action = {};
    action.sa_sigaction = onPipe;
    action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGHUP);
    sigaddset(&action.sa_mask, SIGUSR1);
    return action;
}

struct sigaction plain(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    return action;
}

void expectLeftAlone(const struct sigaction& pipe)
{
    struct sigaction before = {};
    ASSERT_EQ(0, sigaction(SIGPIPE, &pipe, &before));
    GatewayProcess gateway;
    std::thread([] {}).join(); // with the first one a sanitizer starts one of its own
    const Host host = lookAtHost(); // before the first call, which keeps what it sets up
    std::thread([&] { queryAgainAndAgain(gateway.port(), queriesOfAConnection); }).join();
    queryFromAllThreads(gateway.port());
    expectSame(host, lookAtHost());
    ASSERT_EQ(0, sigaction(SIGPIPE, &before, nullptr));
    EXPECT_TRUE(gateway.complaints().empty());
}

} // namespace

TEST(Host, WithAHandlerOfItsOwnIsLeftAsItWas)
{
    std::setlocale(LC_ALL, "C.UTF-8");
    expectLeftAlone(withHandler());
}

TEST(Host, WithDefaultSignalsIsLeftAsItWas)
{
    expectLeftAlone(plain(SIG_DFL));
}

TEST(Host, ThatIgnoresTheSignalIsLeftAsItWas)
{
    expectLeftAlone(plain(SIG_IGN));
}
