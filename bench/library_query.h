// A connection of the library to a canned gateway of its own, and a query with its walk: what is compared with others.
#pragma once

#include <stdexcept>
#include <string>

#include "krvstats.h"

#include "canned_gateway_process.h"

namespace krvbench {

class LibraryQuery {
public:
    LibraryQuery(const std::string& shape, std::size_t n, int gatewayCore)
        : gateway(shape, n, false, gatewayCore), expected(n)
    {
        char* version = nullptr;
        const int rc = openGatewayConnection(gateway.port(), &connection, &version);
        if (rc != KRVSTAT_OK) throw std::runtime_error("openGatewayConnection rc=" + std::to_string(rc));
    }
    ~LibraryQuery()
    {
        closeGatewayConnection(&connection);
    }
    LibraryQuery(const LibraryQuery&) = delete;
    LibraryQuery& operator=(const LibraryQuery&) = delete;

    KRV_GatewayToken_t token() const
    {
        return connection;
    }

    // Asks for statistics and walks them to their end.
    void once()
    {
        KRV_ResultSetToken_t resultSet = nullptr;
        KRV_StatData_t stat;
        std::size_t count = 0;
        int rc = getStats(connection, &resultSet);
        if (rc == KRVSTAT_OK) rc = getFirstStat(resultSet, &stat);
        for (; rc == KRVSTAT_OK; rc = getNextStat(resultSet, &stat)) ++count;
        if (count != expected) throw std::runtime_error("a query failed, rc=" + std::to_string(rc));
    }

private:
    CannedGateway gateway;
    KRV_GatewayToken_t connection = nullptr;
    std::size_t expected;
};

} // namespace krvbench
