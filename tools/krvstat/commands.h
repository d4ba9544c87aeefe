// The commands: one file each. All take settings that are complete, and return the exit code.
#ifndef KRVSTAT_COMMANDS_H
#define KRVSTAT_COMMANDS_H

#include "settings.h"

int runList(const Settings& settings); // groups and ids
int runGet(const Settings& settings);
int runWatch(const Settings& settings);
int runTop(const Settings& settings);
int runDiff(const Settings& settings);
int runCheck(const Settings& settings);
int runRecord(const Settings& settings);
int runReplay(const Settings& settings);
int runPing(const Settings& settings);
int runCompletion(const Settings& settings);
int runVersion();

// Says a problem with the command line. Returns ExitUsage.
int refuseUsage(const std::string& problem);

#endif
