// What the tests of `postcard explain` share: the real program with the real module, and policies
// for it. The program itself compares reasons and rules for every packet and fails when they
// contradict each other, so every run checks that too.
#pragma once

#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace CliTest {

class Explain : public testing::Test {
 protected:
   std::string policy(const std::string& text) const { return folder_.write("policy.yaml", text); }
   const TestSupport::TemporaryFolder& folder() const { return folder_; }
   static TestSupport::ProgramResult explain(std::vector<std::string> arguments,
                                             std::vector<std::string> environment = {}) {
      arguments.insert(arguments.begin(), {std::string{POSTCARD_BIN_DIR} + "/postcard", "explain"});
      return TestSupport::runProgram(std::move(arguments), std::move(environment));
   }

 private:
   TestSupport::TemporaryFolder folder_;
};

// The beginning of a policy `p`, up to its classes.
inline const std::string ipv4Policy = R"(policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes:
)";

} // namespace CliTest
