// The program krvgwsim as others use it: options, ready signal, transcript, many clients, bad clients, its end.
#include "fixed_width_reader.h"
#include "gateway_process.h"
#include "random.h"
#include "raw_client.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>

using krvgwtest::GatewayExit;
using krvgwtest::GatewayProcess;
using krvgwtest::Left;
using krvgwtest::RawClient;
using krvgwtest::readResult;
using krvgwtest::ResultKind;
using krvtest::Bytes;
using krvtest::hex;
using krvtest::operator+;

namespace {

const std::vector<std::string> TEST_SCENARIO = {"--scenario", KRVGW_SCENARIOS "/tests.yaml"};

std::vector<std::string> with(std::vector<std::string> arguments, const std::vector<std::string>& more)
{
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

std::string lowerHex(const Bytes& bytes)
{
    std::string text;
    char pair[3];
    for (const unsigned char byte : bytes) {
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

std::string valueOf(RawClient& client, const std::string& id)
{
    const auto result = readResult(client.invoke("GET_STATS", id), ResultKind::Stats);
    if (!result.isWhole || result.responses.size() != 1 || result.responses[0].elements.size() != 1) return "nothing";
    return result.responses[0].elements[0].value;
}

// Is there still a gateway that serves?
void expectServing(const GatewayProcess& gateway)
{
    RawClient client(gateway.port);
    EXPECT_TRUE(client.open());
    EXPECT_TRUE(client.leave());
}

// A scenario file of the test's own.
struct ScenarioFile {
    explicit ScenarioFile(const std::string& yaml)
    {
        std::string name = (std::filesystem::temp_directory_path() / "krvgw-scenario-XXXXXX").string();
        folder = mkdtemp(name.data());
        path = folder / "scenario.yaml";
        std::ofstream(path) << yaml;
    }
    ~ScenarioFile() { std::filesystem::remove_all(folder); }
    ScenarioFile(const ScenarioFile&) = delete;
    ScenarioFile& operator=(const ScenarioFile&) = delete;

    std::filesystem::path folder;
    std::filesystem::path path;
};

struct Output {
    std::string text;
    int code = -1;
};

Output outputOf(const std::string& options)
{
    Output output;
    FILE* stream = popen((std::string(KRVSTATS_GATEWAY_PROGRAM) + " " + options + " 2>&1").c_str(), "r");
    char piece[4096];
    for (std::size_t got = fread(piece, 1, sizeof piece, stream); got > 0; got = fread(piece, 1, sizeof piece, stream))
        output.text.append(piece, got);
    const int status = pclose(stream);
    if (WIFEXITED(status)) output.code = WEXITSTATUS(status);
    return output;
}

}  // namespace

TEST(Program, ThePortFileIsTheReadySignal)
{
    const GatewayProcess gateway(TEST_SCENARIO);
    ASSERT_GT(gateway.port, 0);
    EXPECT_FALSE(std::filesystem::exists(gateway.folder / "port.new"));
    std::ifstream file(gateway.folder / "port");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, std::to_string(gateway.port) + "\n");
    expectServing(gateway);
}

TEST(Program, AWholeConversationIsWrittenToTheTranscript)
{
    GatewayProcess gateway(with(TEST_SCENARIO, {"--strict", "--misbehave", "opaque=010203040506070811121314@auth1",
                                                "--misbehave", "opaque=2122232425262728@auth2", "--misbehave",
                                                "opaque=31323334@init"}));
    RawClient client(gateway.port);
    ASSERT_TRUE(client.open());
    EXPECT_EQ(client.version, "1.1.0-test");
    ASSERT_NE(client.invoke("STAT_IDS", "broken"), Bytes());
    ASSERT_TRUE(client.leave());
    EXPECT_TRUE(gateway.waitForLine("1 --- - closed"));
    const GatewayExit ended = gateway.stop(SIGTERM);
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.errors, "");

    const Bytes map = hex("01 02 03 04 05 06 07 08");
    const Bytes version = hex("11 12 13 14");
    const Bytes returned = hex("21 22 23 24 25 26 27 28");
    const Bytes serverVersion = hex("31 32 33 34");
    const Bytes init = krvtest::adminInitReply(serverVersion);
    const Bytes attribute = krvtest::adminCallReply(1, hex("00 AC ED 00 05 74 00 0A") + krvtest::text("1.1.0-test"));
    const Bytes ids = krvtest::adminCallReply(
        5, hex("00")                                                         // no array
               + hex("AC ED 00 05 73 72") + krvtest::counted("com.qal.krv.stats.IdsQueryResponse")
               + hex("2C 3D 4E 5F 60 71 82 93 0C 00 00 78 72") + krvtest::counted("com.qal.krv.stats.QueryResponse")
               + hex("3D 4E 5F 60 71 82 93 A4 0C 00 00 78 70")
               + hex("77 0C") + krvtest::counted("broken") + hex("FF FF FF FB") + hex("78"));
    const std::vector<std::string> expected = {
        "1 --- - accepted",
        "1 C>G handshake " + lowerHex(krvtest::handshakeRequest()),
        "1 G>C handshake 47617465007000000000000500000000000000000000000442415345000000001200"
            "02656e0002474200000000000000000000",
        "1 C>G auth1 " + lowerHex(krvtest::authInitRequest()),
        "1 *** auth1 opaque=010203040506070811121314@auth1",
        "1 G>C auth1 " + lowerHex(krvtest::authInitReply(map, version)),
        "1 C>G auth2 " + lowerHex(krvtest::authConfirmRequest(map, version)),
        "1 *** auth2 opaque=2122232425262728@auth2",
        "1 G>C auth2 " + lowerHex(krvtest::authConfirmReply(returned)),
        "1 C>G init " + lowerHex(krvtest::adminInitRequest()),
        "1 *** init opaque=31323334@init",
        "1 G>C init " + lowerHex(init),
        "1 C>G attribute " + lowerHex(krvtest::getProtocolRequest(serverVersion)),
        "1 G>C attribute " + lowerHex(attribute),
        "1 C>G init " + lowerHex(krvtest::adminInitRequest()),
        "1 *** init opaque=31323334@init",
        "1 G>C init " + lowerHex(init),
        "1 C>G stat-ids " + lowerHex(krvtest::invokeRequest(serverVersion, "STAT_IDS", "broken")),
        "1 G>C stat-ids " + lowerHex(ids),
        "1 C>G close " + lowerHex(krvtest::closeRequest()),
        "1 G>C close 47617465007000000000000affffffff0000000000000004424153450000000000",
        "1 --- - left",
        "1 --- - closed",
    };
    EXPECT_EQ(gateway.transcript(), expected);
}

TEST(Program, ScenarioValuesArriveAsTheyAreWritten)
{
    const GatewayProcess gateway(with(TEST_SCENARIO, {"--strict"}));
    RawClient client(gateway.port);
    ASSERT_TRUE(client.open());
    const auto groups = readResult(client.invoke("RESOURCE_GROUPS", ""), ResultKind::Ids);
    ASSERT_TRUE(groups.isWhole);
    const std::vector<krvgwtest::ReadElement> expected = {
        {"alpha", ""}, {"sizes", ""}, {"empty", ""}, {"broken", ""}, {"warned", ""}};
    EXPECT_EQ(groups.responses.at(0).elements, expected);

    const auto sizes = readResult(client.invoke("GET_STATS", "sizes"), ResultKind::Stats);
    ASSERT_TRUE(sizes.isWhole);
    const std::size_t lengths[] = {242, 243, 1011, 1012, 2035, 32767, 700};
    ASSERT_EQ(sizes.responses.at(0).elements.size(), std::size(lengths));
    for (std::size_t i = 0; i < std::size(lengths); ++i)
        EXPECT_EQ(sizes.responses[0].elements[i].value.size(), lengths[i]);
    EXPECT_EQ(sizes.responses[0].elements[6].value.substr(690), "xyzxyzxyzx");

    const Bytes data = client.invoke("GET_STATS", "empty:broken:warned:alpha.refused:no");
    const auto mixed = readResult(data, ResultKind::Stats);
    ASSERT_TRUE(mixed.isWhole);
    const std::vector<krvgwtest::ReadResponse> wanted = {
        {"empty", 0, {}}, {"broken", -5, {}}, {"warned", 4, {{"warned.one", "1"}}}, {"alpha.refused", -17, {}},
        {"no", -1001, {}}};
    EXPECT_EQ(mixed.responses, wanted);
    EXPECT_EQ(valueOf(client, "alpha.count"), "114");
    EXPECT_TRUE(client.leave());
}

TEST(Program, LiveStatisticsChange)
{
    const GatewayProcess gateway({"--strict"});
    RawClient client(gateway.port);
    ASSERT_TRUE(client.open());
    EXPECT_EQ(valueOf(client, "gateway.requests.get-stats"), "1");
    EXPECT_EQ(valueOf(client, "gateway.requests.get-stats"), "2");
    EXPECT_EQ(valueOf(client, "gateway.connections_accepted"), "1");
    EXPECT_EQ(valueOf(client, "gateway.connections_open"), "1");
    EXPECT_EQ(valueOf(client, "process.pid"), std::to_string(gateway.pid));
    const auto everything = readResult(client.invoke("GET_STATS", ""), ResultKind::Stats);
    EXPECT_TRUE(everything.isWhole);
    EXPECT_GT(everything.responses.at(0).elements.size(), 30u);
    EXPECT_TRUE(client.leave());
}

TEST(Program, AHundredThousandStatisticsArriveWhole)
{
    const ScenarioFile file(
        "groups: [{ id: g, statistics: [{ id: 's{n}', value: 'v{n}', repeat: { count: 100000 } }] }]\n");
    const GatewayProcess gateway({"--scenario", file.path});
    RawClient client(gateway.port);
    ASSERT_TRUE(client.open());
    const auto result = readResult(client.invoke("GET_STATS", ""), ResultKind::Stats);
    ASSERT_TRUE(result.isWhole);
    ASSERT_EQ(result.responses.at(0).elements.size(), 100000u);
    EXPECT_EQ(result.responses[0].elements[99999], (krvgwtest::ReadElement{"s100000", "v100000"}));
    const auto ids = readResult(client.invoke("STAT_IDS", "g"), ResultKind::Ids);
    ASSERT_TRUE(ids.isWhole);
    EXPECT_EQ(ids.responses.at(0).elements.size(), 100000u);
}

TEST(Program, ManyConnectionsAreServedAtOnceEachFromItsStart)
{
    const GatewayProcess gateway(with(TEST_SCENARIO, {"--strict"}));
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 50; ++i) {
        clients.push_back(std::make_unique<RawClient>(gateway.port));
        ASSERT_TRUE(clients.back()->greet());
    }
    for (const auto& client : clients) ASSERT_TRUE(client->authorise());
    for (const auto& client : clients) EXPECT_EQ(valueOf(*client, "alpha.count"), "100");
    for (const auto& client : clients) EXPECT_EQ(valueOf(*client, "alpha.count"), "107");
    for (const auto& client : clients) EXPECT_TRUE(client->leave());
}

TEST(Program, ItListensOnTheIpv6Loopback)
{
    const GatewayProcess gateway({"--bind", "::1"});
    ASSERT_GT(gateway.port, 0);
    RawClient client(gateway.port, "::1");
    EXPECT_TRUE(client.open());
    EXPECT_TRUE(client.leave());
}

TEST(Program, SignalsEndItWhateverItsConnectionsDo)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        GatewayProcess gateway(with(TEST_SCENARIO, {"--misbehave", "delay=60000@handshake%4", "--misbehave",
                                                    "stall-at=5@handshake%5", "--misbehave", "no-answer@handshake%6"}));
        RawClient idle(gateway.port);
        ASSERT_TRUE(idle.open());
        RawClient silent(gateway.port);
        RawClient halfway(gateway.port);
        ASSERT_TRUE(halfway.send(hex("47 61 74 65 00")));
        ASSERT_TRUE(gateway.waitForLine("3 --- - accepted"));
        RawClient delayed(gateway.port);
        ASSERT_TRUE(delayed.send(krvtest::handshakeRequest()));
        ASSERT_TRUE(gateway.waitForLine("4 *** handshake delay=60000@handshake%4"));
        RawClient stalled(gateway.port);
        ASSERT_TRUE(stalled.send(krvtest::handshakeRequest()));
        ASSERT_TRUE(gateway.waitForLine("5 *** handshake stall-at=5@handshake%5"));
        RawClient unanswered(gateway.port);
        ASSERT_TRUE(unanswered.send(krvtest::handshakeRequest()));
        ASSERT_TRUE(gateway.waitForLine("6 *** handshake no-answer@handshake%6"));
        EXPECT_EQ(gateway.stop(signal).code, 0);
        EXPECT_EQ(idle.receive(1).left, Left::Closed);
    }
}

TEST(Program, ASignalEndsItWhileAReplyIsNotRead)
{
    const ScenarioFile file("groups:\n"
                            "  - id: g\n"
                            "    statistics:\n"
                            "      - { id: 's{n}', text: { repeat: x, length: 30000 }, repeat: { count: 1000 } }\n");
    GatewayProcess gateway({"--scenario", file.path});
    RawClient client(gateway.port);
    ASSERT_TRUE(client.open());
    ASSERT_TRUE(client.sendInvoke("GET_STATS", ""));
    ASSERT_EQ(client.receive(34).left, Left::Open);      // 30 MB more do not fit between the two
    EXPECT_EQ(gateway.stop(SIGTERM).code, 0);
}

TEST(Program, StrictBlamesAClientThatWasWrong)
{
    Bytes wrong = krvtest::handshakeRequest();
    wrong[7] = 1;
    for (const bool isStrict : {true, false}) {
        GatewayProcess gateway(isStrict ? std::vector<std::string>{"--strict"} : std::vector<std::string>{});
        RawClient client(gateway.port);
        const auto reply = client.exchange(wrong, 4);
        ASSERT_EQ(reply.bytes.size(), 33u);
        EXPECT_EQ(krvtest::wordAt(reply.bytes, 16), 9001);
        EXPECT_EQ(client.receive(1).left, Left::Closed);
        const std::string complaint = "header: flow version is 0x00700001 instead of 0x00700000";
        EXPECT_TRUE(gateway.waitForLine("1 !!! handshake " + complaint));
        const GatewayExit ended = gateway.stop(SIGTERM);
        EXPECT_EQ(ended.code, isStrict ? 1 : 0);
        EXPECT_TRUE(ended.errors.starts_with("krvgwsim: connection 1: handshake: " + complaint + "\n")) << ended.errors;
    }
}

TEST(Program, StrictDoesNotBlameAClientThatJustLeaves)
{
    GatewayProcess gateway({"--strict"});
    {
        RawClient client(gateway.port);
        ASSERT_TRUE(client.open());
    }
    EXPECT_TRUE(gateway.waitForLine("1 --- - left without close"));
    EXPECT_EQ(gateway.stop(SIGTERM).code, 0);
}

TEST(Program, AClientThatVanishesInsideAMessageHarmsNobody)
{
    GatewayProcess gateway({"--strict"});
    const Bytes request = krvtest::handshakeRequest();
    for (std::size_t size = 1; size < request.size(); ++size) {
        RawClient client(gateway.port);
        ASSERT_TRUE(client.send(krvtest::slice(request, 0, size)));
        client.close();
        EXPECT_TRUE(gateway.waitForLine(std::to_string(size) + " !!! unknown the message ends behind "
                                        + std::to_string(size) + " bytes"));
    }
    expectServing(gateway);
    EXPECT_EQ(gateway.stop(SIGTERM).code, 1);
}

TEST(Program, GarbageHarmsNobody)
{
    GatewayProcess gateway({});
    std::uint64_t random = 20240607;
    SCOPED_TRACE("seed 20240607");
    for (int round = 0; round < 60; ++round) {
        Bytes bytes(krvgw::nextRandom(random) % 300 + 30);
        for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(krvgw::nextRandom(random));
        // Every second one passes the first check.
        const auto size = static_cast<std::int32_t>(bytes.size());
        if (round % 2 == 0) bytes = krvtest::requestHeader(1, 0, "Admin", size) + bytes;
        RawClient client(gateway.port);
        client.send(bytes);
        const auto reply = client.receive(34);
        EXPECT_NE(reply.left, Left::TimedOut);
        const bool isRefusal = reply.bytes.size() == 34 && krvtest::wordAt(reply.bytes, 16) == 9001;
        EXPECT_TRUE(reply.left != Left::Open || isRefusal);
    }
    expectServing(gateway);
    EXPECT_EQ(gateway.stop(SIGTERM).code, 0);
}

TEST(Program, HugeClaimsOfAClientAreNotBelieved)
{
    const GatewayProcess gateway({});
    RawClient longName(gateway.port);
    longName.send(hex("47 61 74 65 00 70 00 00 00 00 00 05 00 00 00 00 00 00 00 00 7F FF FF FF"));
    EXPECT_EQ(longName.receive(1).left, Left::Closed);
    EXPECT_TRUE(gateway.waitForLine("1 !!! unknown header: name length 0x7FFFFFFF is above 64"));
    RawClient longBody(gateway.port);
    longBody.send(krvtest::requestHeader(5, 0, "BASE", 1024 * 1024 + 1));
    EXPECT_EQ(longBody.receive(1).left, Left::Closed);
    EXPECT_TRUE(gateway.waitForLine("2 !!! unknown header: data length 0x00100001 is above 1048576"));
    RawClient negativeBody(gateway.port);
    negativeBody.send(krvtest::requestHeader(5, 0, "BASE", -1));
    EXPECT_EQ(negativeBody.receive(1).left, Left::Closed);
    EXPECT_TRUE(gateway.waitForLine("3 !!! unknown header: data length 0xFFFFFFFF is above 1048576"));
    RawClient eyecatcher(gateway.port);
    eyecatcher.send(krvtest::zeros(24));
    EXPECT_EQ(eyecatcher.receive(1).left, Left::Closed);
    EXPECT_TRUE(gateway.waitForLine("4 !!! unknown header: eyecatcher is 0x00000000 instead of 0x47617465"));
}

TEST(Program, OpaqueBytesGoByTheSeed)
{
    const auto authReplyWith = [](const std::vector<std::string>& arguments) {
        const GatewayProcess gateway(arguments);
        RawClient client(gateway.port);
        EXPECT_TRUE(client.greet());
        return client.exchange(krvtest::authInitRequest(), 4).bytes;
    };
    const Bytes first = authReplyWith({});
    EXPECT_EQ(first, authReplyWith({"--seed", "1"}));
    EXPECT_NE(first, authReplyWith({"--seed", "2"}));
    EXPECT_EQ(authReplyWith(TEST_SCENARIO), authReplyWith({"--seed", "2024"}));
    EXPECT_EQ(first, authReplyWith(with(TEST_SCENARIO, {"--seed", "1"})));
}

TEST(Program, TheVersionTextCanBeChosen)
{
    for (const std::string& text : {std::string(), std::string("7"), std::string(200, 'v')}) {
        const GatewayProcess gateway(with(TEST_SCENARIO, {"--protocol-version", text}));
        RawClient client(gateway.port);
        EXPECT_TRUE(client.open());
        EXPECT_EQ(client.version, text);
    }
}

TEST(Program, WhatItCannotUseEndsItWithTwo)
{
    GatewayProcess gateway({});
    struct Row {
        std::string options;
        std::string text;
    };
    const std::string port = std::to_string(gateway.port);
    const Row rows[] = {
        {"--port " + port, "krvgwsim: cannot listen on 127.0.0.1 port " + port + ": Address already in use\n"},
        {"--port 0 --misbehave nonsense", "krvgwsim: no misbehaviour is named \"nonsense\"\n"},
        {"--port 0 --scenario /nonexistent.yaml", "krvgwsim: cannot read /nonexistent.yaml\n"},
        {"--port 0 --transcript /nonexistent/t", "krvgwsim: cannot write /nonexistent/t\n"},
        {"--port 0 --port-file /nonexistent/p", "krvgwsim: cannot write /nonexistent/p\n"},
    };
    for (const Row& row : rows) {
        const Output output = outputOf(row.options);
        EXPECT_EQ(output.code, 2) << row.options;
        EXPECT_EQ(output.text, row.text);
    }
    EXPECT_EQ(outputOf("--nonsense").code, 2);
    EXPECT_EQ(outputOf("--port 65536").code, 2);
}

TEST(Program, ItListsItsMisbehavioursAndExplainsItself)
{
    const Output list = outputOf("--list-misbehaviours");
    EXPECT_EQ(list.code, 0);
    for (const char* name : {"no-answer", "delay[=MS]", "split=K[/MS]", "close-at=K", "reset-after", "huge-claim[=N]",
                             "bad-eyecatcher", "value-length", "response-count", "get-stats"})
        EXPECT_NE(list.text.find(name), std::string::npos) << name;
    const Output help = outputOf("--help");
    EXPECT_EQ(help.code, 0);
    for (const char* name : {"--bind", "--port", "--port-file", "--transcript", "--scenario", "--misbehave", "--seed",
                             "--strict", "C>G", "127.0.0.1", "7845"})
        EXPECT_NE(help.text.find(name), std::string::npos) << name;
}
