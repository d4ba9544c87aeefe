// How results of an exchange become return codes of the API, rows included that no peer can provoke.
#include <gtest/gtest.h>

#include "stapi_krv_statquery.h"

TEST(CommsResult, IsMapped)
{
    const struct {
        int rc;
        std::int32_t gatewayRc;
        int mapped;
    } rows[] = {
        {0, 0, 0},           // success
        {0, 61444, 0},       // whatever the reasons say
        {-1, 0, -102},       // nothing could be sent
        {-1, 61444, -102},   //
        {-4, 61444, -102},   // the gateway does not accept statistics requests
        {-4, 0, -122},       // any other
        {-4, 61443, -122},   //
        {-4, -4, -122},      //
        {-2, 61444, -122},   //
        {-3, 61444, -122},   // failed in the gateway
        {-5, 61444, -122},   //
        {4, 61444, -122},    //
        {61444, 61444, -122},
        {-111, 0, -122},     // no memory
        {-122, 0, -122},     // bad reply
        {-102, 0, -122},     //
        {-103, 0, -122},     //
        {1, 0, -122},
    };
    for (const auto& row : rows) {
        ReasonCodes reasons{};
        reasons.gatewayRc = row.gatewayRc;
        EXPECT_EQ(row.mapped, mapCommsResult(row.rc, &reasons)) << row.rc << " with " << row.gatewayRc;
    }
}
