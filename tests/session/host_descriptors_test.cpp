// An application with so many open files that its sockets have numbers which an fd_set cannot hold.
#include "hanging_gateways.h"

#include "gateway_process.h"
#include "open_files.h"
#include "scripted_peer.h"
#include "watched_allocator.h"

using namespace krvtest;

namespace {

constexpr int openFirst = 1500;

class ManyOpenFiles : public ::testing::Test {
protected:
    const OpenFiles files{openFirst};
};

std::string firstIdOf(KRV_ResultSetToken_t set)
{
    KRV_IdData_t id = {};
    if (getFirstId(set, &id) != 0) return "";
    return std::string(id.idPtr, static_cast<std::size_t>(id.idLen));
}

std::string firstValueOf(KRV_ResultSetToken_t set)
{
    KRV_StatData_t stat = {};
    if (getFirstStat(set, &stat) != 0) return "";
    return std::string(stat.statValuePtr, static_cast<std::size_t>(stat.statValueLen));
}

void converse(int port)
{
    Connection connection;
    ASSERT_EQ(0, connection.open(port));
    EXPECT_GE(connection.token->socketDescriptor, openFirst);
    char one[] = "alpha.one";
    char beta[] = "beta";
    KRV_ResultSetToken_t set = nullptr;
    EXPECT_EQ(0, getResourceGroupIds(connection.token, &set));
    EXPECT_EQ("alpha", firstIdOf(set));
    EXPECT_EQ(0, getStatIds(connection.token, &set));
    EXPECT_EQ("alpha.one", firstIdOf(set));
    EXPECT_EQ(0, getStatIdsByStatGroupId(connection.token, beta, &set));
    EXPECT_EQ("beta.one", firstIdOf(set));
    EXPECT_EQ(0, getStats(connection.token, &set));
    EXPECT_EQ("1", firstValueOf(set));
    EXPECT_EQ(0, getStatsByStatId(connection.token, one, &set));
    EXPECT_EQ("1", firstValueOf(set));
    EXPECT_EQ(0, getStatsByStatGroupId(connection.token, beta, &set));
    EXPECT_EQ("two", firstValueOf(set));
    EXPECT_EQ(0, connection.close());
}

} // namespace

TEST_F(ManyOpenFiles, LeaveAWholeConversationAsItIs)
{
    GatewayProcess gateway({"byte-by-byte@stat-ids"});
    const std::size_t open = openDescriptors();
    converse(gateway.port());
    EXPECT_EQ(open, openDescriptors());
    EXPECT_TRUE(gateway.complaints().empty());
}

TEST_F(ManyOpenFiles, LeaveAConversationWithADeadlineAsItIs)
{
    GatewayProcess gateway({"byte-by-byte@stat-ids"});
    const CallDeadline deadline(60000);
    converse(gateway.port());
    EXPECT_TRUE(gateway.complaints().empty());
}

TEST_F(ManyOpenFiles, LeaveNoMemoryBehind)
{
    GatewayProcess gateway;
    converse(gateway.port()); // makes what a process keeps
    for (int limit : {0, 60000}) {
        const CallDeadline deadline(limit);
        const AllocationWatch watch(1, 1 << 20);
        converse(gateway.port());
        EXPECT_LT(0, watch.requests());
        EXPECT_EQ(0, watch.blocksLeft()) << "deadline " << limit;
    }
}

TEST_F(ManyOpenFiles, DoNotKeepADeadlineFromEndingAWait)
{
    GatewayProcess silent({"no-answer@get-stats"});
    Connection connection;
    ASSERT_EQ(0, connection.open(silent.port()));
    const CallDeadline deadline(50);
    EXPECT_EQ(KRVSTAT_GATEWAY_PROTOCOL_ERROR, connection.query());
    EXPECT_EQ(nullptr, gtListHeadPtr);
}

TEST_F(ManyOpenFiles, LeaveARefusedConnectionRefused)
{
    Connection connection;
    EXPECT_EQ(KRVSTAT_CONNECTION_REFUSED, connection.open(unusedPort()));
    EXPECT_TRUE(connection.untouched());
    EXPECT_EQ(nullptr, gtListHeadPtr);
}
