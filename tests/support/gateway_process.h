// A simulated gateway as a process of its own, for tests that need one that behaves, or misbehaves by name.
#ifndef TESTS_SUPPORT_GATEWAY_PROCESS_H
#define TESTS_SUPPORT_GATEWAY_PROCESS_H

#include <string>
#include <vector>

#include <sys/types.h>

#include "trace_capture.h"

namespace krvtest {

// What the gateway of a test serves: group alpha with ids alpha.one = "1" and alpha.long = 3000 characters, group beta
// with id beta.one = "two".
extern const char* const smallScenario;

class GatewayProcess {
public:
    // Starts it with a scenario (YAML) and, for each of them, --misbehave. Throws if it is not ready in time.
    explicit GatewayProcess(const std::vector<std::string>& misbehaviours = {}, const std::string& scenario = smallScenario);
    // Stops it, if stop was not called.
    ~GatewayProcess();
    GatewayProcess(const GatewayProcess&) = delete;
    GatewayProcess& operator=(const GatewayProcess&) = delete;

    int port() const { return portNumber; }

    // Ends it with SIGTERM and returns its exit code: 0 for a clean end, -1 if it had to be killed. With nothing but
    // well-behaved clients its complaints are none.
    int stop();

    // Lines "CONNECTION DIRECTION MESSAGE HEX", as far as they are written.
    std::vector<std::string> transcript() const;
    std::vector<std::string> complaints() const;
    // Waits until a line holds this text; false if that takes too long.
    bool awaitTranscript(const std::string& text) const;

private:
    ScratchFolder scratch;
    pid_t child = -1;
    int portNumber = 0;
};

} // namespace krvtest

#endif
