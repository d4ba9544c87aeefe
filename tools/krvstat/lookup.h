// From a host name to addresses, within a deadline.
#ifndef KRVSTAT_LOOKUP_H
#define KRVSTAT_LOOKUP_H

#include "deadline.h"

#include <string>
#include <vector>

enum class LookupEnd { Found, Unknown, Late };

// The addresses of a host in the order of preference, as texts; an address is its own. The resolver of the C library
// cannot be told how long it may take: it works on a thread of its own, which is left behind if it is late.
LookupEnd lookUp(const std::string& host, Deadline deadline, std::vector<std::string>* addresses);

#endif
