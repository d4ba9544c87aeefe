// krvgwsim: options, the ready signal, and waiting for the order to stop.
#include "live.h"
#include "scenario.h"
#include "server.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>

namespace {

constexpr int EXIT_COMPLAINTS = 1;
constexpr int EXIT_UNUSABLE = 2;

struct Options {
    std::string address = "127.0.0.1";
    int port = krvgw::DEFAULT_PORT;
    std::string portFile;
    std::string transcript;
    std::string scenario;
    std::string proc = "/proc";
    std::optional<std::string> protocolVersion;
    std::vector<std::string> misbehaviours;
    std::optional<std::uint64_t> seed;
    bool isStrict = false;
    bool isListing = false;
    bool isQuiet = false;
};

const char* const FOOTER =
    "Transcript: one line a message, CONNECTION KIND MESSAGE REST, flushed before the reply is sent.\n"
    "  1 C>G handshake 47617465...   a request, in hexadecimal\n"
    "  1 G>C handshake 47617465...   a reply, as far as it will be sent\n"
    "  1 !!! auth2 TEXT              a complaint about the client\n"
    "  1 *** get-stats TEXT          a misbehaviour that took effect\n"
    "  1 --- - TEXT                  accepted, left, left without close, closed, reset\n"
    "\n"
    "Exit codes: 0 after SIGTERM or SIGINT; 1 the same under --strict with complaints; 2 it could not start.";

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("--bind", options.address, "Address to listen on")->capture_default_str();
    app.add_option("--port", options.port, "Port to listen on; 0 takes a free one")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    app.add_option("--port-file", options.portFile, "Write the port here once it listens: the ready signal");
    app.add_option("--transcript", options.transcript, "Write every message here");
    app.add_option("--scenario", options.scenario, "Serve this YAML file, not the statistics of this machine");
    app.add_option("--proc", options.proc, "Where to read the statistics of this machine")->capture_default_str();
    app.add_option("--protocol-version", options.protocolVersion, "Value of the attribute \"protocol\" (1.1.0)")
        ->check([](const std::string& text) {
            return text.size() > krvgw::LONGEST_TEXT ? "longer than 32767 bytes" : "";
        });
    app.add_option("--misbehave", options.misbehaviours,
                   "NAME[[K]][=ARG][@MESSAGE][#N][%C]; see --list-misbehaviours. May be repeated")
        ->allow_extra_args(false);
    app.add_option("--seed", options.seed, "Seed of the opaque bytes (1)");
    app.add_flag("--strict", options.isStrict, "Exit with 1 if any client did anything wrong");
    app.add_flag("--quiet", options.isQuiet, "Do not say where it listens");
    app.add_flag("--list-misbehaviours", options.isListing, "List the names for --misbehave and exit");
    app.footer(FOOTER);
}

void listMisbehaviours()
{
    fmt::print("NAME[[K]][=ARG][@MESSAGE][#N][%C]\n"
               "  [K]       the K-th field of that name in a reply (1), or [*] for all\n"
               "  =ARG      for fields: N or 0xN is set, +N and -N are added, =N and =-N are set (\"query-rc==-5\")\n"
               "  @MESSAGE  only in reply to this message; #N only to the N-th such; %C only on the C-th connection\n"
               "\nMessages:");
    for (const krvgw::MessageKind kind : krvgw::messageKinds()) fmt::print(" {}", krvgw::nameOf(kind));
    fmt::print("\n\nMisbehaviours:\n");
    for (const krvgw::MisbehaviourRow& row : krvgw::misbehaviourTable())
        fmt::print("  {:<28}{}{}\n", fmt::format("{}{}", row.name, row.argument), row.what,
                   row.fallback.empty() || row.argument.empty() ? "" : fmt::format(" ({})", row.fallback));
    fmt::print("\nFields, each a misbehaviour NAME=N:\n");
    for (const krvgw::FieldRow& row : krvgw::fieldTable()) fmt::print("  {:<28}{}\n", row.name, row.what);
}

bool addMisbehaviours(const std::vector<std::string>& texts, std::vector<krvgw::Misbehaviour>& made)
{
    for (const std::string& text : texts) {
        std::string complaint;
        const auto parsed = krvgw::parseMisbehaviour(text, complaint);
        if (!parsed) {
            fmt::print(stderr, "krvgwsim: {}\n", complaint);
            return false;
        }
        made.push_back(*parsed);
    }
    return true;
}

// Readers never see half a number: the file appears whole, by renaming.
bool writePortFile(const std::string& path, int port)
{
    const std::string unfinished = path + ".new";
    std::ofstream file(unfinished, std::ios::trunc);
    file << port << '\n';
    file.close();
    return file.good() && std::rename(unfinished.c_str(), path.c_str()) == 0;
}

int runGateway(const Options& options, const sigset_t& endSignals)
{
    krvgw::Counters counters;
    krvgw::ServerOptions made;
    std::unique_ptr<krvgw::Source> source = krvgw::liveSource(options.proc, counters);
    if (!options.scenario.empty()) {
        std::string complaint;
        const auto scenario = krvgw::loadScenario(options.scenario, complaint);
        if (!scenario) {
            fmt::print(stderr, "krvgwsim: {}\n", complaint);
            return EXIT_UNUSABLE;
        }
        source = krvgw::scenarioSource(*scenario);
        made.settings.misbehaviours = scenario->misbehaviours;
        if (scenario->protocolVersion) made.settings.protocolVersion = *scenario->protocolVersion;
        if (scenario->seed) made.settings.seed = *scenario->seed;
    }
    if (options.seed) made.settings.seed = *options.seed;
    if (options.protocolVersion) made.settings.protocolVersion = *options.protocolVersion;
    if (!addMisbehaviours(options.misbehaviours, made.settings.misbehaviours)) return EXIT_UNUSABLE;
    made.address = options.address;
    made.port = options.port;
    made.transcriptPath = options.transcript;
    made.settings.source = source.get();
    made.settings.counters = &counters;

    std::string complaint;
    krvgw::ServerPtr server = krvgw::startServer(std::move(made), complaint);
    if (server && !options.portFile.empty() && !writePortFile(options.portFile, krvgw::portOf(*server))) {
        complaint = fmt::format("cannot write {}", options.portFile);
        server.reset();
    }
    if (!server) {
        fmt::print(stderr, "krvgwsim: {}\n", complaint);
        return EXIT_UNUSABLE;
    }
    if (!options.isQuiet) {
        fmt::print("krvgwsim: listening on {} port {}\n", options.address, krvgw::portOf(*server));
        std::fflush(stdout);
    }

    int received = 0;
    sigwait(&endSignals, &received);
    server.reset();
    const bool isBlamed = options.isStrict && counters.complaints > 0;
    if (isBlamed) fmt::print(stderr, "krvgwsim: {} complaints\n", counters.complaints.load());
    return isBlamed ? EXIT_COMPLAINTS : EXIT_SUCCESS;
}

int runProgram(int argc, char** argv)
{
    Options options;
    CLI::App app("A simulated gateway: serves statistics of this machine or of a scenario over the gateway protocol.",
                 "krvgwsim");
    addOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : EXIT_UNUSABLE;
    }
    if (options.isListing) {
        listMisbehaviours();
        return EXIT_SUCCESS;
    }

    // Blocked before any thread starts, so that only sigwait meets them.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    sigaddset(&endSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return runGateway(options, endSignals);
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return runProgram(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "krvgwsim: %s\n", error.what());
        return EXIT_UNUSABLE;
    }
}
