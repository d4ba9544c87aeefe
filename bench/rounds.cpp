// See rounds.h.
#include "rounds.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>

#include <sched.h>

namespace krvbench {

namespace {

constexpr int MOST_REPEATS = 100000;

struct Sample {
    double wall;
    double processor;
};

double nanoseconds(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

Sample take(const Contender& contender, int repeats)
{
    const double wall = nanoseconds(CLOCK_MONOTONIC);
    const double processor = nanoseconds(CLOCK_THREAD_CPUTIME_ID);
    for (int i = 0; i < repeats; ++i) contender.once();
    return {
        (nanoseconds(CLOCK_MONOTONIC) - wall) / repeats, (nanoseconds(CLOCK_THREAD_CPUTIME_ID) - processor) / repeats};
}

void printSeries(const char* name, const std::vector<Sample>& samples, double Sample::*member)
{
    std::printf("\"%s\": [", name);
    for (std::size_t i = 0; i < samples.size(); ++i) std::printf("%s%.1f", i == 0 ? "" : ", ", samples[i].*member);
    std::printf("]");
}

} // namespace

void runRounds(
    const std::string& label, std::size_t n, const std::vector<Contender>& contenders, const Patience& patience)
{
    std::vector<int> repeats;
    std::vector<std::vector<Sample>> samples(contenders.size());
    for (const Contender& contender : contenders) {
        take(contender, 2); // buffers grow, caches fill
        const double once = take(contender, 1).wall;
        repeats.push_back(std::clamp(static_cast<int>(patience.milliseconds * 1e6 / once), 1, MOST_REPEATS));
    }
    for (int round = 0; round < patience.rounds; ++round) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            const std::size_t turn = (i + static_cast<std::size_t>(round)) % contenders.size();
            samples[turn].push_back(take(contenders[turn], repeats[turn]));
        }
    }

    std::printf("{\"label\": \"%s\", \"n\": %zu, \"contenders\": {", label.c_str(), n);
    for (std::size_t i = 0; i < contenders.size(); ++i) {
        std::printf("%s\"%s\": {", i == 0 ? "" : ", ", contenders[i].name.c_str());
        printSeries("wall", samples[i], &Sample::wall);
        std::printf(", ");
        printSeries("processor", samples[i], &Sample::processor);
        std::printf("}");
    }
    std::printf("}}\n");
    std::fflush(stdout);
}

void stayOn(int core)
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<unsigned int>(core), &cores);
    if (sched_setaffinity(0, sizeof cores, &cores) != 0) throw std::runtime_error("cannot run on that core");
}

} // namespace krvbench
