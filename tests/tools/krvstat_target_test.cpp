// The texts that name a gateway.

#include "target.h"

#include <gtest/gtest.h>

namespace {

TEST(KrvstatTarget, IsTheGatewayOfThisMachineUnlessToldOtherwise)
{
    EXPECT_EQ(targetText(Target()), "127.0.0.1:7845");
}

struct GoodTarget {
    const char* text;
    const char* host;
    int port;
    const char* written;
};

void PrintTo(const GoodTarget& target, std::ostream* out)
{
    *out << target.text;
}

class GoodTargets : public testing::TestWithParam<GoodTarget> {};

TEST_P(GoodTargets, AreReadAndWritten)
{
    const GoodTarget& expected = GetParam();
    Target target;
    EXPECT_EQ(readTarget(expected.text, &target), "");
    EXPECT_EQ(target.host, expected.host);
    EXPECT_EQ(target.port, expected.port);
    EXPECT_EQ(targetText(target), expected.written);
}

INSTANTIATE_TEST_SUITE_P(KrvstatTarget, GoodTargets,
    testing::Values(GoodTarget{"gw", "gw", 7845, "gw:7845"},
        GoodTarget{"gw1.example.com:80", "gw1.example.com", 80, "gw1.example.com:80"},
        GoodTarget{"my_gw-2:1", "my_gw-2", 1, "my_gw-2:1"},
        GoodTarget{"10.0.0.1:65535", "10.0.0.1", 65535, "10.0.0.1:65535"}, GoodTarget{"gw:00080", "gw", 80, "gw:80"},
        GoodTarget{"[::1]", "::1", 7845, "[::1]:7845"}, GoodTarget{"[::1]:9", "::1", 9, "[::1]:9"},
        GoodTarget{"::1", "::1", 7845, "[::1]:7845"}, GoodTarget{"::1:9", "::1:9", 7845, "[::1:9]:7845"},
        GoodTarget{"fe80::1%eth0", "fe80::1%eth0", 7845, "[fe80::1%eth0]:7845"},
        GoodTarget{"[fe80::1%eth0]:9", "fe80::1%eth0", 9, "[fe80::1%eth0]:9"}));

struct BadTarget {
    const char* text;
    const char* problem;
};

void PrintTo(const BadTarget& target, std::ostream* out)
{
    *out << target.text;
}

class BadTargets : public testing::TestWithParam<BadTarget> {};

TEST_P(BadTargets, AreRefusedInWordsAndLeaveTheTargetAlone)
{
    Target target{"before", 42};
    EXPECT_EQ(readTarget(GetParam().text, &target), GetParam().problem);
    EXPECT_EQ(target.host, "before");
    EXPECT_EQ(target.port, 42);
}

constexpr const char* NoHost = "the host is missing";
constexpr const char* NoPort = "the port behind ':' is missing";
constexpr const char* NotANumber = "the port is not a number";
constexpr const char* OutOfRange = "the port is not in the range 1 to 65535";
constexpr const char* NotAName = "a host name consists of letters, digits, '.', '-' and '_'";
constexpr const char* NotAnAddress = "what stands between '[' and ']' is not an IPv6 address";
constexpr const char* Garbage = "behind ']' only ':' and a port may follow";
constexpr const char* Neither = "it is neither HOST, HOST:PORT, [IPV6]:PORT nor an IPv6 address";

INSTANTIATE_TEST_SUITE_P(KrvstatTarget, BadTargets,
    testing::Values(BadTarget{"", NoHost}, BadTarget{":7845", NoHost}, BadTarget{":", NoHost}, BadTarget{"gw:", NoPort},
        BadTarget{"[::1]:", NoPort}, BadTarget{"gw:http", NotANumber}, BadTarget{"gw:80x", NotANumber},
        BadTarget{"gw:80 ", NotANumber}, BadTarget{"gw: 80", NotANumber}, BadTarget{"gw:+80", NotANumber},
        BadTarget{"gw:-80", NotANumber}, BadTarget{"gw:0x50", NotANumber}, BadTarget{"gw:0", OutOfRange},
        BadTarget{"gw:65536", OutOfRange}, BadTarget{"gw:99999999999999999999", OutOfRange},
        BadTarget{"[::1]:0", OutOfRange}, BadTarget{"[::1]:65536", OutOfRange}, BadTarget{"g w", NotAName},
        BadTarget{"gw/stats", NotAName}, BadTarget{"user@gw:80", NotAName}, BadTarget{"gw\n", NotAName},
        BadTarget{"gw]", NotAName}, BadTarget{"[]", NotAnAddress}, BadTarget{"[gw]:80", NotAnAddress},
        BadTarget{"[127.0.0.1]:80", NotAnAddress}, BadTarget{"[::1%]", NotAnAddress},
        BadTarget{"[::1", "']' is missing"}, BadTarget{"[::1]80", Garbage}, BadTarget{"[::1] ", Garbage},
        BadTarget{"gw:80:90", Neither}, BadTarget{"http://gw:80", Neither}, BadTarget{"::1%", Neither},
        BadTarget{"::g", Neither}, BadTarget{":::1", Neither}));

} // namespace
