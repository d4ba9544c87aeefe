#include "feed.h"

#include "events.h"
#include "leftbehind.h"

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

constexpr Milliseconds FirstPause{500};
constexpr Milliseconds LongestPause{30000};
constexpr Milliseconds Farewell{1000}; // for all goodbyes together

enum class State { Idle, Asked, Answered, Ended };

} // namespace

struct Feed::Watcher {
    // never change
    Target target;
    Inquiry inquiry;
    TimeLimits limits;

    // of the thread alone
    Session session;
    Milliseconds pause = FirstPause;
    std::chrono::steady_clock::time_point nextTry{};
    std::optional<Failure> lastFailure;

    // under the lock
    std::mutex lock;
    std::condition_variable changed;
    State state = State::Idle;
    bool isStopping = false;
    KRV_GatewayToken_t waiting = nullptr; // the connection that the thread waits for
    TargetAnswer answer;

    std::thread thread;
};

namespace {

// Everything up to the answer of one round.
template <typename Watcher>
TargetAnswer sampleOnce(Watcher* watcher)
{
    const Deadline whole = deadlineIn(watcher->limits.whole);
    TargetAnswer answer{targetText(watcher->target), std::nullopt, {}, ""};
    const bool mustConnect = watcher->session.gateway == nullptr;
    if (mustConnect && watcher->lastFailure && std::chrono::steady_clock::now() < watcher->nextTry) {
        answer.failure = watcher->lastFailure;
        return answer;
    }
    CallResult result;
    if (mustConnect) {
        watcher->session = Session();
        result = openSession(watcher->target, earlierOf(deadlineIn(watcher->limits.connect), whole), &watcher->session);
    }
    if (result.code == KRVSTAT_OK) {
        if (mustConnect) answer.connection = describeConnection(watcher->target, watcher->session);
        {
            const std::lock_guard<std::mutex> guard(watcher->lock);
            watcher->waiting = watcher->session.gateway;
        }
        result = inquire(&watcher->session, watcher->inquiry, whole, &answer.sample);
        const std::lock_guard<std::mutex> guard(watcher->lock);
        watcher->waiting = nullptr;
    }
    watcher->lastFailure = std::nullopt;
    if (result.code == KRVSTAT_OK) {
        watcher->pause = FirstPause;
    } else {
        closeSession(&watcher->session, whole);
        answer.failure = watcher->lastFailure = describeFailure(result, watcher->target);
        watcher->nextTry = std::chrono::steady_clock::now() + watcher->pause;
        watcher->pause = std::min(watcher->pause * 2, LongestPause);
    }
    return answer;
}

} // namespace

void Feed::work(Watcher* watcher)
{
    std::unique_lock<std::mutex> guard(watcher->lock);
    while (true) {
        watcher->changed.wait(guard, [&] { return watcher->isStopping || watcher->state == State::Asked; });
        if (watcher->isStopping) break;
        guard.unlock();
        TargetAnswer answer;
        try {
            answer = sampleOnce(watcher);
        } catch (const std::exception& error) {
            answer = {targetText(watcher->target), Failure{ExitInternal, error.what()}, {}, ""};
        }
        guard.lock();
        watcher->answer = std::move(answer);
        watcher->state = State::Answered;
        wakeWaiter();
    }
    guard.unlock();
    closeSession(&watcher->session, deadlineIn(Farewell));
    guard.lock();
    watcher->state = State::Ended;
    watcher->changed.notify_all();
}

Feed::Feed(const std::vector<Target>& targets, const Inquiry& inquiry, const TimeLimits& limits)
{
    for (const Target& target : targets) {
        auto watcher = std::make_shared<Watcher>();
        watcher->target = target;
        watcher->inquiry = inquiry;
        watcher->limits = limits;
        watchers.push_back(watcher);
        watcher->thread = std::thread([watcher] { work(watcher.get()); });
    }
}

Feed::~Feed()
{
    for (const auto& watcher : watchers) {
        const std::lock_guard<std::mutex> guard(watcher->lock);
        watcher->isStopping = true;
        if (watcher->waiting != nullptr) interruptGatewayConnection(watcher->waiting);
        watcher->changed.notify_all();
    }
    const auto patience = std::chrono::steady_clock::now() + Farewell;
    for (const auto& watcher : watchers) {
        std::unique_lock<std::mutex> guard(watcher->lock);
        const bool hasEnded =
            watcher->changed.wait_until(guard, patience, [&] { return watcher->state == State::Ended; });
        guard.unlock();
        if (hasEnded) {
            watcher->thread.join();
        } else {
            noteThreadLeftBehind();
            watcher->thread.detach();
        }
    }
}

void Feed::ask()
{
    for (const auto& watcher : watchers) {
        const std::lock_guard<std::mutex> guard(watcher->lock);
        if (watcher->state != State::Idle) continue; // late: what comes, or came, is the answer to this one
        watcher->state = State::Asked;
        watcher->changed.notify_all();
    }
}

bool Feed::isAnswered() const
{
    return std::all_of(watchers.begin(), watchers.end(), [](const std::shared_ptr<Watcher>& watcher) {
        const std::lock_guard<std::mutex> guard(watcher->lock);
        return watcher->state == State::Answered;
    });
}

std::vector<TargetAnswer> Feed::collect()
{
    std::vector<TargetAnswer> answers;
    for (const auto& watcher : watchers) {
        const std::lock_guard<std::mutex> guard(watcher->lock);
        if (watcher->state == State::Answered) {
            answers.push_back(std::move(watcher->answer));
            watcher->state = State::Idle;
        } else {
            const std::string where = targetText(watcher->target);
            answers.push_back({where, Failure{ExitDeadline, fmt::format("{} has not answered yet", where)}, {}, ""});
        }
    }
    return answers;
}
