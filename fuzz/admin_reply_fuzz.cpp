// The replies to an init call and to an invoke call, headers and all.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "allocations.h"
#include "checks.h"
#include "prepared_gateway.h"
#include "stapi_krv_socketcomms.h"
#include "stapi_krv_statcomms.h"
#include "stream_model.h"

using namespace krvfuzz;

namespace {

// As every query fills it.
void fillInvoke(AdminRequest& request)
{
    releaseBlock(request.callData);
    request.callData = nullptr;
    request.header.flowType = 1;
    request.header.gatewayRc = 0;
    request.header.requestType = "Admin";
    request.callType = 5;
    request.adminRc = 0;
    request.clientCountry = "US";
    request.clientLanguage = "en";
    request.clientVariant = "";
    request.objectName = STATS_MBEAN_NAME;
    request.invokeAction = "GET_STATS";
    request.invokeParms = "";
    request.invokeSigs = STATS_MBEAN_SIG;
    request.callInfoLength = calculateCallLength(request);
    request.header.datalength = request.callInfoLength + 12;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > mostBytes) return -1;
    krvtest::Stream stream{Bytes(data, data + size), largestBlock};
    PreparedGateway gateway(stream.bytes);
    AdminRequest request = {};
    ReasonCodes reasons = {};
    int rc = getInitAdminRequest(gateway.client(), &request, &reasons);
    if (rc == 0) {
        fillInvoke(request);
        rc = flowAdminRequest(gateway.client(), &request, &reasons);
    }
    const krvtest::ModelCall expected = krvtest::modelAdminCalls(stream);
    requireCode(expected.rc, rc, "the two admin calls");
    if (rc == 0) {
        require(expected.data.has_value() == (request.callData != nullptr), "there is data where the reply carries any");
    }
    if (rc == 0 && request.callData) {
        require(static_cast<std::size_t>(request.header.datalength) == expected.data->size(), "all of the data is there");
        require(expected.data->empty()
                    || std::memcmp(request.callData, expected.data->data(), expected.data->size()) == 0,
                "the data is the reply's");
    }
    releaseBlock(request.callData);
    return 0;
}
