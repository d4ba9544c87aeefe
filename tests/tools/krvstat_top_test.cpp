// top, as someone at a terminal has it: tmux plays the terminal, keys are sent to it, and what it shows is read.

#include "krvstat_fixture.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

namespace {

constexpr const char* TopScenario = R"(
groups:
  - id: cpu
    statistics:
      - {id: cpu.user, counter: {start: 100, step: 7}}
      - {id: cpu.idle, counter: {start: 900, step: 3}}
      - {id: cpu.model, hex: "1b5b324a6d6f64656c"}
  - id: memory
    statistics:
      - {id: memory.total, value: "8388608"}
      - {id: memory.walk, walk: {start: 40, step: 5, min: 0, max: 100, seed: 7}}
)";

// One tmux server with one window, which ends with the program in it.
class Tmux {
public:
    Tmux(const std::string& command, int columns, int lines)
    {
        Launch start = launch({"-f", "/dev/null", "new-session", "-d", "-x", std::to_string(columns), "-y",
            std::to_string(lines), command + "; echo \"it ended with $?\"; cat"});
        const ProgramRun got = runProgram(start);
        EXPECT_EQ(got.exitCode, 0) << got.errors;
    }
    ~Tmux()
    {
        runProgram(launch({"kill-server"}));
    }
    Tmux(const Tmux&) = delete;
    Tmux& operator=(const Tmux&) = delete;

    void press(const std::vector<std::string>& keys) const
    {
        std::vector<std::string> arguments = {"send-keys"};
        arguments.insert(arguments.end(), keys.begin(), keys.end());
        EXPECT_EQ(runProgram(launch(arguments)).exitCode, 0);
    }

    void resize(int columns, int lines) const
    {
        const ProgramRun got =
            runProgram(launch({"resize-window", "-x", std::to_string(columns), "-y", std::to_string(lines)}));
        EXPECT_EQ(got.exitCode, 0) << got.errors;
    }

    std::string picture() const
    {
        return runProgram(launch({"capture-pane", "-p"})).output;
    }

    // The picture as soon as it has this and does not have that, which is waited for 60 seconds.
    std::string await(const std::string& wanted, const std::string& unwanted = "\x01") const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        std::string shown = picture();
        while (shown.find(wanted) == std::string::npos || shown.find(unwanted) != std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline) {
                ADD_FAILURE() << "no '" << wanted << "', or '" << unwanted << "' in:\n" << shown;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            shown = picture();
        }
        return shown;
    }

private:
    Launch launch(std::vector<std::string> arguments) const
    {
        Launch tmux = krvstatLaunch({});
        tmux.program = "/usr/bin/tmux";
        tmux.arguments = {"-u", "-S", scratch.path("socket")};
        tmux.arguments.insert(tmux.arguments.end(), arguments.begin(), arguments.end());
        for (auto& [name, value] : tmux.environment) {
            if (name == "LC_ALL") value = "C.UTF-8";
            if (name == "TERM") value = "xterm";
        }
        return tmux;
    }

    krvtest::ScratchFolder scratch;
};

class KrvstatTop : public KrvstatWithGateway {
protected:
    std::string command(const std::string& arguments = "-n 100ms") const
    {
        return std::string(KRVSTAT_PROGRAM) + " -t " + target() + " top " + arguments;
    }

    std::size_t countQuestions() const
    {
        std::size_t count = 0;
        for (const std::string& line : gateway->transcript()) {
            if (line.find(" C>G get-stats ") != std::string::npos) ++count;
        }
        return count;
    }
};

std::size_t placeOf(const std::string& picture, const std::string& text)
{
    const std::size_t place = picture.find(text);
    EXPECT_NE(place, std::string::npos) << text << " is not in:\n" << picture;
    return place;
}

TEST_F(KrvstatTop, ShowsGroupsAsSectionsWithValuesRatesAndHistories)
{
    serve(TopScenario);
    Tmux tmux(command(), 100, 20);
    const std::string picture = tmux.await("\u2588"); // the highest block
    EXPECT_LT(placeOf(picture, "krvstat top  " + target() + "  every 100ms"), placeOf(picture, "STATISTIC"));
    EXPECT_LT(placeOf(picture, "\ncpu\n"), placeOf(picture, "\n  cpu.user "));
    EXPECT_LT(placeOf(picture, "\n  cpu.user "), placeOf(picture, "\nmemory\n"));
    EXPECT_LT(placeOf(picture, "\nmemory\n"), placeOf(picture, "\n  memory.total "));
    placeOf(picture, " 8388608 ");
    placeOf(picture, "\\x1b[2Jmodel"); // nothing of a gateway moves the cursor
    tmux.await("reset");               // of the walk, when it goes down
    tmux.press({"q"});
    tmux.await("it ended with 0");
}

TEST_F(KrvstatTop, FiltersAsOneTypes)
{
    serve(TopScenario);
    Tmux tmux(command(), 80, 20);
    tmux.await("memory.total");
    tmux.press({"/", "C", "P"});
    const std::string filtered = tmux.await("/CP", "memory.total");
    placeOf(filtered, "cpu.user");
    tmux.press({"u", ".", "i"});
    tmux.await("cpu.idle", "cpu.user");
    tmux.press({"BSpace"});
    tmux.await("cpu.user");
    tmux.press({"Enter"});
    tmux.await("filter: CPu.");
    tmux.press({"q"}); // a key again, no letter of the filter
    tmux.await("it ended with 0");
}

TEST_F(KrvstatTop, TakesTheFilterAwayWithEscape)
{
    serve(TopScenario);
    Tmux tmux(command(), 80, 20);
    tmux.await("memory.total");
    tmux.press({"/", "x", "y"});
    tmux.await("/xy", "cpu.user");
    tmux.press({"Escape"});
    placeOf(tmux.await("memory.total", "/xy"), "cpu.user");
    tmux.press({"q"});
    tmux.await("it ended with 0");
}

TEST_F(KrvstatTop, SortsWithinSections)
{
    serve(TopScenario);
    Tmux tmux(command(), 80, 20);
    tmux.await("memory.total");
    tmux.press({"s"});
    const std::string byName = tmux.await("sort name");
    EXPECT_LT(placeOf(byName, "cpu.idle"), placeOf(byName, "cpu.user"));
    tmux.press({"s", "s"});
    tmux.await("sort rate");
    tmux.press({"s"});
    const std::string unsorted = tmux.await("sort none");
    EXPECT_LT(placeOf(unsorted, "cpu.user"), placeOf(unsorted, "cpu.idle"));
    tmux.press({"q"});
    tmux.await("it ended with 0");
}

TEST_F(KrvstatTop, PausesAndGoesOn)
{
    serve(TopScenario);
    Tmux tmux(command(), 80, 20);
    tmux.await("memory.total");
    tmux.press({"p"});
    tmux.await("PAUSED");
    const std::size_t asked = countQuestions();
    tmux.press({"h"});
    placeOf(tmux.await("this help"), "PAUSED");
    EXPECT_LE(countQuestions(), asked + 1); // one may have been on its way
    tmux.press({"h"});
    tmux.await("memory.total");
    tmux.press({"p"});
    tmux.await("memory.total", "PAUSED");
    EXPECT_TRUE(gateway->awaitTranscript("get-stats"));
    tmux.press({"q"});
    tmux.await("it ended with 0");
}

TEST_F(KrvstatTop, ScrollsThroughWhatDoesNotFit)
{
    serve("groups: [{id: bulk, statistics: [{id: \"bulk.{n}\", value: \"v{n}\", repeat: {count: 500}}]}]\n");
    Tmux tmux(command(), 60, 12);
    tmux.await("bulk.8 ");
    tmux.press({"NPage"});
    tmux.await("bulk.10 ", "bulk.1 ");
    tmux.press({"End"});
    tmux.await("bulk.500 ");
    tmux.press({"Up"});
    tmux.await("bulk.491 ", "bulk.500 ");
    tmux.press({"Home"});
    tmux.await("bulk.1 ");
    tmux.press({"Down"});
    tmux.await("bulk.9 ", "\nbulk\n");
    tmux.press({"q"});
    tmux.await("it ended with 0");
}

TEST_F(KrvstatTop, SurvivesSmallWindowsAndObeysNewSizes)
{
    serve(TopScenario);
    Tmux tmux(command(), 40, 10);
    tmux.await("cpu.user");
    for (const auto& [columns, lines] : {std::pair{10, 3}, {3, 2}, {1, 1}, {20, 4}}) tmux.resize(columns, lines);
    tmux.resize(200, 50);
    const std::string wide = tmux.await("HISTORY");
    placeOf(wide, "memory.walk");
    placeOf(wide, "krvstat top");
    tmux.resize(40, 10);
    tmux.await("cpu.user", "HISTORY");
    tmux.press({"q"});
    tmux.await("it ended with 0");
}

TEST_F(KrvstatTop, SurvivesAGatewayThatGoesAndComesBack)
{
    krvtest::ScratchFolder scratch;
    std::ofstream(scratch.path("scenario")) << TopScenario;
    serve(TopScenario);
    const int port = gateway->port();
    Tmux tmux(command(), 120, 20);
    tmux.await("memory.total");
    EXPECT_EQ(gateway->stop(), 0);
    const std::string lost = tmux.await("trying again");
    placeOf(lost, "gap");
    placeOf(lost, "memory.total"); // the last that is known stays
    Launch again;
    again.program = KRVSTATS_GATEWAY_PROGRAM;
    again.arguments = {"--port", std::to_string(port), "--scenario", scratch.path("scenario")};
    RunningProgram second(again);
    tmux.await("q end", "trying again");
    tmux.press({"q"});
    tmux.await("it ended with 0");
    second.send(SIGTERM);
    EXPECT_EQ(second.finish().exitCode, 0);
    serve(TopScenario); // the one that is stopped at the end
}

TEST_F(KrvstatTop, EndsWithControlCAndLeavesTheTerminalAsItWas)
{
    serve(TopScenario);
    Tmux tmux("trap : INT; echo before; " + command(), 80, 20);
    tmux.await("memory.total", "before");
    tmux.press({"C-c"});
    placeOf(tmux.await("it ended with 0", "memory.total"), "before"); // the alternate screen is gone
}

TEST_F(KrvstatTop, PlaysRecordings)
{
    serve(TopScenario);
    krvtest::ScratchFolder scratch;
    EXPECT_EQ(run({"-q", "record", scratch.path("record"), "-n", "10ms", "-c", "3"}).exitCode, 0);
    Tmux tmux(std::string(KRVSTAT_PROGRAM) + " --input " + scratch.path("record") + " top -n 50ms", 80, 20);
    placeOf(tmux.await(" 114 "), "cpu.user"); // the third value
    tmux.press({"q"});
    tmux.await("it ended with 0");
}

} // namespace
