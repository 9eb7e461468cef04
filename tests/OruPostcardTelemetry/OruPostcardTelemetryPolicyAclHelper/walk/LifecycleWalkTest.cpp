// A random walk through the life of several policies, with a rules client that succeeds, fails,
// answers late, at once and twice: after every step everything that can be seen of the helper is
// that of the model. A walk that fails is shrunk and printed as a list of commands.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/walk/LifecycleWalk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <rapidcheck.h>
#include <sstream>

namespace {

using LifecycleModel::Command;
using LifecycleModel::Kind;
using LifecycleModel::Model;
using LifecycleModel::Policy;
using LifecycleModel::Script;
using LifecycleWalk::Walk;

// What the walks together must have met, or they prove little.
constexpr const char* paths[] = {
      "create",
      "recreate",
      "commit",
      "delete",
      "addIntf",
      "removeIntf",
      "attach",
      "detach",
      "edit",
      "succeed",
      "fail",
      "answer again",
      "client",
      "forget text",
      "skip",
      "built",
      "built without rules",
      "built with a message",
      "recreated",
      "recreated under a request",
      "recreated, number kept",
      "recreated, number closed up",
      "commit of a creation",
      "commit of an update",
      "commit without rules",
      "deletion of nothing",
      "deletion with a request",
      "deletion without a request",
      "addition without rules",
      "addition passed on",
      "addition with our message",
      "addition without a text",
      "addition with the latest text",
      "removal without rules",
      "removal passed on",
      "removal with our message",
      "removal without a text",
      "removal with the latest text",
      "answered at once",
      "answer for the request's configuration",
      "answer for its successor",
      "success after success",
      "success after failure",
      "failure after success",
      "failure after failure",
};

TEST(LifecycleWalk, isThatOfTheModel) {
   std::map<std::string, U64> reached;
   U64 steps = 0;
   ASSERT_TRUE(rc::check("whatever happens to policies, the helper does what the model does", [&] {
      const Script script = *LifecycleModel::scripts();
      Walk walk;
      for (const Command& command : script.commands) {
         walk.step(command);
      }
      steps += walk.steps;
      for (const auto& [path, times] : walk.model.reached) {
         reached[path] += times;
      }
   }));
   EXPECT_GE(steps, 10'000U);
   for (const char* path : paths) {
      EXPECT_GE(reached[path], 20U) << path;
   }
   EXPECT_LE(reached.size(), std::size(paths)) << "a path is missing in the list above";
}

// A model that forgets, when a policy is made anew, that it was in force.
void forgetProgrammed(const Command& command, Model& model) {
   if (command.kind == Kind::recreate) {
      const Policy& policy = LifecycleModel::newPolicies()[command.policy];
      model.configs.at(Model::key(policy, command.family))->programmed = false;
   }
}

// Four steps show it: the policy is made, posted, answered (or the rules client told to answer at
// once) and made anew. Nothing else may be left of a walk of hundreds.
TEST(LifecycleWalk, aDifferenceIsShrunkToAShortestReproduction) {
   for (const uint64_t seed : {1U, 2U, 3U}) {
      rc::detail::TestParams params;
      params.seed = seed;
      std::size_t longest = 0;
      const auto result = rc::detail::checkTestable(
            [&] {
               const Script script = *LifecycleModel::scripts();
               longest = std::max(longest, script.commands.size());
               Walk walk{&forgetProgrammed};
               for (const Command& command : script.commands) {
                  walk.step(command);
               }
            },
            rc::detail::TestMetadata{}, params);
      std::ostringstream printed;
      rc::detail::printResultMessage(result, printed);
      ASSERT_TRUE(result.is<rc::detail::FailureResult>()) << printed.str();
      const auto& example = result.get<rc::detail::FailureResult>().counterExample;
      ASSERT_EQ(example.size(), 1U);
      const std::string& script = example.front().second; // every command on a line of its own
      EXPECT_EQ(std::ranges::count(script, '\n'), 4) << script;
      EXPECT_GT(longest, 20U);
      for (const char* text : {"\n   create ", "\n   commit ", "\n   recreate ", "shrinks\n",
                               "\nmodel:  configuration ", "\nhelper: configuration "}) {
         EXPECT_NE(printed.str().find(text), std::string::npos) << text << printed.str();
      }
   }
}

} // namespace
