// Where texts go: data to standard output, everything else to standard error.
#ifndef KRVSTAT_OUTPUT_H
#define KRVSTAT_OUTPUT_H

#include <cstddef>
#include <string_view>

// To be called first. Makes sure that descriptors 0 to 2 are taken: where standard error or output is closed, a
// connection or the trace file would get its number, and what is meant for people would go there.
void prepareOutput();

// Writes the text, and all of it out of the process. Returns 0 or an errno. A reader that has gone away, as head(1)
// does when it has seen enough, is no failure.
int writeData(std::string_view text);

// Writes "krvstat: ", the sentence and a line end.
void complain(std::string_view sentence);

// Columns of the terminal that standard output is; 0 if it is none.
std::size_t terminalColumns();

#endif
