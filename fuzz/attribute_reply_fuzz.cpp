// The replies to an init call and to the call that gets the protocol version, headers and all.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "allocations.h"
#include "checks.h"
#include "prepared_gateway.h"
#include "stapi_krv_statcomms.h"
#include "stream_model.h"

using namespace krvfuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > mostBytes) return -1;
    krvtest::Stream stream{Bytes(data, data + size), largestBlock};
    PreparedGateway gateway(stream.bytes);
    Internal_GatewayToken_t token = {};
    token.socketDescriptor = gateway.client();
    token.protocolVersion = static_cast<char*>(ownBlock(PROTOCOL_VERSION_SIZE));
    ReasonCodes reasons = {};
    const int rc = statProtocolVer(&token, &reasons);
    const krvtest::ModelVersion expected = krvtest::modelVersion(stream);
    requireCode(expected.rc, rc, "statProtocolVer");
    if (rc == 0) {
        require(std::memcmp(token.protocolVersion, expected.text.c_str(), expected.text.size() + 1) == 0,
                "the version is the reply's");
    }
    releaseBlock(token.protocolVersion);
    return 0;
}
