// `postcard agent --rules-client kernel`: the command as a whole, on interfaces of the test's own.
#include "FixedFrames.h"
#include "Namespaces.h"
#include "TestRun.h"
#include "postcard/rules-client/kernel/Interface.h"
#include "support/BackgroundProgram.h"
#include "support/TemporaryFolder.h"

#include <bpf/libbpf.h>
#include <gtest/gtest.h>

#include <fstream>

namespace {

using namespace RulesClientTest;
using TestSupport::BackgroundProgram;
using TestSupport::eventually;
using TestSupport::ProgramResult;
using TestSupport::runProgram;

class Agent : public KernelTest {
 protected:
   void SetUp() override {
      KernelTest::SetUp();
      if (IsSkipped()) {
         return;
      }
      if (!net_.missing().empty()) {
         GTEST_SKIP() << net_.missing();
      }
      Namespace::pair("a");
      Namespace::pair("b");
      policy("[a]");
   }

   void policy(const std::string& interfaces) {
      std::ofstream{file_} << "policies:\n"
                              "  - name: web\n"
                              "    interfaces: { ipv4: "
                           << interfaces
                           << " }\n"
                              "    classes:\n"
                              "      - name: https\n"
                              "        actions: [sample]\n"
                              "        ipv4: { protocols: [{ protocol: tcp, ports: [{ destination: "
                              "[443] }] }] }\n";
   }
   std::vector<std::string> agent(std::vector<std::string> more = {}) const {
      std::vector<std::string> arguments{
            TestSupport::program, "agent", "--rules-client", "kernel", "--socket", socket_, file_};
      arguments.insert(arguments.end(), more.begin(), more.end());
      return arguments;
   }
   ProgramResult ask(std::vector<std::string> words) const {
      words.insert(words.begin(), TestSupport::program);
      words.insert(words.end(), {"--socket", socket_});
      return runProgram(words);
   }
   // Whether the interface has a program.
   static bool attached(const std::string& interface) {
      U32 number = 0;
      const int index = static_cast<int>(Postcard::RulesClient::interfaceIndex(interface));
      return bpf_xdp_query_id(index, 0, &number) == 0 && number != 0;
   }

   Namespace net_;
   TestSupport::TemporaryFolder folder_;
   const std::string file_ = folder_.path("policy.yaml");
   const std::string socket_ = folder_.path("s");
};

TEST_F(Agent, programsReloadsAndTakesBack) {
   BackgroundProgram program{agent()};
   ASSERT_TRUE(eventually([&] {
      return program.err().find("web ipv4: programmed") != std::string::npos;
   })) << program.err();
   EXPECT_TRUE(attached("a"));
   EXPECT_FALSE(attached("b"));
   policy("[b, c]");
   EXPECT_EQ(ask({"reload"}).exitCode, 0);
   EXPECT_EQ(ask({"status", "--wait"}).exitCode, 0);
   EXPECT_FALSE(attached("a"));
   EXPECT_TRUE(attached("b"));
   EXPECT_NE(program.err().find("agent: waiting for interfaces: c\n"), std::string::npos);
   Namespace::pair("c"); // the agent hears of it
   EXPECT_TRUE(eventually([] { return attached("c"); }));
   program.signal(SIGTERM);
   EXPECT_EQ(program.wait().exitCode, 0);
   EXPECT_FALSE(attached("b"));
   EXPECT_FALSE(attached("c"));
}

TEST_F(Agent, countersOfPacketsAndBytes) {
   policy("[a, x]");
   const BackgroundProgram program{agent()};
   ASSERT_TRUE(eventually([&] { return ask({"status", "--wait"}).exitCode == 0; }));
   const Bytes frame = joined({macs, type4, head4(20), tcp443});
   Bytes other = frame;
   other[37] = 0x50;
   const PacketSocket from{"ap"};
   for (const Bytes& each : {frame, other, frame}) {
      from.send(each);
   }
   const std::string expected =
         "web-ipv4: 2 samples, 0 lost\n"
         "   interface a: native\n"
         "   interface x: waiting\n"
         "   0 https-ipv4-tcp-DportData-443-DportMask-65535: 2 packets, 108 bytes, sampled\n"
         "   0 of 1 rules have matched no packet\n";
   EXPECT_TRUE(eventually([&] { return ask({"counters"}).out == expected; }))
         << ask({"counters"}).out;
   const ProgramResult json = ask({"counters", "--format", "json"});
   EXPECT_EQ(json.exitCode, 0);
   EXPECT_NE(json.out.find("\"schema\": 1"), std::string::npos);
   EXPECT_NE(json.out.find("\"packets\": 2"), std::string::npos);
   EXPECT_NE(json.out.find("\"bytes\": 108"), std::string::npos);
}

TEST_F(Agent, theSoftwareTcamCountsNoPackets) {
   std::vector<std::string> arguments{TestSupport::program, "agent", "--socket", socket_, file_};
   const BackgroundProgram program{arguments};
   ASSERT_TRUE(eventually([&] { return ask({"status", "--wait"}).exitCode == 0; }));
   const ProgramResult result = ask({"counters"});
   EXPECT_EQ(result.exitCode, 1);
   EXPECT_EQ(result.err, "the rules client counts no packets\n");
}

TEST_F(Agent, withoutCapabilitiesItSaysWhatToGrant) {
   std::vector<std::string> arguments = agent();
   arguments.insert(arguments.begin(),
                    {"/usr/bin/setpriv", "--bounding-set=-bpf,-net_admin,-sys_admin"});
   const ProgramResult result = runProgram(arguments);
   EXPECT_EQ(result.exitCode, 3);
   EXPECT_EQ(result.out, "");
   EXPECT_EQ(result.err,
             "cannot make a BPF map: Operation not permitted (the capabilities CAP_BPF and "
             "CAP_NET_ADMIN are needed)\n");
}

TEST_F(Agent, theCapacityIsThatOfTheSoftwareTcam) {
   const ProgramResult result = runProgram(agent({"--capacity", "5"}));
   EXPECT_EQ(result.exitCode, 2);
   EXPECT_EQ(result.err, "postcard agent: --capacity is that of the software TCAM\n");
}

// The example for readers does what it says.
TEST_F(Agent, theExampleCountsThreeOfFivePackets) {
   const ProgramResult result =
         runProgram({"/bin/bash", TestSupport::examples + "kernel/run", TestSupport::program});
   EXPECT_EQ(result.exitCode, 0) << result.err;
   EXPECT_NE(result.out.find("dns-ipv4: 3 samples, 0 lost\n"), std::string::npos) << result.out;
   EXPECT_NE(result.out.find(": 3 packets, 144 bytes, sampled\n"), std::string::npos) << result.out;
}

} // namespace
