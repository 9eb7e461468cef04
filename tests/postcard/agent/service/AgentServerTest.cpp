// The agent as a process whose rules client answers late, never, twice, wrongly, or with a refusal.
#include "postcard/agent/service/AgentServerFixture.h"

#include <ctime>

namespace Postcard::Agent::Service {
namespace {

// UTC, to the second, as the status has it.
std::string timeText(std::chrono::system_clock::time_point when) {
   const std::time_t time = std::chrono::system_clock::to_time_t(when);
   char text[32];
   std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&time));
   return text;
}

TEST_F(AgentServerTest, anAnswerThatNeverComesIsToldAndTheNextOneRepairsIt) {
   write(policyText(sampleAll));
   start(50ms, [](TestSupport::FaultyLine& line, auto&&...) {
      line.inject({TestSupport::InjectedFailure::never, {}});
   });
   ASSERT_TRUE(eventually([this] { return status()["overdue"] == true; }));
   const auto waiting = status();
   EXPECT_EQ(waiting["state"], "waiting");
   EXPECT_EQ(waiting["policy"], "web");
   EXPECT_EQ(waiting["since"].get<std::string>().size(), 20U);
   EXPECT_NE(ask("status").text.find("overdue"), std::string::npos);
   EXPECT_EQ(ask("show").exitCode, 0);
   write(policyText(dnsThenAll));
   EXPECT_EQ(ask("reload").exitCode, 0);
   EXPECT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   EXPECT_EQ(status()["overdue"], false);
}

// Lets the held answers go at `deadline`, from the event loop.
void releaseAt(std::chrono::steady_clock::time_point deadline, TestSupport::FaultyLine& line,
               const AgentServer::Later& later) {
   if (std::chrono::steady_clock::now() < deadline) {
      later([deadline, &line, later] { releaseAt(deadline, line, later); });
   } else {
      line.releaseAnswers();
   }
}

TEST_F(AgentServerTest, aLateAnswerIsTaken) {
   write(policyText(sampleAll));
   start(50ms, [](TestSupport::FaultyLine& line, const AgentServer::Later& later, auto&&) {
      line.inject({TestSupport::InjectedFailure::late, {}});
      releaseAt(std::chrono::steady_clock::now() + 1s, line, later);
   });
   ASSERT_TRUE(eventually([this] { return status()["overdue"] == true; }));
   ASSERT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   EXPECT_EQ(status()["overdue"], false);
   EXPECT_EQ(status()["generation"], 1);
   EXPECT_EQ(status()["history"].size(), 1U);
}

TEST_F(AgentServerTest, anAnswerThatComesTwiceIsTakenOnce) {
   write(policyText(sampleAll));
   start(5s, [](TestSupport::FaultyLine& line, auto&&...) {
      line.inject({TestSupport::InjectedFailure::twice, {}});
   });
   ASSERT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
   EXPECT_EQ(status()["history"].size(), 1U);
}

void writeStale(PolicyAgent& agent) {
   agent.answers()->statusIs("stale");
   agent.answers()->statusTypeIs(OruPostcardTelemetry::statusFailure);
   agent.answers()->kickResponseIs(agent.answers()->kickResponse() + 100);
}

// The stale answer comes right before the right one, or right after it, in the same round of the
// event loop: then the record holds one answer while the agent is told of the other.
TEST_F(AgentServerTest, aStaleAnswerBeforeTheRightOneIsNotTaken) {
   write(policyText(sampleAll));
   start(5s, [](TestSupport::FaultyLine& line, auto&&...) {
      line.inject({TestSupport::InjectedFailure::gone, "stale"});
   });
   ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
   EXPECT_EQ(status()["history"], nlohmann::json::parse(R"([""])"));
}

TEST_F(AgentServerTest, aStaleAnswerAfterTheRightOneIsNotTaken) {
   write(policyText(sampleAll));
   start(5s, [](TestSupport::FaultyLine&, const AgentServer::Later& later, PolicyAgent& agent) {
      static const auto subscription =
            agent.answers()->publisher()->subscribe([&agent, later](const Pello::Change& change) {
               if (change.attribute == OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus::
                                             kickResponseId &&
                   agent.answers()->kickResponse() == 1) {
                  later([&agent] { writeStale(agent); }); // behind the agent's own work
                  writeStale(agent);                      // and before it
               }
            });
   });
   ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
   EXPECT_EQ(status()["history"], nlohmann::json::parse(R"([""])"));
}

TEST_F(AgentServerTest, aRefusalIsShown) {
   write(policyText(sampleAll));
   start(
         5s,
         [](TestSupport::FaultyLine& line, auto&&...) {
            line.inject({TestSupport::InjectedFailure::refuse, "no power"});
         },
         [](ServerOptions& options) { options.agent.retryTime = 1h; });
   ASSERT_TRUE(eventually([this] { return status()["state"] == "failed"; }));
   EXPECT_EQ(status()["text"], "no power");
   EXPECT_EQ(ask("reload").text, "1 operation\n"); // of the same file
   EXPECT_TRUE(eventually([this] { return status()["state"] == "programmed"; }));
}

// ---- Several policies ----

const std::string threePolicies =
      fileText(namedPolicy("web", sampleAll) + ", " + namedPolicy("dns", dnsThenAll) + ", " +
               namedPolicy("ntp", sampleAll));

TEST_F(AgentServerTest, whoWaitsSinceWhenIsToldUntilItIsRepairedWithoutAReload) {
   write(threePolicies);
   const auto begin = std::chrono::system_clock::now();
   start(
         100ms,
         [](TestSupport::FaultyLine& line, auto&&...) {
            line.inject({TestSupport::InjectedFailure::never, {}}, 9);
         },
         [](ServerOptions& options) { options.agent.retryTime = 300ms; });
   ASSERT_TRUE(eventually([this] { return status(2)["overdue"] == true; }));
   const auto first = statuses();
   ASSERT_TRUE(eventually([this] { return status(0)["generation"] > 3; })); // asked again
   const auto second = statuses();
   for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(second[i]["state"], "waiting");
      EXPECT_EQ(second[i]["overdue"], true);
      EXPECT_EQ(second[i]["since"], first[i]["since"]);
      EXPECT_GE(second[i]["since"].get<std::string>(), timeText(begin));
      EXPECT_LE(second[i]["since"].get<std::string>(), timeText(begin + 10s));
   }
   ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
   EXPECT_EQ(status(1)["overdue"], false);
}

TEST_F(AgentServerTest, oneLostOneLateOneRepeatedAnswer) {
   write(threePolicies);
   start(200ms, [](TestSupport::FaultyLine& line, const AgentServer::Later& later, auto&&) {
      line.inject({TestSupport::InjectedFailure::never, {}});
      line.inject({TestSupport::InjectedFailure::late, {}});
      line.inject({TestSupport::InjectedFailure::twice, {}});
      releaseAt(std::chrono::steady_clock::now() + 600ms, line, later);
   });
   ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
   for (const auto& policy : statuses()) {
      EXPECT_EQ(policy["history"], nlohmann::json::parse(R"([""])")) << policy;
   }
}

TEST_F(AgentServerTest, killedWithARequestInFlightItComesUpClean) {
   write(threePolicies);
   start(10s, [](TestSupport::FaultyLine& line, auto&&...) {
      line.inject({TestSupport::InjectedFailure::never, {}});
   });
   EXPECT_EQ(status()["state"], "waiting");
   EXPECT_EQ(end(SIGKILL), -SIGKILL);
   start(10s, allGoesWell);
   EXPECT_TRUE(eventually([this] { return allAre("programmed"); }));
}

// ---- The end ----

void never(TestSupport::FaultyLine& line, const AgentServer::Later&, PolicyAgent&) {
   line.inject({TestSupport::InjectedFailure::never, {}}, 1000);
}

TEST_F(AgentServerTest, itEndsAtOnceWhileAPolicyWaits) {
   for (const int number : {SIGTERM, SIGINT}) {
      write(threePolicies);
      start(1min, never);
      EXPECT_EQ(status()["state"], "waiting");
      EXPECT_EQ(end(number), 0);
   }
}

TEST_F(AgentServerTest, takingBackFromADeadRulesClientHasOneDeadline) {
   write(threePolicies);
   start(1min, never, [](ServerOptions& options) {
      options.deleteOnExit = true;
      options.deleteTime = 300ms;
   });
   const auto begin = std::chrono::steady_clock::now();
   EXPECT_EQ(end(SIGTERM), 3);
   EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
   EXPECT_NE(said().find("agent: not taken back: web ipv4: waiting\n"), std::string::npos)
         << said();
}

// Does `what` to the rules client right before it is asked for the first removal of three policies.
auto atTheFirstRemoval(TestSupport::InjectedFailure what, std::size_t times) {
   return [=](TestSupport::FaultyLine& line, const AgentServer::Later&, PolicyAgent& agent) {
      static const auto subscription = agent.requests()->publisher()->subscribe(
            [=, &line, &agent](const Pello::Change& change) {
               // The event is written before the counter.
               if (change.attribute ==
                         OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig::eventId &&
                   agent.requests()->event() == OruPostcardTelemetry::policyDelete) {
                  line.inject(what, times);
               }
            });
   };
}

TEST_F(AgentServerTest, aRemovalThatIsAlwaysRefusedIsToldAtTheEnd) {
   write(threePolicies);
   start(5s, atTheFirstRemoval({TestSupport::InjectedFailure::refuse, "busy"}, 1000),
         [](ServerOptions& options) {
            options.deleteOnExit = true;
            options.deleteTime = 500ms;
         });
   ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
   EXPECT_EQ(end(SIGTERM), 3);
   EXPECT_NE(said().find("agent: not taken back: dns ipv4: failed, "
                         "the rules client still holds it: busy\n"),
             std::string::npos)
         << said();
}

TEST_F(AgentServerTest, aRemovalThatIsRefusedOrLostOnceIsMadeAgainBeforeTheEnd) {
   for (const auto kind :
        {TestSupport::InjectedFailure::refuse, TestSupport::InjectedFailure::never}) {
      write(threePolicies);
      start(200ms, atTheFirstRemoval({kind, "busy"}, 1), [](ServerOptions& options) {
         options.deleteOnExit = true;
         options.agent.retryTime = 50ms;
      });
      ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
      EXPECT_EQ(end(SIGTERM), 0) << said();
      for (const char* policy : {"web", "dns", "ntp"}) {
         EXPECT_NE(said().find(std::string{policy} + " ipv4: removed\n"), std::string::npos)
               << said();
      }
   }
}

TEST_F(AgentServerTest, aRemovalThatWaitsSaysSinceWhenHoweverOftenItIsMadeAgain) {
   write(threePolicies);
   start(200ms, atTheFirstRemoval({TestSupport::InjectedFailure::never, {}}, 1000),
         [](ServerOptions& options) { options.agent.retryTime = 50ms; });
   ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
   write(fileText(namedPolicy("web", sampleAll)));
   EXPECT_EQ(ask("reload").exitCode, 0);
   ASSERT_TRUE(eventually([this] { return status(1)["overdue"] == true; }));
   const auto first = status(1);
   EXPECT_EQ(first["policy"], "dns");
   EXPECT_EQ(first["state"], "waiting");
   std::this_thread::sleep_for(1100ms); // the time is told to the second
   ASSERT_TRUE(eventually([&] { return status(1)["generation"] > first["generation"]; }));
   const auto second = status(1);
   EXPECT_EQ(second["state"], "waiting");
   EXPECT_EQ(second["overdue"], true);
   EXPECT_EQ(second["since"], first["since"]);
   EXPECT_EQ(second["text"], first["text"]);
   EXPECT_EQ(first["text"], "Operation pending for policy dns, matchIpAccessGroup has not been "
                            "answered in time");
   EXPECT_EQ(end(SIGTERM), 0);
}

TEST_F(AgentServerTest, whileItEndsNothingIsReloadedAndASecondSignalEndsIt) {
   write(threePolicies);
   start(1min, never, [](ServerOptions& options) { options.deleteOnExit = true; });
   signal(SIGTERM);
   ASSERT_TRUE(eventually([this] { return said().find("taking back") != std::string::npos; }));
   const ControlAnswer reload = ask("reload");
   EXPECT_EQ(reload.exitCode, 1);
   EXPECT_EQ(reload.text, "the agent is ending\n");
   signal(SIGHUP);
   EXPECT_TRUE(eventually([this] {
      const std::string refused = "agent: reload refused, nothing changed\nthe agent is ending\n";
      const std::string text = said();
      return text.find(refused) != text.rfind(refused); // the command's, and the signal's
   })) << said();
   EXPECT_EQ(end(SIGTERM), 3);
}

TEST_F(AgentServerTest, aHangUpWithARefusedFileChangesNothing) {
   write(threePolicies);
   start(5s, allGoesWell);
   ASSERT_TRUE(eventually([this] { return allAre("programmed"); }));
   const auto before = statuses();
   write("policies: 3\n");
   signal(SIGHUP);
   ASSERT_TRUE(eventually([this] {
      return said().find("agent: reload refused, nothing changed\n" + file() + ":1:11: ") !=
             std::string::npos;
   })) << said();
   EXPECT_EQ(statuses(), before);
}

} // namespace
} // namespace Postcard::Agent::Service
