// ping: connects, times the connecting (with greeting and authorisation) and one exchange: the question for the groups.

#include "commands.h"

#include "outcome.h"
#include "output.h"
#include "parallel.h"
#include "timestamps.h"
#include "view.h"

#include <fmt/format.h>

#include <thread>

namespace {

struct Echo {
    TargetAnswer answer; // without records
    std::string protocol;
    double connectTime = 0; // milliseconds
    double exchangeTime = 0;
};

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

Echo pingOnce(const Target& target, const TimeLimits& limits)
{
    const Deadline whole = deadlineIn(limits.whole);
    Echo echo;
    echo.answer.target = targetText(target);
    Session session;
    auto start = std::chrono::steady_clock::now();
    CallResult result = openSession(target, earlierOf(deadlineIn(limits.connect), whole), &session);
    echo.connectTime = millisecondsSince(start);
    if (result.code == KRVSTAT_OK) {
        Sample ignored;
        start = std::chrono::steady_clock::now();
        result = ask(&session, Question::Groups, {}, whole, &ignored);
        echo.exchangeTime = millisecondsSince(start);
    }
    echo.protocol = session.protocol;
    closeSession(&session, whole);
    echo.answer.sample.time = std::chrono::system_clock::now();
    if (result.code != KRVSTAT_OK) echo.answer.failure = describeFailure(result, target);
    return echo;
}

Cell cellFor(const Settings& settings, const Echo& echo, Column column)
{
    switch (column) {
    case Column::Time: return {timeText(settings, echo.answer.sample.time), std::nullopt, Emphasis::None};
    case Column::Target: return {echo.answer.target, std::nullopt, Emphasis::None};
    case Column::Protocol: return {echo.protocol, std::nullopt, Emphasis::None};
    case Column::Connect: return {fmt::format("{:.3f}", echo.connectTime), std::nullopt, Emphasis::None};
    case Column::Exchange: return {fmt::format("{:.3f}", echo.exchangeTime), std::nullopt, Emphasis::None};
    default: return {}; // those of other commands are not allowed here
    }
}

std::string chooseColumns(const Settings& settings, std::vector<Column>* columns)
{
    const std::vector<Column> all = {Column::Time, Column::Target, Column::Protocol, Column::Connect, Column::Exchange};
    const bool hasTime = settings.time == TimeForm::Iso || settings.time == TimeForm::Unix;
    *columns = {all.begin() + (hasTime ? 0 : 1), all.end()};
    if (settings.form == Form::Prometheus) return "--output 'prom': there are no statistics to show";
    if (settings.form == Form::Value) *columns = {Column::Exchange};
    if (settings.form == Form::Name) *columns = {Column::Target};
    if (settings.columns.empty()) return "";
    const std::string problem = readColumns(settings.columns, all, columns);
    return problem.empty() ? "" : "--columns: " + problem;
}

struct Pings {
    std::vector<Column> columns;
    Outcome outcome;
    Written written = Written::Yes;
};

void pingRound(const Settings& settings, std::uint64_t number, Pings* pings)
{
    Sheet sheet;
    sheet.kind = "ping";
    sheet.documentKind = "pings";
    sheet.columns = pings->columns;
    sheet.time = isoTime(std::chrono::system_clock::now(), true);
    const std::vector<Echo> echoes =
        forEachTarget<Echo>(settings.targets, [&](const Target& target) { return pingOnce(target, settings.limits); });
    for (const Echo& echo : echoes) {
        judgeAnswer(settings, Question::Groups, echo.answer, &pings->outcome, &sheet);
        if (echo.answer.failure) continue;
        std::vector<Cell> row;
        for (Column column : sheet.columns) row.push_back(cellFor(settings, echo, column));
        sheet.rows.push_back(std::move(row));
    }
    Style style = styleFor(settings);
    style.hasHeader = settings.hasHeader && number == 1;
    const bool isJson = settings.form == Form::Json || settings.form == Form::JsonLines;
    if (!sheet.rows.empty() || isJson) pings->written = writeData(render(sheet, style));
}

} // namespace

int runPing(const Settings& settings)
{
    Pings pings;
    const std::string problem = chooseColumns(settings, &pings.columns);
    if (!problem.empty()) return refuseUsage(problem);
    const std::uint64_t count = settings.count.value_or(1);
    for (std::uint64_t number = 1; number <= count && pings.written == Written::Yes; ++number) {
        const auto next = std::chrono::steady_clock::now() + settings.interval.value_or(Milliseconds(1000));
        pingRound(settings, number, &pings);
        if (number < count && pings.written == Written::Yes) std::this_thread::sleep_until(next);
    }
    if (pings.written == Written::No) return ExitOutput;
    return exitCodeOf(pings.outcome);
}
