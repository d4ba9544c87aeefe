// See answers.h.
#include "answers.h"

#include <cstdio>
#include <random>
#include <stdexcept>

#include "messages.h"
#include "replies.h"

namespace krvbench {

namespace {

constexpr std::size_t ADMIN_REPLY_FIXED_SIZE = 9; // call type, admin rc, exception flag: in front of the call's result
constexpr unsigned int SEED = 20261121;

std::string ofLength(std::string text, std::size_t length)
{
    text.resize(length, 'x');
    return text;
}

krvgw::Bytes admin(const krvgw::Message& body)
{
    return krvgw::makeReply({krvgw::FLOW_TYPE_CALL, 0, 0, "Admin"}, body).bytes;
}

std::vector<krvgw::Statistic> statisticsOf(Shape shape, std::size_t n)
{
    std::mt19937 random(SEED);
    std::vector<krvgw::Statistic> statistics;
    if (shape == Shape::Value) {
        statistics.push_back({statId(0), std::string(n, 'v'), 0, {}});
        return statistics;
    }
    statistics.reserve(n);
    for (std::size_t k = 0; k < n; ++k) {
        if (shape == Shape::Random) {
            const std::size_t idLength = 4 + random() % 17;
            const std::size_t valueLength = 1 + random() % 15;
            statistics.push_back({ofLength(statId(k), idLength), ofLength(statValue(k), valueLength), 0, {}});
        } else {
            statistics.push_back({statId(k), shape == Shape::Ids ? "" : statValue(k), 0, {}});
        }
    }
    return statistics;
}

} // namespace

Shape shapeByName(std::string_view name)
{
    if (name == "stats") return Shape::Stats;
    if (name == "random") return Shape::Random;
    if (name == "ids") return Shape::Ids;
    if (name == "value") return Shape::Value;
    throw std::invalid_argument("no such shape of a reply: " + std::string(name));
}

std::string statId(std::size_t k)
{
    char text[32];
    std::snprintf(text, sizeof text, "ID_%09zu", k);
    return text;
}

std::string statValue(std::size_t k)
{
    char text[32];
    std::snprintf(text, sizeof text, "%08zu", k * 7919 % 100000000);
    return text;
}

krvgw::Bytes initReply()
{
    return admin(krvgw::initReplyBody(krvgw::Bytes(krvgw::INIT_OPAQUE, 1)));
}

Answer answerOf(Shape shape, std::size_t n)
{
    krvgw::Result result;
    result.responses.push_back({"", 0, statisticsOf(shape, n)});
    const krvgw::Operation operation = shape == Shape::Ids ? krvgw::Operation::StatIds : krvgw::Operation::GetStats;
    const krvgw::Message body = krvgw::operationReplyBody(operation, result);
    krvgw::Bytes message = admin(body);
    const std::size_t header = message.size() - body.bytes.size();
    return {std::move(message), header + ADMIN_REPLY_FIXED_SIZE};
}

} // namespace krvbench
