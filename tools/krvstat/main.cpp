// krvstat: shows the statistics of gateways. Reads what is wanted, and runs the command.

#include "commands.h"
#include "leftbehind.h"
#include "output.h"
#include "printable.h"

#include "krvstats.h"

#include <fmt/format.h>

#include <clocale>
#include <exception>

namespace {

// The file first: so nothing goes to standard error, and the file gets its heading once.
ExitCode startTrace(const Settings& settings)
{
    int code = KRVSTAT_OK;
    if (!settings.traceFile.empty()) {
        std::string name = settings.traceFile;
        code = setAPITraceFile(name.data());
        if (code == KRVSTAT_TRACE_FILE_OPEN_FAILED) {
            complain(fmt::format("cannot append to the trace file {}", inQuotes(settings.traceFile)));
            return ExitUsage;
        }
    }
    if (code == KRVSTAT_OK && settings.traceLevel > 0) code = setAPITraceLevel(settings.traceLevel);
    if (code != KRVSTAT_OK) {
        complain(fmt::format("the statistics library could not start its trace (return code {})", code));
        return ExitInternal;
    }
    return ExitDone;
}

int runCommand(const Settings& settings)
{
    switch (settings.command) {
    case Command::Groups:
    case Command::Ids: return runList(settings);
    case Command::Get: return runGet(settings);
    case Command::Watch: return runWatch(settings);
    case Command::Top: return runTop(settings);
    case Command::Diff: return runDiff(settings);
    case Command::Check: return runCheck(settings);
    case Command::Record: return runRecord(settings);
    case Command::Replay: return runReplay(settings);
    case Command::Ping: return runPing(settings);
    case Command::Completion: return runCompletion(settings);
    case Command::Version:
    case Command::Help: break;
    }
    return runVersion();
}

// A monitoring system takes the exit code of a check for a state: whatever prevents the check is UNKNOWN.
int refuse(const Options& options, const std::string& problem)
{
    if (options.command != Command::Check) {
        const int code = refuseUsage(problem);
        complain("try 'krvstat --help'");
        return code;
    }
    static_cast<void>(writeData(fmt::format("KRVSTAT UNKNOWN - {}\n", problem)));
    return PluginUnknown;
}

int run(int argc, char** argv)
{
    Options options;
    std::string problem = readOptions(argc, argv, &options);
    if (problem.empty() && options.command == Command::Help) return exitCodeOf(writeData(options.helpText));
    Settings settings;
    if (problem.empty()) problem = completeSettings(options, &settings);
    if (!problem.empty()) return refuse(options, problem);
    const ExitCode traced = startTrace(settings);
    if (traced != ExitDone) return options.command == Command::Check ? static_cast<int>(PluginUnknown) : traced;
    return runCommand(settings);
}

} // namespace

int refuseUsage(const std::string& problem)
{
    complain(problem);
    return ExitUsage;
}

int main(int argc, char** argv)
{
    prepareOutput();
    std::setlocale(LC_CTYPE, ""); // what can be printed; everything else is as in the C locale
    try {
        return endProcess(run(argc, argv));
    } catch (const std::exception& error) {
        complain(error.what());
        return endProcess(ExitInternal);
    }
}
