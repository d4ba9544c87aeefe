// What the tests of deadlines, interruptions and busy connections share: gateways that hang, threads that may hang with
// them, clocks.
#ifndef TESTS_SESSION_HANGING_GATEWAYS_H
#define TESTS_SESSION_HANGING_GATEWAYS_H

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "krvstats.h"
#include "krvstats_ext.h"
#include "stapi_krv_gwytok.h"
#include "wire_bytes.h"

namespace krvtest {

using Clock = std::chrono::steady_clock;

// What a loaded machine may add to any deadline before a test fails. What it really adds is printed.
constexpr double generousMs = 1500;

// Nothing here is waited for any longer.
constexpr std::chrono::seconds patience{20};

inline double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

struct Timed {
    int rc;
    double ms;
};

template <typename Call>
Timed timed(Call call)
{
    const Clock::time_point start = Clock::now();
    const int rc = call();
    return {rc, millisecondsSince(start)};
}

// A call that had to wait for its deadline: not back before it, and not much later. Keeps the figures.
inline void expectAtDeadline(const std::string& what, int deadlineMs, const Timed& call)
{
    std::printf("    %-34s deadline %4d ms, back after %7.1f ms: %+6.1f\n", what.c_str(), deadlineMs, call.ms, call.ms - deadlineMs);
    testing::Test::RecordProperty("overshoot_us_of_" + std::to_string(deadlineMs) + "_ms", static_cast<int>(1000 * (call.ms - deadlineMs)));
    EXPECT_GE(call.ms, deadlineMs) << what << ": gave up too early";
    EXPECT_LE(call.ms, deadlineMs + generousMs) << what;
}

// The calling thread's deadline while it lives.
class CallDeadline {
public:
    explicit CallDeadline(int milliseconds) { EXPECT_EQ(KRVSTAT_OK, setCallDeadline(milliseconds)); }
    ~CallDeadline() { setCallDeadline(0); }
    CallDeadline(const CallDeadline&) = delete;
    CallDeadline& operator=(const CallDeadline&) = delete;
};

inline std::size_t openDescriptors()
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) count++;
    return count;
}

inline Internal_GatewayToken_t* firstOnTheList()
{
    char* version = nullptr;
    getStatsAPIVersion(&version); // sets up the lock, if no call did yet
    requestLock(&gtlLock);
    Internal_GatewayToken_t* first = gtListHeadPtr;
    releaseLock(&gtlLock);
    return first;
}

// An open connection, or what an open that failed left alone.
struct Connection {
    KRV_GatewayToken_t token = reinterpret_cast<KRV_GatewayToken_t>(&token);
    char* version = reinterpret_cast<char*>(&version);

    bool untouched() const
    {
        return token == reinterpret_cast<KRV_GatewayToken_t>(const_cast<KRV_GatewayToken_t*>(&token))
            && version == reinterpret_cast<char*>(const_cast<char**>(&version));
    }
    int open(int port) { return openGatewayConnection(port, &token, &version); }
    int query()
    {
        KRV_ResultSetToken_t set = nullptr;
        return getStats(token, &set);
    }
    int close() { return closeGatewayConnection(&token); }
};

// A thread that makes calls one after the other: the owner of its connections. Declare it before the gateways that it
// talks to: they end first, and with them whatever it still waits for.
class Caller {
public:
    Caller() : thread([this] { work(); }) {}
    ~Caller()
    {
        {
            const std::lock_guard held(mutex);
            ending = true;
        }
        changed.notify_all();
        thread.join();
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    std::future<Timed> start(std::function<int()> call)
    {
        auto promise = std::make_shared<std::promise<Timed>>();
        {
            const std::lock_guard held(mutex);
            jobs.push_back([promise, call = std::move(call)] { promise->set_value(timed(call)); });
        }
        changed.notify_all();
        return promise->get_future();
    }

private:
    void work()
    {
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock held(mutex);
                changed.wait(held, [this] { return ending || !jobs.empty(); });
                if (jobs.empty()) return;
                job = std::move(jobs.front());
                jobs.pop_front();
            }
            job();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> jobs;
    bool ending = false;
    std::thread thread;
};

constexpr int neverBack = 99999;

// The result of a call in another thread; neverBack if it does not come.
inline Timed resultOf(std::future<Timed> call)
{
    if (call.wait_for(patience) != std::future_status::ready) return {neverBack, 0};
    return call.get();
}

inline bool isBack(const std::future<Timed>& call)
{
    return call.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

// Looks again and again until it is so.
inline bool soon(const std::function<bool()>& happened)
{
    const Clock::time_point end = Clock::now() + patience;
    while (!happened()) {
        if (Clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

inline int connectingSocket(int port)
{
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (client < 0 || (connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 && errno != EINPROGRESS))
        throw std::runtime_error("connect");
    return client;
}

// Listens and never accepts: clients are connected by the kernel and hear nothing.
class SilentListener {
public:
    explicit SilentListener(int backlog = 64) : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(listener, backlog) != 0
            || getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            throw std::runtime_error("listen");
        portNumber = ntohs(address.sin_port);
    }
    ~SilentListener() { ::close(listener); }
    SilentListener(const SilentListener&) = delete;
    SilentListener& operator=(const SilentListener&) = delete;

    int port() const { return portNumber; }

    // Accepts the first client in the queue and hands out its socket.
    int accept() const { return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); }

private:
    int listener;
    int portNumber = 0;
};

// A port whose queue of connections is full: whoever connects is not even answered.
class Unanswering {
public:
    Unanswering() : listener(0)
    {
        bool full = false;
        while (!full && fillers.size() < 64) {
            fillers.push_back(connectingSocket(listener.port()));
            pollfd connected = {fillers.back(), POLLOUT, 0};
            full = poll(&connected, 1, 200) == 0;
        }
        if (!full) throw std::runtime_error("the queue does not fill up");
    }
    ~Unanswering()
    {
        for (int filler : fillers) ::close(filler);
    }
    Unanswering(const Unanswering&) = delete;
    Unanswering& operator=(const Unanswering&) = delete;

    int port() const { return listener.port(); }

private:
    SilentListener listener;
    std::vector<int> fillers;
};

// Fills the socket's way to a peer that does not read, until nothing more fits.
inline void fillUp(int socket)
{
    const std::vector<char> junk(65536, 'j');
    for (;;) {
        if (send(socket, junk.data(), junk.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) continue;
        pollfd writable = {socket, POLLOUT, 0};
        if (poll(&writable, 1, 200) == 0) return;
    }
}

// The list of connections held by another thread while it lives.
class HeldList {
public:
    HeldList()
    {
        std::promise<void> held;
        thread = std::thread([this, &held] {
            requestLock(&gtlLock);
            held.set_value();
            released.get_future().wait();
            releaseLock(&gtlLock);
        });
        held.get_future().wait();
    }
    ~HeldList() { release(); }
    HeldList(const HeldList&) = delete;
    HeldList& operator=(const HeldList&) = delete;

    void release()
    {
        if (!thread.joinable()) return;
        released.set_value();
        thread.join();
    }

private:
    std::promise<void> released;
    std::thread thread;
};

} // namespace krvtest

#endif
