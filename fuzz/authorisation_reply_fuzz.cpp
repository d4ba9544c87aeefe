// Both replies of the authorisation, headers and all.
#include <cstddef>
#include <cstdint>

#include "allocations.h"
#include "checks.h"
#include "prepared_gateway.h"
#include "stapi_krv_gwycon.h"
#include "stream_model.h"

using namespace krvfuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > mostBytes) return -1;
    krvtest::Stream stream{Bytes(data, data + size), largestBlock};
    PreparedGateway gateway(stream.bytes);
    ReasonCodes reasons = {};
    const int rc = authorizeConnection(gateway.client(), &reasons);
    requireCode(krvtest::modelAuthorisation(stream), rc, "authorizeConnection");
    // A gateway may give the code of a refusal in its reply's header, too.
    require(rc != -2 || reasons.authRc != 0 || reasons.gatewayRc == -2, "a refusal says why");
    return 0;
}
