// Threads that wait for something that cannot be interrupted are left behind at the end. The process then has to end
// without tearing down what they use.
#ifndef KRVSTAT_LEFTBEHIND_H
#define KRVSTAT_LEFTBEHIND_H

void noteThreadLeftBehind();

// Ends the process by _exit if a thread was left behind; returns the code otherwise. All output must be written.
int endProcess(int exitCode);

#endif
