// A small generator of random bits (splitmix64) that gives the same sequence for a seed everywhere.
#pragma once

#include <cstdint>

namespace krvgw {

inline std::uint64_t nextRandom(std::uint64_t& state)
{
    state += 0x9E3779B97F4A7C15;
    std::uint64_t mixed = state;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
}

}  // namespace krvgw
