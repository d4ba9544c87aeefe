// Conversations that fail: what krvstat says and the exit code.

#include "deaf_port.h"
#include "krvstat_fixture.h"

namespace {

TEST(KrvstatConversations, ARefusedConnectionIsSaid)
{
    const DeafPort deaf;
    const std::string target = deaf.target();
    for (const char* command : {"groups", "ids", "get"}) {
        const ProgramRun got = runKrvstat({"-t", target, command});
        EXPECT_EQ(got.exitCode, 4);
        EXPECT_EQ(got.output, "");
        EXPECT_EQ(
            got.errors, "krvstat: cannot connect to " + target + ": connection refused; no gateway listens there\n");
    }
}

TEST(KrvstatConversations, AnUnknownHostIsSaid)
{
    const std::string host(64, 'x'); // a label has 63 characters at most: no resolver asks anyone for this name
    const ProgramRun got = runKrvstat({"-t", host + ":7", "get"});
    EXPECT_EQ(got.exitCode, 4);
    EXPECT_EQ(got.output, "");
    EXPECT_EQ(got.errors, "krvstat: cannot connect to " + host + ":7: the host name could not be resolved\n");
}

struct Misbehaviour {
    const char* name;  // of the test
    const char* given; // to the gateway
    const char* command;
    int exitCode;
    const char* before; // the target in the message
    const char* after;
};

void PrintTo(const Misbehaviour& misbehaviour, std::ostream* stream)
{
    *stream << misbehaviour.given;
}

class KrvstatMisbehaviours : public KrvstatWithGateway, public testing::WithParamInterface<Misbehaviour> {};

TEST_P(KrvstatMisbehaviours, AreSaidAndLeaveNothingOnStandardOutput)
{
    serve(FixedScenario, {GetParam().given});
    const ProgramRun got = run({GetParam().command});
    EXPECT_EQ(got.exitCode, GetParam().exitCode);
    EXPECT_EQ(got.output, "");
    EXPECT_EQ(got.errors, std::string("krvstat: ") + GetParam().before + target() + GetParam().after + "\n");
}

constexpr const char* NoGateway = ": the connection failed, or whoever answered did not greet us as a gateway does";
constexpr const char* NoVersion =
    ", but it closed the connection or sent a bad reply when asked for its protocol version";
constexpr const char* NoAnswer = " failed: the gateway closed the connection, reported an error or sent a bad reply";

INSTANTIATE_TEST_SUITE_P(Each, KrvstatMisbehaviours,
    testing::Values(Misbehaviour{"ClosedOnAccept", "close-on-accept", "get", 4, "cannot connect to ", NoGateway},
        Misbehaviour{"NoGreeting", "close-before@handshake", "get", 4, "cannot connect to ", NoGateway},
        Misbehaviour{"StrangeGreeting", "bad-eyecatcher@handshake", "get", 4, "cannot connect to ", NoGateway},
        Misbehaviour{"RefusedAuthorisation", "refuse-auth@auth1", "get", 4, "cannot connect to ", NoGateway},
        Misbehaviour{
            "ClosedBeforeTheSecondAuthorisation", "close-before@auth2", "ids", 4, "cannot connect to ", NoGateway},
        Misbehaviour{"ClosedBeforeTheVersion", "close-before@attribute", "groups", 6, "connected to ", NoVersion},
        Misbehaviour{"RefusedVersion", "refuse-admin@attribute", "groups", 6, "connected to ", NoVersion},
        Misbehaviour{"ClosedBeforeGroups", "close-before@resource-groups", "groups", 6, "the request to ", NoAnswer},
        Misbehaviour{"BadEyecatcher", "bad-eyecatcher@stat-ids", "ids", 6, "the request to ", NoAnswer},
        Misbehaviour{"CutStatistics", "close-at=-1@get-stats", "get", 6, "the request to ", NoAnswer},
        Misbehaviour{"Exception", "exception@get-stats", "get", 6, "the request to ", NoAnswer},
        Misbehaviour{"GatewayCode", "header-rc=9@get-stats", "get", 6, "the request to ", NoAnswer}),
    [](const testing::TestParamInfo<Misbehaviour>& each) { return each.param.name; });

class KrvstatGoodbye : public KrvstatWithGateway {};

TEST_F(KrvstatGoodbye, AGatewayThatDoesNotAnswerItSpoilsNoAnswer)
{
    serve(FixedScenario, {"close-before@close"});
    const ProgramRun got = run({"get", "cpu.user"});
    EXPECT_EQ(got.exitCode, 0);
    EXPECT_EQ(got.output, "STATISTIC  VALUE\ncpu.user   1200\n");
    EXPECT_EQ(got.errors, "");
}

} // namespace
