// What krvstat's exit codes mean. Scripts depend on them: a number, once given, keeps its meaning.
#ifndef KRVSTAT_EXITCODES_H
#define KRVSTAT_EXITCODES_H

enum ExitCode {
    ExitDone = 0,
    ExitRefused = 1,       // the gateway answered and refused the whole request; diff: there are differences
    ExitUsage = 2,         // the command line, the configuration, or a file that they name
    ExitPartial = 3,       // some ids, groups, targets or samples failed, the rest has been printed
    ExitCannotConnect = 4, // no conversation came about
    ExitDeadline = 5,      // a deadline passed
    ExitExchange = 6,      // a conversation broke off, or a reply could not be read
    ExitUnknownName = 7,   // an id or group that was asked for does not exist
    ExitOutput = 8,        // output could not be written
    ExitInternal = 9,      // out of memory, or a fault of krvstat or of the library
    ExitInterrupted = 130  // ended by SIGINT
};

// Those of "check" alone: what monitoring systems expect of a plugin.
enum PluginState { PluginOk = 0, PluginWarning = 1, PluginCritical = 2, PluginUnknown = 3 };

#endif
