// The library's codes as sentences: one row a code that a conversation can end with.

#include "failures.h"

#include <fmt/format.h>

namespace {

struct FailureRow {
    int code;
    Stage stage;
    ExitCode exitCode;
    const char* words; // {} is the target
};

constexpr FailureRow FailureRows[] = {
    {KRVSTAT_HOST_NOT_RESOLVED, Stage::LookingUp, ExitCannotConnect,
        "cannot connect to {}: the host name could not be resolved"},
    {KRVSTAT_HOST_NOT_RESOLVED, Stage::Connecting, ExitCannotConnect,
        "cannot connect to {}: the host name could not be resolved"},
    {KRVSTAT_CONNECTION_REFUSED, Stage::Connecting, ExitCannotConnect,
        "cannot connect to {}: connection refused; no gateway listens there"},
    {KRVSTAT_CONNECT_TIMEOUT, Stage::Connecting, ExitDeadline, "cannot connect to {}: no answer within the time given"},
    {KRVSTAT_NETWORK_UNREACHABLE, Stage::Connecting, ExitCannotConnect,
        "cannot connect to {}: the network is unreachable"},
    {KRVSTAT_CONNECT_FAILED, Stage::Connecting, ExitCannotConnect,
        "cannot connect to {}: the connection failed, or whoever answered did not greet us as a gateway does"},
    {KRVSTAT_GATEWAY_COMMS_FAILED, Stage::Connecting, ExitExchange,
        "connected to {}, but the question for its protocol version could not be sent or was refused"},
    {KRVSTAT_GATEWAY_PROTOCOL_ERROR, Stage::Connecting, ExitExchange,
        "connected to {}, but it closed the connection or sent a bad reply when asked for its protocol version"},
    {KRVSTAT_GATEWAY_COMMS_FAILED, Stage::Asking, ExitExchange,
        "the request to {} could not be sent: the gateway has closed the connection"},
    {KRVSTAT_GATEWAY_PROTOCOL_ERROR, Stage::Asking, ExitExchange,
        "the request to {} failed: the gateway closed the connection, reported an error or sent a bad reply"},
    {KRVSTAT_OUT_OF_MEMORY, Stage::Connecting, ExitInternal, "out of memory while connecting to {}"},
    {KRVSTAT_OUT_OF_MEMORY, Stage::Asking, ExitInternal, "out of memory while asking {}"},
};

const char* wordsForLate(Stage stage)
{
    if (stage == Stage::LookingUp) return "cannot connect to {}: its name was not looked up within the time given";
    if (stage == Stage::Connecting) return "cannot connect to {}: no answer within the time given";
    return "{} did not answer within the time given";
}

} // namespace

Failure describeFailure(const CallResult& result, const Target& target)
{
    const std::string where = targetText(target);
    if (result.isLate) return {ExitDeadline, fmt::format(fmt::runtime(wordsForLate(result.stage)), where)};
    for (const FailureRow& row : FailureRows) {
        if (row.code == result.code && row.stage == result.stage) {
            return {row.exitCode, fmt::format(fmt::runtime(row.words), where)};
        }
    }
    return {ExitInternal,
        fmt::format("unexpected return code {} ({}) of the statistics library while {} {}", result.code,
            getReturnCodeName(result.code), result.stage == Stage::Asking ? "asking" : "connecting to", where)};
}
