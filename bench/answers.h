// The answers that the programs of this folder measure with, made by the encoders of the simulated gateway.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "wire.h"

namespace krvbench {

// What an answer holds; `n` counts its statistics or ids.
enum class Shape {
    Stats,  // ids of 12 bytes, values of 8
    Random, // ids of 4 to 20 bytes, values of 1 to 15: the same on average, in an order that nobody can guess
    Ids,    // ids of 12 bytes
    Value,  // one statistic with an id of 12 bytes and a value of n bytes, in blocks as a Java process cuts them
};

// Throws where there is no such shape.
Shape shapeByName(std::string_view name);

// A whole reply to a query, and where the call's result begins in it: what a parser is given.
struct Answer {
    krvgw::Bytes message;
    std::size_t data;

    const unsigned char* result() const
    {
        return message.data() + data;
    }
    std::size_t resultSize() const
    {
        return message.size() - data;
    }
};

Answer answerOf(Shape shape, std::size_t n);

// The reply to the init call in front of it.
krvgw::Bytes initReply();

// Texts of the k-th statistic of Shape::Stats.
std::string statId(std::size_t k);
std::string statValue(std::size_t k);

} // namespace krvbench
