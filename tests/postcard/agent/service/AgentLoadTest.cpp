// Ten thousand reloads of an agent under load: what it holds afterwards is what it held before.
#include "postcard/agent/service/AgentServerFixture.h"

#include <atomic>

namespace Postcard::Agent::Service {
namespace {

// Every tenth request goes wrong.
void goesWrongAtTimes(TestSupport::FaultyLine& line, const AgentServer::Later&,
                      PolicyAgent& agent) {
   static const auto subscription =
         agent.requests()->publisher()->subscribe([&line](const Pello::Change& change) {
            constexpr TestSupport::InjectedFailure::Kind kinds[] = {
                  TestSupport::InjectedFailure::refuse, TestSupport::InjectedFailure::twice,
                  TestSupport::InjectedFailure::gone, TestSupport::InjectedFailure::never};
            if (change.attribute ==
                      OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig::kickRequestId &&
                line.requests() % 10 == 0) {
               line.inject({kinds[line.requests() / 10 % std::size(kinds)], "busy"});
            }
         });
}

// A file in which something is different every time: classes, interfaces, a policy that comes and
// goes; now and then it is refused.
std::string editedFile(int edit) {
   if (edit % 50 == 49) {
      return "policies: [{ name: web";
   }
   const std::string interfaces = edit % 3 == 0 ? "Ethernet1" : "Ethernet1, Ethernet2";
   std::string policies = "{ name: edge, interfaces: { ipv4: [" + interfaces + "] }, classes: [" +
                          sampleAll + "] }, " +
                          namedPolicy("web", edit % 2 == 0 ? sampleAll : dnsThenAll);
   if (edit % 5 != 0) {
      policies += ", " + namedPolicy("dns", sampleAll);
   }
   return Agent::Service::fileText(policies);
}

TEST_F(AgentServerTest, tenThousandReloadsUnderLoadLeaveNothingBehind) {
   write(editedFile(0));
   start(20ms, goesWrongAtTimes, [](Agent::Service::ServerOptions& options) {
      options.agent.retryTime = 20ms;
      options.stillTime = 0ms; // the test writes no file while the agent reads it
   });
   const auto reloadOften = [this](int times) {
      for (int i = 0; i < times; ++i) {
         write(editedFile(i));
         ASSERT_EQ(ask("reload").exitCode, i % 50 == 49 ? 2 : 0);
      }
   };
   std::atomic<bool> over = false;
   std::atomic<int> answers = 0;
   std::thread others{[&] {
      while (!over) {
         ask("status", "json");
         ask("show", answers % 2 == 0 ? "json" : "text");
         ++answers;
         std::this_thread::sleep_for(5ms);
      }
   }};
   constexpr int half = sanitized ? 250 : 5000;
   reloadOften(half); // the history and the allocators' pools fill up
   const std::size_t memory = Agent::Service::residentKilobytes(child());
   reloadOften(half);
   over = true;
   others.join();
   EXPECT_GT(answers, half / 500);
   const std::size_t after = residentKilobytes(child());
   if (!sanitized) {
      EXPECT_LE(after, memory + 512);
   }
   RecordProperty("residentKilobytesBefore", static_cast<int>(memory));
   RecordProperty("residentKilobytesAfter", static_cast<int>(after));
   write(editedFile(1));
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_TRUE(eventually([this] { return allAre("programmed"); })) << statuses();
   const std::size_t descriptors = Agent::Service::openDescriptors(child());
   EXPECT_EQ(end(SIGTERM), 0);
   start(20ms, Agent::Service::allGoesWell);
   EXPECT_EQ(descriptors, openDescriptors(child())); // as many as one that has done nothing yet
   RecordProperty("descriptors", static_cast<int>(descriptors));
}

} // namespace
} // namespace Postcard::Agent::Service
