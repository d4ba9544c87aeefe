// get: values, once; with --rate or --delta, what became of them between two samples.

#include "commands.h"

#include "oneshot.h"
#include "show.h"

#include <algorithm>

namespace {

std::vector<Entry> entriesOf(const TargetAnswer& answer, RateBook* book)
{
    std::vector<Entry> entries;
    beginRound(book);
    for (const Record& record : answer.sample.records) {
        entries.push_back(
            {&answer.target, &record, observe(book, record, answer.sample.monotonic), answer.sample.time});
    }
    return entries;
}

// What the target had before, noted as a round of its own.
RateBook bookOf(const std::vector<TargetAnswer>& before, const std::string& target)
{
    RateBook book;
    for (const TargetAnswer& answer : before) {
        if (answer.target == target && !answer.failure) entriesOf(answer, &book);
    }
    return book;
}

} // namespace

int runGet(const Settings& settings)
{
    const bool isTwice = settings.derived == Derived::Rate || settings.derived == Derived::Delta ||
                         settings.selection.sort == SortKey::Rate;
    View view;
    std::string problem = makeView(settings, Question::Statistics, isTwice, &view);
    if (!problem.empty()) return refuseUsage(problem);

    const Inquiry inquiry{Question::Statistics, settings.names, needsGroups(view, settings)};
    std::vector<TargetAnswer> before;
    std::vector<TargetAnswer> answers;
    if (isTwice) {
        const int code = answerTwice(settings, inquiry, &before, &answers);
        if (code != ExitDone) return code;
    } else {
        problem = answerOnce(settings, inquiry, &answers);
        if (!problem.empty()) return refuseUsage(problem);
    }

    Sheet sheet = emptySheet(view);
    Outcome outcome;
    std::vector<Entry> entries;
    for (const TargetAnswer& answer : answers) {
        judgeAnswer(settings, Question::Statistics, answer, &outcome, &sheet);
        RateBook book = bookOf(before, answer.target);
        std::vector<Entry> more = entriesOf(answer, &book);
        std::move(more.begin(), more.end(), std::back_inserter(entries));
    }
    return showOnce(settings, view, selectEntries(settings, std::move(entries)), outcome, &sheet);
}
