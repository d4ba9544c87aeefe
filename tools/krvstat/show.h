// The end of the commands that print once.
#ifndef KRVSTAT_SHOW_H
#define KRVSTAT_SHOW_H

#include "outcome.h"
#include "view.h"

// Prints the rows, and returns the exit code for everything. Of nothing, tables have no heading.
int showOnce(const Settings& settings, const View& view, const std::vector<Entry>& entries, const Outcome& outcome,
    Sheet* sheet);

// Likewise for a sheet that is complete.
int showSheet(const Settings& settings, const Sheet& sheet, ExitCode code);

#endif
