// Rounds of samples, one after the other, for the commands that repeat.
#ifndef KRVSTAT_FEED_H
#define KRVSTAT_FEED_H

#include "inquiry.h"
#include "recording.h"

#include <memory>
#include <string>
#include <vector>

// Connections are kept from round to round, each by a thread of its own. Where one is lost, it is tried again with each
// round, but with growing pauses: from half a second to 30 seconds.
class Feed {
public:
    Feed(const std::vector<Target>& targets, const Inquiry& inquiry, const TimeLimits& limits);
    ~Feed();
    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;

    // Asks every gateway that is not still being asked. wakeWaiter is called with each answer.
    void ask();
    bool isAnswered() const;

    // One answer a target. A gateway that has not answered yet has a failure; what it answers is for the next round.
    std::vector<TargetAnswer> collect();

private:
    struct Watcher;
    static void work(Watcher* watcher);
    std::vector<std::shared_ptr<Watcher>> watchers;
};

#endif
