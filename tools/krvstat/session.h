// One connection to a gateway, used by one thread: open, ask, close, each within a deadline.
//
// Only this module talks to the library about statistics. What the library hands out lives until the next query or the
// close, so everything is copied here.
#ifndef KRVSTAT_SESSION_H
#define KRVSTAT_SESSION_H

#include "deadline.h"
#include "sample.h"
#include "target.h"

#include "krvstats_ext.h"

#include <string>
#include <unordered_map>
#include <vector>

enum class Stage { LookingUp, Connecting, Asking };

// The library's code, how far the conversation had come, and whether it ended because its deadline had passed.
struct CallResult {
    int code = KRVSTAT_OK;
    Stage stage = Stage::Connecting;
    bool isLate = false;
};

struct Session {
    KRV_GatewayToken_t gateway = nullptr;                 // NULL: not connected
    std::string address;                                  // that is connected to
    std::string protocol;                                 // version of the gateway's statistics protocol
    std::unordered_map<std::string, std::string> groupOf; // group by id; filled by learnGroups
};

// Looks the host up and tries its addresses in turn.
CallResult openSession(const Target& target, Deadline deadline, Session* session);

// Asks for what is named (none: everything; ignored for groups). No name may occur twice. The sample is complete if the
// result's code is 0. Records get their groups as far as they were learned.
CallResult ask(
    Session* session, Question question, const std::vector<std::string>& names, Deadline deadline, Sample* sample);

// Asks which statistics each group has.
CallResult learnGroups(Session* session, Deadline deadline);

// Says goodbye, if the connection still stands.
void closeSession(Session* session, Deadline deadline);

#endif
