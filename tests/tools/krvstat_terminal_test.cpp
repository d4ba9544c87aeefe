// krvstat on terminals of several sizes: width, colour, redrawing, and what must never reach them.

#include "krvstat_fixture.h"
#include "terminal.h"

#include <csignal>
#include <regex>

namespace {

class KrvstatTerminal : public KrvstatWithFixedGateway {
protected:
    Launch utf8(std::vector<std::string> arguments) const
    {
        Launch on = launch(std::move(arguments));
        on.environment.insert(on.environment.end(), {{"LC_ALL", "C.UTF-8"}, {"TERM", "xterm"}});
        return on;
    }
};

TEST_F(KrvstatTerminal, NarrowTablesAreCutAndWideOnesAreNot)
{
    const Launch asked =
        launch({"get", "-o", "wide", "cpu.model", "--time", "iso", "--utc", "--columns", "target,id,value"});
    Terminal narrow(24, 40);
    for (const std::string& line : krvtest::splitLines(narrow.run(asked))) EXPECT_LE(line.size(), 40U) << line;
    Terminal wide(24, 200);
    EXPECT_EQ(wide.run(asked), runProgram(asked).output);
    Terminal unknown(0, 0); // a terminal that does not know its size
    EXPECT_EQ(unknown.run(asked), runProgram(asked).output);
}

TEST_F(KrvstatTerminal, ColoursAreForTerminalsUnlessTheEnvironmentSaysOtherwise)
{
    const std::string bold = "\x1b[1mSTATISTIC";
    const auto isColoured = [&](std::vector<std::pair<std::string, std::string>> environment) {
        Launch asked = utf8({"get", "cpu.user"});
        asked.environment.insert(asked.environment.end(), environment.begin(), environment.end());
        Terminal terminal(24, 80);
        return terminal.run(asked).find(bold) != std::string::npos;
    };
    EXPECT_TRUE(isColoured({}));
    EXPECT_FALSE(isColoured({{"NO_COLOR", "1"}}));
    EXPECT_FALSE(isColoured({{"TERM", "dumb"}}));

    Launch piped = utf8({"get", "cpu.user"});
    EXPECT_EQ(runProgram(piped).output.find('\x1b'), std::string::npos);
    piped.environment.emplace_back("CLICOLOR_FORCE", "1");
    EXPECT_NE(runProgram(piped).output.find(bold), std::string::npos);
    piped.environment.emplace_back("NO_COLOR", "1");
    EXPECT_EQ(runProgram(piped).output.find('\x1b'), std::string::npos);
}

class KrvstatHostileTexts : public KrvstatWithGateway, public testing::WithParamInterface<const char*> {};

constexpr const char* HostileScenario = R"(
groups:
  - id: hostile
    statistics:
      - {id: escape, hex: "1b5d303b6f776e65640761"}
      - {id: csi8, hex: "9b324a"}
      - {id: c1, hex: "c29b324a"}
      - {id: bidi, hex: "e280ae6162"}
      - {id: lines, hex: "610d0a620b0c62"}
      - {id: quotes, value: '"; rm -rf / #'}
      - {id: invalid, hex: "fffe00c0af"}
      - {id: "id\x1b[2J", value: "del\x7f"}
)";

// Line ends are ours. Nothing else below a blank, no DEL, no C1 control, no byte that is no UTF-8 comes through.
TEST_P(KrvstatHostileTexts, NeverReachATerminalRaw)
{
    serve(HostileScenario);
    Launch asked = launch({"--color", "never", "-o", GetParam(), "get"});
    asked.environment.emplace_back("LC_ALL", "C.UTF-8");
    Terminal terminal(24, 200);
    // the replacement character stands for what is no UTF-8, and is harmless
    const std::string shown = std::regex_replace(terminal.run(asked), std::regex("\uFFFD"), "?");
    EXPECT_GT(shown.size(), 40U);
    for (const char c : shown) {
        const auto byte = static_cast<unsigned char>(c);
        EXPECT_TRUE(byte == '\n' || (byte >= 0x20 && byte < 0x7f)) << static_cast<int>(byte) << " in " << shown;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, KrvstatHostileTexts,
    testing::Values("table", "wide", "json", "jsonl", "csv", "tsv", "prom", "value", "name"));

TEST_F(KrvstatTerminal, MessagesHoldNoControlCharacters)
{
    Terminal terminal(24, 80);
    Launch asked = launch({"get", "no\x1b[2Jsuch"});
    const ProgramRun got = runProgram(asked);
    EXPECT_EQ(got.errors.find('\x1b'), std::string::npos);
    EXPECT_NE(got.errors.find("no\\x1b[2Jsuch"), std::string::npos);
}

TEST_F(KrvstatTerminal, WatchRedrawsThereAndObeysANewSize)
{
    Terminal terminal(24, 80);
    RunningProgram watch(terminal.on(launch({"watch", "-n", "1h", "--color", "never"})));
    const std::string redraw = "\x1b[H\x1b[J";
    ASSERT_TRUE(terminal.await("named like a command"));
    EXPECT_EQ(terminal.shown().find(redraw), 0U);
    EXPECT_NE(terminal.shown().find("Example 9000, 3.2 GHz"), std::string::npos);

    terminal.forget();
    terminal.resize(5, 30);
    watch.send(SIGWINCH); // it has no controlling terminal that would send it
    ASSERT_TRUE(terminal.await("more lines"));
    EXPECT_EQ(terminal.shown().find(redraw), 0U);
    const std::vector<std::string> lines = krvtest::splitLines(terminal.shown().substr(redraw.size()));
    EXPECT_LE(lines.size(), 5U);
    watch.send(SIGINT);
    EXPECT_EQ(watch.finish().exitCode, 130);
}

TEST_F(KrvstatTerminal, WatchDoesNotRedrawInAPipe)
{
    EXPECT_EQ(run({"watch", "-n", "10ms", "-c", "2"}).output.find('\x1b'), std::string::npos);
}

} // namespace
