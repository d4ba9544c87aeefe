#include "inquiry.h"

#include "parallel.h"
#include "printable.h"
#include "similar.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace {

std::vector<std::string> idsOf(Sample sample)
{
    std::vector<std::string> ids;
    for (Record& record : sample.records) ids.push_back(std::move(record.id));
    return ids;
}

bool contains(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// The gateway's codes do not say whether a name does not exist or cannot be told about: its own lists do. Where they
// cannot be had, nothing is said to be missing.
void judgeRefusals(Session* session, Question question, Deadline deadline, Sample* sample)
{
    Sample groups;
    CallResult result = ask(session, Question::Groups, {}, deadline, &groups);
    bool isKnown = result.code == KRVSTAT_OK && groups.refused.empty();
    std::vector<std::string> names = idsOf(std::move(groups));
    if (isKnown && question == Question::Statistics) {
        Sample ids;
        result = ask(session, Question::Ids, {}, deadline, &ids);
        isKnown = result.code == KRVSTAT_OK && ids.refused.empty();
        std::vector<std::string> more = idsOf(std::move(ids));
        std::move(more.begin(), more.end(), std::back_inserter(names));
    }
    for (RefusedElement& refused : sample->refused) {
        refused.isMissing = isKnown && !contains(names, refused.element);
        if (refused.isMissing) refused.suggestion = mostSimilar(refused.element, names);
    }
}

} // namespace

std::string describeConnection(const Target& target, const Session& session)
{
    return fmt::format(
        "connected to {} at {}, protocol {}", targetText(target), session.address, printable(session.protocol).text);
}

CallResult inquire(Session* session, const Inquiry& inquiry, Deadline deadline, Sample* sample)
{
    CallResult result;
    if (inquiry.needsGroups && session->groupOf.empty()) result = learnGroups(session, deadline);
    if (result.code == KRVSTAT_OK) result = ask(session, inquiry.question, inquiry.names, deadline, sample);
    if (result.code == KRVSTAT_OK && !inquiry.names.empty() && !sample->refused.empty()) {
        judgeRefusals(session, inquiry.question, deadline, sample);
    }
    return result;
}

TargetAnswer inquireOnce(const Target& target, const Inquiry& inquiry, const TimeLimits& limits)
{
    const Deadline whole = deadlineIn(limits.whole);
    TargetAnswer answer{targetText(target), std::nullopt, {}, ""};
    Session session;
    CallResult result = openSession(target, earlierOf(deadlineIn(limits.connect), whole), &session);
    if (result.code == KRVSTAT_OK) {
        answer.connection = describeConnection(target, session);
        result = inquire(&session, inquiry, whole, &answer.sample);
    }
    closeSession(&session, whole);
    if (result.code != KRVSTAT_OK) answer.failure = describeFailure(result, target);
    return answer;
}

std::vector<TargetAnswer> inquireAll(
    const std::vector<Target>& targets, const Inquiry& inquiry, const TimeLimits& limits)
{
    return forEachTarget<TargetAnswer>(
        targets, [&](const Target& target) { return inquireOnce(target, inquiry, limits); });
}
