// What `postcard diff` says about an agent is what a running agent does: one agent is given file
// after file, and its requests are counted.
#include "postcard/cli/AgentProgram.h"

namespace {

using namespace CliTest;
using Json = nlohmann::json;

class DiffAgent : public AgentProgram {
 protected:
   Json diff(const std::string& before, const std::string& after) const {
      std::ofstream{file() + ".old"} << before;
      std::ofstream{file() + ".new"} << after;
      return Json::parse(
            runProgram({program, "diff", "--format", "json", file() + ".old", file() + ".new"})
                  .out);
   }
   bool settled() const {
      return std::ranges::all_of(states(), [](const auto& state) {
         return state == "programmed" || state == "removed" || state == "empty";
      });
   }
   // The agent's counter of requests.
   std::size_t requests() const {
      std::size_t latest = 0;
      for (const auto& one : statuses()) {
         latest = std::max(latest, one["generation"].get<std::size_t>());
      }
      return latest;
   }
};

std::string policy(const std::string& name, const std::string& interfaces,
                   const std::string& filter = "ipv4: {}") {
   return "- { name: " + name + ", interfaces: { " + interfaces +
          " }, classes: [{ name: c, actions: [sample], " + filter + " }] }\n";
}

const std::string tcp = "ipv4: { protocols: [{ protocol: tcp }] }";
const std::string nothing = "ipv4: { protocols: [{ protocol: tcp, ports: [{}] }] }";

// Each is what the agent runs when it is given the next one.
const std::vector<std::string> files = {
      policy("a", "ipv4: [E1, E2]") + policy("b", "ipv4: [E1]"),
      // interfaces of one, another filter of the other, and a new policy
      policy("a", "ipv4: [E2, E3, E4]") + policy("b", "ipv4: [E1]", tcp) +
            policy("c", "ipv4: [E1], ipv6: [E1]", "ipv6: {}, ipv4: {}"),
      // another order of policies
      policy("c", "ipv4: [E1], ipv6: [E1]", "ipv6: {}, ipv4: {}") + policy("b", "ipv4: [E1]", tcp) +
            policy("a", "ipv4: [E2, E3, E4]"),
      // a policy that makes no rules any more, one that loses a family
      policy("c", "ipv4: [E1]") + policy("b", "ipv4: [E1]", nothing) + policy("a", "ipv4: [E4]"),
      // interfaces of a policy without rules, one that goes
      policy("b", "ipv4: [E1, E2]", nothing) + policy("a", "ipv4: [E4]"),
      policy("b", "ipv4: [E1, E2]") + policy("a", "ipv4: [E4]", tcp),
};

TEST_F(DiffAgent, requestsAreThoseOfARunningAgent) {
   write("policies:\n" + files.front());
   start();
   ASSERT_TRUE(eventually([this] { return settled(); }));
   for (std::size_t next = 1; next < files.size(); ++next) {
      const Json expected = diff("policies:\n" + files[next - 1], "policies:\n" + files[next]);
      const std::size_t before = requests();
      write("policies:\n" + files[next]);
      EXPECT_EQ(ask("reload").exitCode, 0);
      ASSERT_TRUE(eventually([this] { return settled(); }));
      EXPECT_EQ(requests() - before, expected["agent"]["requests"]) << "file " << next;
      EXPECT_EQ(expected["agent"]["accepts"], true);
   }
}

TEST_F(DiffAgent, whatItWouldRefuseItRefuses) {
   const std::string good = "policies:\n" + files.front();
   const std::string refused = good + "- { name: d, interfaces: { ipv4: [E1] }, classes: [{ name: "
                                      "c, actions: [drop], ipv4: {} }] }\n";
   const std::string toggles = "feature-toggles: { FeaturePostcardTelemetryTcpControl: false }\n";
   write(good);
   start();
   for (const std::string& bad : {refused, toggles + good, std::string{"policies: []\n"}}) {
      EXPECT_EQ(diff(good, bad)["agent"]["accepts"], false) << bad;
      write(bad);
      EXPECT_NE(ask("reload").exitCode, 0) << bad;
   }
}

} // namespace
