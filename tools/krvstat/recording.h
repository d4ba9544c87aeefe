// Samples in files: JSON Lines, one line for each sample of each target. A missing sample has a line that says why.
//
// Documents of the output form "json" can be read, too: they are a recording of one round.
#ifndef KRVSTAT_RECORDING_H
#define KRVSTAT_RECORDING_H

#include "inquiry.h"

#include <cstdint>
#include <string>
#include <vector>

struct RecordedRound {
    std::uint64_t number = 0;
    std::vector<TargetAnswer> answers; // without a failure or with records
};

// One line, with its end.
std::string recordLine(std::uint64_t round, const TargetAnswer& answer);

// Returns an empty string, or what is wrong with the file. A last line without an end, as of a record that was cut off,
// is left out.
std::string readRecording(const std::string& path, std::vector<RecordedRound>* rounds);

// What a gateway would have answered that has what the last round of the recording has of each target.
std::vector<TargetAnswer> answerFromRecording(const std::vector<RecordedRound>& rounds, const Inquiry& inquiry);

// A round as an answer to a question about it: the records of the names (none: all).
TargetAnswer answerFromSample(const TargetAnswer& recorded, const Inquiry& inquiry);

#endif
