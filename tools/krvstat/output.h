// Where texts go: data to standard output, everything else to standard error.
#ifndef KRVSTAT_OUTPUT_H
#define KRVSTAT_OUTPUT_H

#include "settings.h"

#include <cstddef>
#include <string_view>

// To be called first. Makes sure that descriptors 0 to 2 are taken: where standard error or output is closed, a
// connection or the trace file would get its number, and what is meant for people would go there.
void prepareOutput();

// What became of a text.
enum class Written { Yes, ReaderGone, No };

// Writes the text, and all of it out of the process. A reader that has gone away, as head(1) does when it has seen
// enough, is no failure; every other failure is said.
Written writeData(std::string_view text);

// The exit code of a command that has printed all that it will.
ExitCode exitCodeOf(Written written);

// Writes "krvstat: ", the sentence and a line end.
void complain(std::string_view sentence);

// The same for what is no error: not with --quiet, or only with --verbose.
void remark(const Settings& settings, std::string_view sentence);
void explain(const Settings& settings, std::string_view sentence);

// How standard output wants its texts.
Style styleFor(const Settings& settings);

#endif
