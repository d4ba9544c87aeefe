#include "outcome.h"

#include "output.h"
#include "printable.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

std::string describeRefusal(const RefusedElement& refused, Question question, const std::string& where)
{
    if (refused.element.empty()) {
        return fmt::format("the gateway {} refused the request (its code {})", where, refused.code);
    }
    const std::string name = inQuotes(refused.element);
    if (!refused.isMissing) {
        return fmt::format("the gateway {} refuses to tell about {} (its code {})", where, name, refused.code);
    }
    const char* const kind = question == Question::Ids ? "group" : "statistic or group";
    const std::string sentence = fmt::format("the gateway {} has no {} {}", where, kind, name);
    if (refused.suggestion.empty()) return sentence;
    return fmt::format("{}; did you mean {}?", sentence, inQuotes(refused.suggestion));
}

ExitCode codeOf(const Settings& settings, const Sample& sample)
{
    const auto isMissing = [](const RefusedElement& refused) { return refused.isMissing; };
    const auto missing = std::count_if(sample.refused.begin(), sample.refused.end(), isMissing);
    const auto refused = static_cast<std::ptrdiff_t>(sample.refused.size()) - missing;
    if (missing > 0 && !settings.ignoresMissing) return ExitUnknownName;
    if (refused == 0) return ExitDone;
    return sample.records.empty() && sample.empty.empty() ? ExitRefused : ExitPartial;
}

} // namespace

void judgeAnswer(
    const Settings& settings, Question question, const TargetAnswer& answer, Outcome* outcome, Sheet* sheet)
{
    if (!answer.connection.empty()) explain(settings, answer.connection);
    if (answer.failure) {
        complain(answer.failure->sentence);
        sheet->troubles.push_back({answer.target, "", answer.failure->exitCode, answer.failure->sentence});
        outcome->codes.push_back(answer.failure->exitCode);
        return;
    }
    for (const std::string& element : answer.sample.empty) {
        remark(settings, element.empty() ? fmt::format("the gateway {} has nothing to show", answer.target)
                                         : fmt::format("the gateway {} has nothing to show for {}", answer.target,
                                               inQuotes(element)));
    }
    for (const RefusedElement& refused : answer.sample.refused) {
        const std::string sentence = describeRefusal(refused, question, answer.target);
        if (refused.isMissing && settings.ignoresMissing) {
            explain(settings, sentence);
            continue;
        }
        complain(sentence);
        const ExitCode code = refused.isMissing ? ExitUnknownName : refused.element.empty() ? ExitRefused : ExitPartial;
        sheet->troubles.push_back({answer.target, refused.element, code, sentence});
    }
    const ExitCode code = codeOf(settings, answer.sample);
    outcome->codes.push_back(code);
    if (code == ExitDone || !answer.sample.records.empty()) outcome->isAnyDelivered = true;
}

ExitCode exitCodeOf(const Outcome& outcome)
{
    ExitCode first = ExitDone;
    bool isSame = true;
    for (ExitCode code : outcome.codes) {
        if (code != outcome.codes.front()) isSame = false;
        if (first == ExitDone) first = code;
    }
    if (isSame || first == ExitDone) return first;
    return outcome.isAnyDelivered ? ExitPartial : first;
}
