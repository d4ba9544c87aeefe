// What this process holds at a moment: the library must have given everything back once its connections are closed.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace krvsoak {

struct Account {
    std::size_t heapBytes = 0; // in use, as malloc counts
    std::size_t residentBytes = 0;
    std::vector<std::string> descriptors; // what each open one refers to
    std::size_t threads = 0;
    bool tokensLeft = false;
};

// Gives memory that is free back to the system first.
Account takeAccount();

// What there is more of than there was; empty if nothing is.
std::vector<std::string> grownSince(const Account& before, const Account& now);

} // namespace krvsoak
