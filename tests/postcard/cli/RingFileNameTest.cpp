// What the program does with the file that RINGLOG_FILE names: it destroys none, and an agent goes
// on when its ring is truncated.
#include "postcard/cli/AgentProgram.h"

#include <iterator>

namespace CliTest {
namespace {

std::string contentOf(const std::string& path) {
   std::ifstream in{path, std::ios::binary};
   return {std::istreambuf_iterator<char>{in}, {}};
}

std::size_t timesIn(const std::string& text, const std::string& searched) {
   std::size_t times = 0;
   for (std::size_t at = text.find(searched); at != std::string::npos;
        at = text.find(searched, at + 1)) {
      ++times;
   }
   return times;
}

class RingFileName : public AgentProgram {};

TEST_F(RingFileName, aPolicyIsNoRing) {
   const std::string policy = policyText("Ethernet1", twoClasses);
   write(policy);
   const ProgramResult plain = runProgram({program, "compile", file()});
   const ProgramResult result =
         runProgram({program, "compile", file()}, {"RINGLOG_FILE=" + file()});
   EXPECT_EQ(contentOf(file()), policy);
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.out, plain.out);
   EXPECT_EQ(result.err, "RINGLOG_FILE=" + file() +
                               " ignored: the file holds something else than a trace ring and is "
                               "left as it is; name another one, or a new one. Traces stay in "
                               "memory\n" +
                               plain.err);
}

TEST_F(RingFileName, fewDescriptors) {
   write(policyText("Ethernet1", oneClass));
   const std::string ring = file() + ".ring";
   const ProgramResult plain = runProgram({program, "compile", file()});
   std::size_t compiled = 0;
   for (int most = 3; most <= 20; ++most) {
      const ProgramResult result = runProgram(
            {"/bin/sh", "-c",
             "ulimit -n " + std::to_string(most) + "; exec " + program + " compile " + file()},
            {"RINGLOG_FILE=" + ring});
      EXPECT_EQ(result.signal, 0) << most << result.err;
      EXPECT_NE(result.exitCode == 0 ? result.out : result.err, "") << most;
      if (result.exitCode == 0) {
         EXPECT_EQ(result.out, plain.out) << most;
         ++compiled;
      }
   }
   EXPECT_GT(compiled, 5U);
}

TEST_F(RingFileName, anAgentGoesOnWhenItsRingIsTruncated) {
   const std::string ring = file() + ".ring";
   write(policyText("Ethernet1", oneClass));
   {
      const Environment name{"RINGLOG_FILE", ring};
      start();
   }
   ASSERT_TRUE(eventually([this] { return allProgrammed(); }));
   const std::uintmax_t size = std::filesystem::file_size(ring);
   for (int round = 0; round < 2; ++round) {
      std::filesystem::resize_file(ring, 0);
      int reloads = 0;
      EXPECT_TRUE(eventually([&] {
         write(policyText("Ethernet1", ++reloads % 2 == 0 ? oneClass : twoClasses));
         EXPECT_EQ(ask("reload").exitCode, 0);
         return std::filesystem::file_size(ring) == size;
      }));
      const ProgramResult trace = runProgram({program, "trace", ring});
      EXPECT_EQ(trace.exitCode, 0) << trace.err;
      EXPECT_NE(trace.out, "");
      EXPECT_EQ(trace.err, "");
   }
   EXPECT_EQ(timesIn(err(), "the ring was truncated"), 1U) << err();
   EXPECT_EQ(kill(SIGTERM), 0);
}

} // namespace
} // namespace CliTest
