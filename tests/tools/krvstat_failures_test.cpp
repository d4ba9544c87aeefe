// The words and the exit code for every code that a conversation can end with; most cannot be had from a gateway on
// the same machine.

#include "failures.h"

#include "krvstats.h"

#include <gtest/gtest.h>

namespace {

struct Row {
    int code;
    Stage stage;
    ExitCode exitCode;
    const char* sentence;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.code;
}

class KrvstatFailures : public testing::TestWithParam<Row> {};

TEST_P(KrvstatFailures, AreSaidInWordsWithHostAndPort)
{
    const Failure failure = describeFailure({GetParam().code, GetParam().stage, false}, Target{"gw", 99});
    EXPECT_EQ(failure.exitCode, GetParam().exitCode);
    EXPECT_EQ(failure.sentence, GetParam().sentence);
}

INSTANTIATE_TEST_SUITE_P(Rows, KrvstatFailures,
    testing::Values(Row{KRVSTAT_HOST_NOT_RESOLVED, Stage::Connecting, ExitCannotConnect,
                        "cannot connect to gw:99: the host name could not be resolved"},
        Row{KRVSTAT_CONNECTION_REFUSED, Stage::Connecting, ExitCannotConnect,
            "cannot connect to gw:99: connection refused; no gateway listens there"},
        Row{KRVSTAT_HOST_NOT_RESOLVED, Stage::LookingUp, ExitCannotConnect,
            "cannot connect to gw:99: the host name could not be resolved"},
        Row{KRVSTAT_CONNECT_TIMEOUT, Stage::Connecting, ExitDeadline,
            "cannot connect to gw:99: no answer within the time given"},
        Row{KRVSTAT_NETWORK_UNREACHABLE, Stage::Connecting, ExitCannotConnect,
            "cannot connect to gw:99: the network is unreachable"},
        Row{KRVSTAT_CONNECT_FAILED, Stage::Connecting, ExitCannotConnect,
            "cannot connect to gw:99: the connection failed, or whoever answered did not greet us as a gateway does"},
        Row{KRVSTAT_GATEWAY_COMMS_FAILED, Stage::Connecting, ExitExchange,
            "connected to gw:99, but the question for its protocol version could not be sent or was refused"},
        Row{KRVSTAT_GATEWAY_PROTOCOL_ERROR, Stage::Connecting, ExitExchange,
            "connected to gw:99, but it closed the connection or sent a bad reply when asked for its protocol version"},
        Row{KRVSTAT_GATEWAY_COMMS_FAILED, Stage::Asking, ExitExchange,
            "the request to gw:99 could not be sent: the gateway has closed the connection"},
        Row{KRVSTAT_GATEWAY_PROTOCOL_ERROR, Stage::Asking, ExitExchange,
            "the request to gw:99 failed: the gateway closed the connection, reported an error or sent a bad reply"},
        Row{KRVSTAT_OUT_OF_MEMORY, Stage::Connecting, ExitInternal, "out of memory while connecting to gw:99"},
        Row{KRVSTAT_OUT_OF_MEMORY, Stage::Asking, ExitInternal, "out of memory while asking gw:99"},
        Row{KRVSTAT_GTL_CORRUPT, Stage::Connecting, ExitInternal,
            "unexpected return code -115 (KRVSTAT_GTL_CORRUPT) of the statistics library while connecting to gw:99"},
        Row{KRVSTAT_WRONG_RESULT_SET_CONTENT, Stage::Asking, ExitInternal,
            "unexpected return code -119 (KRVSTAT_WRONG_RESULT_SET_CONTENT) of the statistics library while asking "
            "gw:99"}));

TEST(KrvstatFailureWords, SayWhatTookTooLong)
{
    struct Late {
        int code;
        Stage stage;
        const char* sentence;
    };
    for (const Late& late :
        {Late{KRVSTAT_HOST_NOT_RESOLVED, Stage::LookingUp,
             "cannot connect to gw:99: its name was not looked up within the time given"},
            Late{KRVSTAT_CONNECT_FAILED, Stage::Connecting, "cannot connect to gw:99: no answer within the time given"},
            Late{KRVSTAT_GATEWAY_PROTOCOL_ERROR, Stage::Asking, "gw:99 did not answer within the time given"}}) {
        const Failure failure = describeFailure({late.code, late.stage, true}, Target{"gw", 99});
        EXPECT_EQ(failure.exitCode, ExitDeadline);
        EXPECT_EQ(failure.sentence, late.sentence);
    }
}

TEST(KrvstatFailureWords, PutIpv6AddressesIntoBrackets)
{
    const Failure failure = describeFailure({KRVSTAT_CONNECTION_REFUSED, Stage::Connecting, false}, Target{"::1", 99});
    EXPECT_EQ(failure.sentence, "cannot connect to [::1]:99: connection refused; no gateway listens there");
}

} // namespace
