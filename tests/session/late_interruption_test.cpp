// Interruptions and closes by another thread that come when the last reply has been read: nothing waits for anything any
// more, and still the call must end as an interrupted one.
#include <gtest/gtest.h>

#include <functional>

#include "gateway_process.h"
#include "hanging_gateways.h"
#include "krvstats_ext.h"
#include "scripted_peer.h"
#include "socket_calls.h"
#include "stapi_krv_types.h"
#include "wire_bytes.h"

using namespace krvtest;

namespace krvtest {

// What another thread does to the connection.
struct Disturbance {
    const char* name;
    int (*disturb)(KRV_GatewayToken_t token);
};

void PrintTo(const Disturbance& disturbance, std::ostream* out)
{
    *out << disturbance.name;
}

class Late : public testing::TestWithParam<Disturbance> {
};

} // namespace krvtest

namespace {

constexpr int requestsOfAnOpen = 5;  // handshake, two of the authorisation, init, attribute
constexpr int requestsOfAQuery = 2;  // init, operation
constexpr std::size_t adminHeader = 34;

// Lets another thread act as soon as the calling thread has received all of the reply to its n-th request, an admin call.
class BehindReply {
public:
    BehindReply(int number, std::function<void()> act) : hooked(calls)
    {
        calls.send = [this](int socket, const void* bytes, size_t count, int flags) {
            ++requests;
            return send(socket, bytes, count, flags);
        };
        calls.recv = [this, number, act = std::move(act)](int socket, void* bytes, size_t count, int flags) {
            const ssize_t got = recv(socket, bytes, count, flags);
            if (requests == number && got > 0) {
                const auto* first = static_cast<unsigned char*>(bytes);
                reply.insert(reply.end(), first, first + got);
                if (isWhole()) {
                    acted = true;
                    other.start([&] { act(); return 0; }).wait();
                }
            }
            return got;
        };
    }
    ~BehindReply() { EXPECT_TRUE(acted); }
    BehindReply(const BehindReply&) = delete;
    BehindReply& operator=(const BehindReply&) = delete;

private:
    bool isWhole() const
    {
        return reply.size() > adminHeader
            && reply.size() == adminHeader + static_cast<std::size_t>(wordAt(reply, adminHeader - 4));
    }

    Caller other;
    SocketCalls calls;
    Hooked hooked;
    int requests = 0;
    Bytes reply;
    bool acted = false;
};

const Disturbance disturbances[] = {
    {"Interruption", interruptGatewayConnection},
    {"Close", [](KRV_GatewayToken_t token) { return closeGatewayConnection(&token); }},
};

} // namespace

TEST_P(Late, EndsAnOpen)
{
    GatewayProcess gateway;
    Connection connection;
    const std::size_t descriptors = openDescriptors();
    int rc = -1;
    {
        const BehindReply behind(requestsOfAnOpen, [&] { rc = GetParam().disturb(firstOnTheList()); });
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, connection.open(gateway.port()));
    }
    EXPECT_EQ(KRVSTAT_OK, rc);
    EXPECT_TRUE(connection.untouched());
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST_P(Late, EndsAQuery)
{
    GatewayProcess gateway;
    Connection connection;
    const std::size_t descriptors = openDescriptors();
    ASSERT_EQ(KRVSTAT_OK, connection.open(gateway.port()));
    int rc = -1;
    KRV_ResultSetToken_t set = nullptr;
    {
        const BehindReply behind(requestsOfAQuery, [&] { rc = GetParam().disturb(connection.token); });
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, getStats(connection.token, &set));
    }
    EXPECT_EQ(KRVSTAT_OK, rc);
    EXPECT_EQ(nullptr, set);
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST_P(Late, EndsTheMakingOfAToken)
{
    GatewayProcess gateway;
    KRV_GatewayToken_t token = nullptr;
    const std::size_t descriptors = openDescriptors();
    char host[] = "127.0.0.1";
    {
        const BehindReply behind(requestsOfAnOpen, [] { GetParam().disturb(firstOnTheList()); });
        EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, createGatewayToken(&token, host, gateway.port()));
    }
    EXPECT_EQ(nullptr, token);
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_EQ(descriptors, openDescriptors());
}

INSTANTIATE_TEST_SUITE_P(By, Late, testing::ValuesIn(disturbances), [](const auto& each) { return each.param.name; });

TEST(MakingOfAToken, LeavesItOnTheListWithTheVersionInItsFirstBuffer)
{
    GatewayProcess gateway;
    KRV_GatewayToken_t token = nullptr;
    char host[] = "127.0.0.1";
    ASSERT_EQ(KRVSTAT_OK, createGatewayToken(&token, host, gateway.port()));
    ASSERT_NE(nullptr, token);
    EXPECT_EQ(token, firstOnTheList());
    EXPECT_EQ(1, token->connStatus);
    EXPECT_EQ(static_cast<std::uint32_t>(gateway.port()), token->portNumber);
    EXPECT_STREQ("1.1.0", token->protocolVersion);
    KRV_ResultSetToken_t set = nullptr;
    EXPECT_EQ(KRVSTAT_OK, getStats(token, &set)) << "it can be asked";
    EXPECT_EQ(token->connRSPtr, set);
    EXPECT_EQ(KRVSTAT_OK, deleteGatewayToken(&token, 1));
    EXPECT_EQ(nullptr, firstOnTheList());
    EXPECT_EQ(0, gateway.stop());
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
}

TEST(MakingOfAToken, ThatFailsLeavesTheHandleAndTheList)
{
    char host[] = "127.0.0.1";
    KRV_GatewayToken_t before = reinterpret_cast<KRV_GatewayToken_t>(host);
    KRV_GatewayToken_t token = before;
    EXPECT_EQ(KRVSTAT_CONNECTION_REFUSED, createGatewayToken(&token, host, unusedPort()));
    EXPECT_EQ(before, token);
    EXPECT_EQ(nullptr, firstOnTheList());
}
