#include "losses.h"

#include "output.h"

#include <fmt/format.h>

void noteAnswer(const Settings& settings, const TargetAnswer& answer, Losses* losses)
{
    if (!answer.connection.empty()) explain(settings, answer.connection);
    if (!answer.failure) {
        if (losses->erase(answer.target) > 0) remark(settings, fmt::format("{} is back", answer.target));
    } else if (losses->insert(answer.target).second) {
        remark(settings, fmt::format("{}; trying again", answer.failure->sentence));
    } else {
        explain(settings, answer.failure->sentence);
    }
}
