// What krvstat's exit codes mean. Scripts depend on them: a number, once given, keeps its meaning.
#ifndef KRVSTAT_EXITCODES_H
#define KRVSTAT_EXITCODES_H

enum ExitCode {
    ExitDone = 0,
    ExitRefused = 1,       // the gateway answered and refused the whole request
    ExitUsage = 2,         // the command line, or a file that it names
    ExitCannotConnect = 4, // no conversation came about
    ExitExchange = 6,      // a conversation broke off, or a reply could not be read
    ExitUnknownName = 7,   // the gateway refused some of the names that were asked for
    ExitOutput = 8,        // standard output could not be written
    ExitInternal = 9       // out of memory, or a fault of krvstat or of the library
};

#endif
