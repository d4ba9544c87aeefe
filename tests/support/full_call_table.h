// Calls in progress that take up the library's whole table of them. For programs that link the static library.
#pragma once

#include <vector>

#include "stapi_krv_calls.h"

namespace krvtest {

class FullCallTable {
public:
    static constexpr std::size_t size = 1024;

    FullCallTable() : tokens(size)
    {
        for (Internal_GatewayToken_t& token : tokens) slots.push_back(enterCall(&token));
    }
    ~FullCallTable()
    {
        for (CallSlot* slot : slots)
            if (slot) leaveCall(slot);
    }
    FullCallTable(const FullCallTable&) = delete;
    FullCallTable& operator=(const FullCallTable&) = delete;

    std::vector<Internal_GatewayToken_t> tokens;
    std::vector<CallSlot*> slots;
};

} // namespace krvtest
