// More calls at once than the library has room for: each is refused, and nothing else happens to it.
#include <gtest/gtest.h>

#include "full_call_table.h"
#include "gateway_process.h"
#include "hanging_gateways.h"

using namespace krvtest;

TEST(TooManyCalls, AnOpenIsRefusedAndLeavesNothing)
{
    GatewayProcess gateway;
    Connection connection;
    const std::size_t descriptors = openDescriptors();
    {
        const FullCallTable full;
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, connection.open(gateway.port()));
        EXPECT_TRUE(connection.untouched());
        EXPECT_EQ(nullptr, firstOnTheList());
        EXPECT_EQ(descriptors, openDescriptors());
    }
    EXPECT_EQ(KRVSTAT_OK, connection.open(gateway.port()));
    EXPECT_EQ(KRVSTAT_OK, connection.close());
    EXPECT_EQ(0, gateway.stop());
    EXPECT_EQ(std::vector<std::string>(), gateway.complaints());
}

TEST(TooManyCalls, AQueryIsRefusedAndKeepsItsConnection)
{
    GatewayProcess gateway;
    Connection connection;
    ASSERT_EQ(KRVSTAT_OK, connection.open(gateway.port()));
    {
        const FullCallTable full;
        EXPECT_EQ(KRVSTAT_OUT_OF_MEMORY, connection.query());
    }
    EXPECT_EQ(connection.token, firstOnTheList());
    EXPECT_EQ(KRVSTAT_OK, connection.query());
    EXPECT_EQ(KRVSTAT_OK, connection.close());
    EXPECT_EQ(0, gateway.stop());
}
