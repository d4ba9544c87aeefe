// Nothing that a client must send can be wrong without being named.
#include "requests.h"
#include "wire_bytes.h"

#include <gtest/gtest.h>

using krvgw::Expected;
using krvgw::MessageKind;
using krvtest::hex;
using krvtest::operator+;

namespace {

const krvtest::Bytes MAP = hex("01 02 03 04 05 06 07 08");
const krvtest::Bytes VERSION = hex("F1 F2 F3 F4");

struct Sample {
    MessageKind kind;
    krvtest::Bytes bytes;
    Expected expected;
    std::size_t freeFrom = 0;    // a range that may hold anything: the query string
    std::size_t freeTo = 0;
};

std::vector<Sample> samples()
{
    const Expected none;
    const Expected afterAuth{krvgw::EchoedHeader{krvgw::FLOW_VERSION, 0, 4, 0, 0}, MAP + VERSION};
    const Expected afterInit{krvgw::EchoedHeader{krvgw::FLOW_VERSION, 0, 5, 0, 0}, VERSION};
    const std::string query = "cpu:memory";
    // Behind the query string: the number of signatures, and the signature with its length.
    const auto withQuery = krvtest::invokeRequest(VERSION, "GET_STATS", query);
    const std::size_t queryEnd = withQuery.size() - 4 - 2 - 16;
    return {
        {MessageKind::Handshake, krvtest::handshakeRequest(), none},
        {MessageKind::Auth1, krvtest::authInitRequest(), none},
        {MessageKind::Auth2, krvtest::authConfirmRequest(MAP, VERSION), afterAuth},
        {MessageKind::Init, krvtest::adminInitRequest(), none},
        {MessageKind::Attribute, krvtest::getProtocolRequest(VERSION), afterInit},
        {MessageKind::GetStats, withQuery, afterInit, queryEnd - query.size(), queryEnd},
        {MessageKind::GetStats, krvtest::invokeRequest(VERSION, "GET_STATS", ""), afterInit},
        {MessageKind::StatIds, krvtest::invokeRequest(VERSION, "STAT_IDS", ""), afterInit},
        {MessageKind::ResourceGroups, krvtest::invokeRequest(VERSION, "RESOURCE_GROUPS", ""), afterInit},
        {MessageKind::Close, krvtest::closeRequest(), none},
    };
}

bool isAccepted(const krvtest::Bytes& bytes, const Expected& expected)
{
    const krvgw::Request request = krvgw::readRequest(bytes);
    return krvgw::complaintsAbout(request, bytes, expected).empty() && krvgw::unservable(request).empty();
}

std::string complaintsOn(const krvtest::Bytes& bytes, const Expected& expected)
{
    std::string joined;
    for (const std::string& each : krvgw::complaintsAbout(krvgw::readRequest(bytes), bytes, expected))
        joined += each + "\n";
    return joined;
}

}  // namespace

TEST(Requests, EveryPerfectRequestIsRecognisedAndAccepted)
{
    for (const Sample& sample : samples()) {
        const krvgw::Request request = krvgw::readRequest(sample.bytes);
        EXPECT_EQ(krvgw::nameOf(request.kind), krvgw::nameOf(sample.kind));
        EXPECT_EQ(complaintsOn(sample.bytes, sample.expected), "") << krvgw::nameOf(sample.kind);
        EXPECT_EQ(krvgw::unservable(request), "") << krvgw::nameOf(sample.kind);
    }
}

TEST(Requests, EveryOtherValueOfEveryByteIsRefused)
{
    for (const Sample& sample : samples()) {
        for (std::size_t at = 0; at < sample.bytes.size(); ++at) {
            const bool isFree = at >= sample.freeFrom && at < sample.freeTo;
            for (int value = 0; value < 256 && !isFree; ++value) {
                krvtest::Bytes changed = sample.bytes;
                changed[at] = static_cast<unsigned char>(value);
                if (changed == sample.bytes) continue;
                EXPECT_FALSE(isAccepted(changed, sample.expected))
                    << krvgw::nameOf(sample.kind) << " byte " << at << " value " << value;
            }
        }
    }
}

TEST(Requests, EveryShortenedOrLengthenedBodyIsRefused)
{
    for (const Sample& sample : samples()) {
        const std::size_t header = krvgw::readRequest(sample.bytes).header.nameLength + 29;
        for (std::size_t size = header; size <= sample.bytes.size() + 3; ++size) {
            if (size == sample.bytes.size()) continue;
            krvtest::Bytes changed = sample.bytes;
            changed.resize(size, 0);
            krvgw::overwrite(changed, header - 4, 4, static_cast<std::uint32_t>(size - header));
            EXPECT_FALSE(isAccepted(changed, sample.expected)) << krvgw::nameOf(sample.kind) << " of " << size;
        }
    }
}

TEST(Requests, ComplaintsNameTheFieldAndBothValues)
{
    krvtest::Bytes handshake = krvtest::handshakeRequest();
    handshake[6] = 1;
    EXPECT_EQ(complaintsOn(handshake, {}), "header: flow version is 0x00700100 instead of 0x00700000\n");

    krvtest::Bytes body = krvtest::handshakeRequest();
    body[35] = 'x';
    EXPECT_EQ(complaintsOn(body, {}),
              "body is 0002786e0002474200000000000000000000 instead of 0002656e0002474200000000000000000000\n");

    krvtest::Bytes close = krvtest::closeRequest();
    close[19] = 0;
    EXPECT_EQ(complaintsOn(close, {}), "header: message id is 0xFFFFFF00 instead of 0xFFFFFFFF\n");
}

TEST(Requests, OpaqueBytesMustComeBackVerbatim)
{
    const Expected expected{std::nullopt, MAP + VERSION};
    EXPECT_EQ(complaintsOn(krvtest::authConfirmRequest(MAP, VERSION), expected), "");
    EXPECT_EQ(complaintsOn(krvtest::authConfirmRequest(hex("01 02 03 04 05 06 07 09"), VERSION), expected),
              "body: protocol map is 0102030405060709 instead of 0102030405060708\n");
    EXPECT_EQ(complaintsOn(krvtest::authConfirmRequest(MAP, hex("F4 F3 F2 F1")), expected),
              "body: server version is f4f3f2f1 instead of f1f2f3f4\n");
    EXPECT_EQ(complaintsOn(krvtest::getProtocolRequest(hex("F4 F3 F2 F1")), {std::nullopt, VERSION}),
              "body: server version is f4f3f2f1 instead of f1f2f3f4\n");
}

TEST(Requests, UnknownNamesCannotBeServed)
{
    krvtest::Bytes attribute = krvtest::getProtocolRequest(VERSION);
    attribute.back() = 'x';
    EXPECT_EQ(krvgw::unservable(krvgw::readRequest(attribute)), "there is no attribute \"protocox\"");
    const auto operation = krvtest::invokeRequest(VERSION, "GET_STAT", "");
    EXPECT_EQ(krvgw::unservable(krvgw::readRequest(operation)), "there is no operation \"GET_STAT\"");
}

TEST(Requests, AnUnknownRequestNameIsNamed)
{
    krvtest::Bytes bytes = krvtest::requestHeader(1, 0, "Other", 0);
    EXPECT_EQ(complaintsOn(bytes, {}), "header: no request is named 4f74686572\n");
}

TEST(Requests, NoPrefixIsTakenForAMessage)
{
    for (const Sample& sample : samples()) {
        for (std::size_t size = 0; size < sample.bytes.size(); ++size) {
            const krvtest::Bytes prefix = krvtest::slice(sample.bytes, 0, size);
            EXPECT_FALSE(isAccepted(prefix, sample.expected)) << krvgw::nameOf(sample.kind) << " of " << size;
        }
    }
}
