// groups and ids: what there is to ask for.

#include "commands.h"

#include "oneshot.h"
#include "show.h"

int runList(const Settings& settings)
{
    const Question question = settings.command == Command::Groups ? Question::Groups : Question::Ids;
    View view;
    std::string problem = makeView(settings, question, false, &view);
    const Inquiry inquiry{question, settings.names, false};
    std::vector<TargetAnswer> answers;
    if (problem.empty()) problem = answerOnce(settings, inquiry, &answers);
    if (!problem.empty()) return refuseUsage(problem);

    Sheet sheet = emptySheet(view);
    Outcome outcome;
    std::vector<Entry> entries;
    for (const TargetAnswer& answer : answers) {
        judgeAnswer(settings, question, answer, &outcome, &sheet);
        for (const Record& record : answer.sample.records) {
            entries.push_back({&answer.target, &record, {}, answer.sample.time});
        }
    }
    return showOnce(settings, view, selectEntries(settings, std::move(entries)), outcome, &sheet);
}
