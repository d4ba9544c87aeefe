// krvstat before a gateway that serves what stands here and never changes.
#ifndef TESTS_TOOLS_KRVSTAT_FIXTURE_H
#define TESTS_TOOLS_KRVSTAT_FIXTURE_H

#include "gateway_process.h"
#include "run_program.h"

#include <gtest/gtest.h>

#include <optional>

constexpr const char* FixedScenario = R"(
groups:
  - id: cpu
    statistics:
      - {id: cpu.user, value: "1200"}
      - {id: cpu.model, value: "Example 9000, 3.2 GHz"}
  - id: memory
    statistics:
      - {id: memory.total, value: "0008388608 kB"}
  - id: odd
    statistics:
      - {id: odd.empty, value: ""}
      - {id: odd.escape, hex: "1b5b324a6f6b0d0a"}
      - {id: "odd\tid", value: 'C:\temp'}
      - {id: odd.utf8, hex: "5ac3bc72696368ff"}
      - {id: "[odd]", value: " 1, 2 "}
      - {id: "-odd", value: "dash"}
      - {id: ids, value: "named like a command"}
  - id: broken
    rc: -5
  - id: empty
    statistics: []
)";

class KrvstatWithGateway : public testing::Test {
protected:
    void TearDown() override
    {
        ASSERT_TRUE(gateway);
        EXPECT_EQ(gateway->stop(), 0);
        EXPECT_EQ(gateway->complaints(), std::vector<std::string>()); // krvstat sent it nothing wrong
    }

    void serve(const std::string& scenario, const std::vector<std::string>& misbehaviours = {})
    {
        gateway.emplace(misbehaviours, scenario);
    }

    std::string target() const
    {
        return "127.0.0.1:" + std::to_string(gateway->port());
    }

    // krvstat, asked of this gateway.
    Launch launch(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--target", target()});
        return krvstatLaunch(std::move(arguments));
    }

    ProgramRun run(std::vector<std::string> arguments) const
    {
        return runProgram(launch(std::move(arguments)));
    }

    std::optional<krvtest::GatewayProcess> gateway;
};

class KrvstatWithFixedGateway : public KrvstatWithGateway {
protected:
    void SetUp() override
    {
        serve(FixedScenario);
    }
};

#endif
