// watch: values again and again. Every sample is written as soon as it is there.

#include "commands.h"

#include "rounds.h"
#include "samplestream.h"

int runWatch(const Settings& settings)
{
    SampleStream stream;
    const std::string problem = startStream(settings, &stream);
    if (!problem.empty()) return refuseUsage(problem);
    if (!settings.input.empty()) return replayStream(settings, 0, settings.input, settings.names, &stream);

    startEvents();
    const Inquiry inquiry{Question::Statistics, settings.names, stream.needsGroups};
    const RoundWork show = [&](std::uint64_t, std::vector<TargetAnswer> answers) {
        return streamRound(settings, std::move(answers), &stream);
    };
    const RoundsEnd end = runRounds(
        settings, inquiry, scheduleOf(settings, Milliseconds(2000)), show, [&] { redrawRound(settings, &stream); });
    return endStream(settings, end, stream);
}
