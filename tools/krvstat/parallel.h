// Work for each target on a thread of its own. Gateways are waited for together, so the slowest one decides.
#ifndef KRVSTAT_PARALLEL_H
#define KRVSTAT_PARALLEL_H

#include "target.h"

#include <exception>
#include <functional>
#include <thread>
#include <vector>

// Results in the order of the targets. An exception of the work is thrown on, from here.
template <typename Result>
std::vector<Result> forEachTarget(const std::vector<Target>& targets, const std::function<Result(const Target&)>& work)
{
    std::vector<Result> results(targets.size());
    std::vector<std::exception_ptr> problems(targets.size());
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < targets.size(); ++i) {
            threads.emplace_back([&, i] {
                try {
                    results[i] = work(targets[i]);
                } catch (...) {
                    problems[i] = std::current_exception();
                }
            });
        }
    }
    for (const std::exception_ptr& problem : problems) {
        if (problem) std::rethrow_exception(problem);
    }
    return results;
}

#endif
