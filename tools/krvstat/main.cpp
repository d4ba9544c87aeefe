// krvstat: shows the statistics of a gateway.
//
// Reads the command line, has the conversation, prints the answer, says what went wrong. Everything is done when
// something is printed: a table is whole or not there.

#include "exitcodes.h"
#include "failures.h"
#include "gather.h"
#include "options.h"
#include "output.h"
#include "printable.h"
#include "table.h"

#include "krvstats.h"

#include <fmt/format.h>

#include <clocale>
#include <cstring>
#include <exception>

namespace {

ExitCode print(std::string_view text)
{
    const int writeErrno = writeData(text);
    if (writeErrno == 0) return ExitDone;
    complain(fmt::format("cannot write to standard output: {}", std::strerror(writeErrno)));
    return ExitOutput;
}

ExitCode printVersion()
{
    char* apiVersion = nullptr;
    const int code = getStatsAPIVersion(&apiVersion);
    if (code != KRVSTAT_OK) {
        complain(fmt::format("the statistics library could not be started (return code {})", code));
        return ExitInternal;
    }
    return print(fmt::format("krvstat {}\nstatistics API {}\n", KRVSTAT_VERSION, apiVersion));
}

// The file first: so nothing goes to standard error, and the file gets its heading once.
ExitCode startTrace(const Options& options)
{
    int code = KRVSTAT_OK;
    if (!options.traceFile.empty()) {
        std::string name = options.traceFile;
        code = setAPITraceFile(name.data());
        if (code == KRVSTAT_TRACE_FILE_OPEN_FAILED) {
            complain(fmt::format("cannot append to the trace file {}", inQuotes(options.traceFile)));
            return ExitUsage;
        }
    }
    if (code == KRVSTAT_OK && options.traceLevel > 0) code = setAPITraceLevel(options.traceLevel);
    if (code != KRVSTAT_OK) {
        complain(fmt::format("the statistics library could not start its trace (return code {})", code));
        return ExitInternal;
    }
    return ExitDone;
}

Question questionOf(Command command)
{
    if (command == Command::Groups) return Question::Groups;
    return command == Command::Ids ? Question::Ids : Question::Statistics;
}

std::string answerTable(Question question, const std::vector<Record>& records)
{
    if (question == Question::Groups) return idTable("GROUP", records);
    if (question == Question::Ids) return idTable("STATISTIC", records);
    return statisticTable(records, terminalColumns());
}

// What was refused is an error, what is empty is not.
ExitCode complainOfGaps(const Options& options, const Answer& answer)
{
    const std::string where = targetText(options.target);
    for (const std::string& element : answer.empty) {
        complain(element.empty() ? fmt::format("the gateway {} has nothing to show", where)
                                 : fmt::format("the gateway {} has nothing to show for {}", where, inQuotes(element)));
    }
    for (const RefusedElement& refused : answer.refused) {
        complain(options.names.empty()
                     ? fmt::format("the gateway {} refused the request (its code {})", where, refused.code)
                     : fmt::format("the gateway {} does not know {}, or refuses to tell (its code {})", where,
                           inQuotes(refused.element), refused.code));
    }
    if (answer.refused.empty()) return ExitDone;
    return options.names.empty() ? ExitRefused : ExitUnknownName;
}

ExitCode showAnswer(const Options& options, Question question, const Answer& answer)
{
    ExitCode printed = ExitDone;
    if (!answer.records.empty()) printed = print(answerTable(question, answer.records));
    const ExitCode refused = complainOfGaps(options, answer);
    return printed != ExitDone ? printed : refused;
}

ExitCode askGateway(const Options& options)
{
    const ExitCode traced = startTrace(options);
    if (traced != ExitDone) return traced;

    const Question question = questionOf(options.command);
    Answer answer;
    const GatherResult result = gather(options.target, question, options.names, &answer);
    if (result.code != KRVSTAT_OK) {
        const Failure failure = describeFailure(result, options.target);
        complain(failure.sentence);
        return failure.exitCode;
    }
    return showAnswer(options, question, answer);
}

ExitCode run(int argc, char** argv)
{
    Options options;
    const std::string problem = readOptions(argc, argv, &options);
    if (!problem.empty()) {
        complain(problem);
        complain("try 'krvstat --help'");
        return ExitUsage;
    }
    if (options.command == Command::Help) return print(options.helpText);
    if (options.command == Command::Version) return printVersion();
    return askGateway(options);
}

} // namespace

int main(int argc, char** argv)
{
    prepareOutput();
    std::setlocale(LC_CTYPE, ""); // what can be printed; everything else is as in the C locale
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        complain(error.what());
        return ExitInternal;
    }
}
