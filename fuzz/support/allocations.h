// The allocations of the library, which a fuzz program stands between: counted, and failing on demand.
//
// The program is linked with --wrap for malloc, calloc, realloc and free, so that the calls of the statically linked
// library come here, those of the C++ library do not.
#pragma once

#include <cstddef>

namespace krvfuzz {

// A request for more is refused, as by a machine that has no more: a reply may claim gigabytes.
constexpr std::size_t largestBlock = 4u << 20;

struct Allocations {
    int failFrom = -1; // number of the first request that fails, from 0; -1: none
    int failFor = 0;   // how many fail from there
    int seen = 0;      // requests, without those for too much
    int failed = 0;
    int live = 0; // blocks that were made and not freed
};

inline constinit thread_local Allocations allocations;

// Blocks that do not count as requests and never fail: for the program itself. The library may free them, and the
// program must free what it got from the library, by releaseBlock.
void* ownBlock(std::size_t size);
void releaseBlock(void* block);

} // namespace krvfuzz
