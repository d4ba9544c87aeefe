// Sample after sample on standard output: what watch and replay have in common.
#ifndef KRVSTAT_SAMPLESTREAM_H
#define KRVSTAT_SAMPLESTREAM_H

#include "losses.h"
#include "outcome.h"
#include "output.h"
#include "rounds.h"
#include "view.h"

#include <map>
#include <string>
#include <vector>

struct SampleStream {
    View view;
    bool needsGroups = false;
    bool isRedrawn = false;                // tables on a terminal take the place of the one before
    std::map<std::string, RateBook> books; // by target
    Losses losses;
    bool hasAnyAnswered = false;
    std::vector<TargetAnswer> answers; // the last ones
    Sheet sheet;                       // the last one
    Outcome first;                     // of the first round: refusals are said, and count, once
    std::uint64_t rounds = 0;
    std::uint64_t gaps = 0;
    std::uint64_t resets = 0;
    SteadyTime start = std::chrono::steady_clock::now();
    SteadyTime last{};
    Written written = Written::Yes;
};

// Returns an empty string, or what is wrong with the settings.
std::string startStream(const Settings& settings, SampleStream* stream);

// Shows a round. Returns whether more of them are wanted: not where nobody reads, nor where the first one failed.
bool streamRound(const Settings& settings, std::vector<TargetAnswer> answers, SampleStream* stream);

// Shows the last round again, as after a change of the terminal's size.
void redrawRound(const Settings& settings, SampleStream* stream);

// Says what there is to say at the end and returns the exit code.
int endStream(const Settings& settings, RoundsEnd end, const SampleStream& stream);

// Shows a recording: speed 1 as fast as it was recorded, 0 without waiting. Returns the exit code.
int replayStream(const Settings& settings, double speed, const std::string& path, const std::vector<std::string>& names,
    SampleStream* stream);

#endif
