#include "postcard/agent/service/AgentServer.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/agent/service/ControlCommands.h"
#include "postcard/agent/service/ErrorOutput.h"
#include "postcard/agent/service/EventLoop.h"
#include "postcard/agent/service/Reloader.h"
#include "postcard/agent/service/ServiceManager.h"
#include "postcard/agent/service/StatusLog.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <utility>
#include <vector>

namespace Postcard::Agent::Service {

namespace {

// Clients that wait for the policies at a time. Less than the connections, so that the others are
// served.
constexpr std::size_t mostWaiters = 16;

// `lines` without its last character, a line feed, which `say` writes itself.
std::string withoutLineEnd(std::string lines) {
   lines.pop_back();
   return lines;
}

// Also after a SIGHUP, which nobody waits for: the log is the only place that tells its outcome.
void sayReload(const ReloadResult& result) {
   say((result.accepted ? "agent: reloaded, " : "agent: reload refused, nothing changed\n") +
       withoutLineEnd(result.text()));
}

} // namespace

class AgentServer::Implementation {
 public:
   Implementation(ServerOptions options, const Policy::PolicyFile& file,
                  const MakeRulesClient& makeRulesClient)
      : options_{std::move(options)},
        host_{Host::PluginHost::defaultModule()},
        answerTimer_{loop_, [this] { agent_->timeUp(); }},
        reloader_{loop_, options_.policyFile, options_.stillTime, options_.reloadTime,
                  [this](const auto& read, const auto& text, ReloadOptions how) {
                     return apply(read, text, how);
                  }},
        waitTimer_{loop_, [this] { tellWaiters(); }},
        watchdog_{loop_, [this] { manager_.notify("WATCHDOG=1"); }},
        deleteTimer_{loop_, [this] { loop_.stop(); }} {
      const Later later = [this](std::function<void()> work) { loop_.later(std::move(work)); };
      agent_ = std::make_unique<PolicyAgent>(host_, file, options_.agent, hooks(later));
      // Before `run` posts the first request, which it would not hear otherwise.
      rulesClient_ = makeRulesClient(*agent_, later);
      for (const auto& [descriptor, work] : options_.watched) {
         watched_.push_back(std::make_unique<EventDescriptor>(loop_, descriptor, work));
      }
      checkStart();
      control_ = std::make_unique<ControlServer>(
            loop_, options_.socketPath, options_.control,
            [this](std::string_view line, const Respond& respond) { answerLine(line, respond); });
      watchSignals();
   }

   bool run() {
      agent_->start();
      // From the event loop and not from a thread: a loop that hangs must not look alive.
      if (const auto interval = manager_.watchdogInterval()) {
         watchdog_.startRepeating(*interval);
      }
      // Ready to be asked: the answers of the rules client come later, and `status` tells of them.
      manager_.notify("READY=1");
      say("agent: listening at " + Pello::escaped(options_.socketPath));
      loop_.run();
      return !options_.deleteOnExit || sayWhatIsLeft();
   }

 private:
   PolicyAgent::Hooks hooks(const Later& later) {
      return {later,
              [this](std::optional<std::chrono::milliseconds> time) {
                 time ? answerTimer_.start(*time) : answerTimer_.stop();
              },
              [this] { reportChanges(); }};
   }

   // A start behaves as a reload: whole, or what can be programmed when that is asked for.
   void checkStart() {
      std::string refused;
      for (const ReloadFinding& finding : withFile(agent_->refusals())) {
         if (options_.reload.partial) {
            say("agent: left out: " + withoutLineEnd(finding.lines()));
         }
         refused += finding.lines();
      }
      if (!refused.empty() && !options_.reload.partial) {
         throw RefusedStart{withoutLineEnd(refused)};
      }
   }

   // The agent's core knows places, and not the name of the file that they are in.
   std::vector<ReloadFinding> withFile(std::vector<ReloadFinding> findings) const {
      for (ReloadFinding& finding : findings) {
         if (finding.location.line != 0) {
            finding.file = options_.policyFile;
         }
      }
      return findings;
   }

   void watchSignals() {
      std::signal(SIGPIPE, SIG_IGN); // a client that disconnects must not end the agent
      hangUp_ = std::make_unique<EventSignal>(
            loop_, SIGHUP, [this] { reload(options_.reload, [](const ReloadResult&) {}); });
      terminate_ = std::make_unique<EventSignal>(loop_, SIGTERM, [this] { end(); });
      interrupt_ = std::make_unique<EventSignal>(loop_, SIGINT, [this] { end(); });
   }

   // A command that throws is answered with exit code 3 and the reason: the client waits for an
   // answer, and the agent goes on.
   void answerLine(std::string_view line, const Respond& respond) {
      try {
         answerRequest(line, *agent_, process_, respond);
      } catch (const std::exception& error) {
         respond({fmt::format("{{\"exit\":3}}\n{}\n", error.what()), nullptr});
      }
   }

   void reload(ReloadOptions options, const ReloadDone& done) {
      const auto tell = [done](const ReloadResult& result) {
         sayReload(result);
         done(result);
      };
      if (ending_) {
         return tell(endingResult());
      }
      reloader_.begin(options, tell);
   }

   // A new file would want policies again.
   static ReloadResult endingResult() {
      ReloadResult result = refusedReload("ending", "the agent is ending");
      result.unusableFile = false;
      return result;
   }

   ReloadResult apply(const Policy::PolicyFile& file, const std::string& text,
                      ReloadOptions options) {
      if (ending_) {
         return endingResult(); // a signal came while the file was being waited for
      }
      if (file.policies.empty() && !options.allowEmpty && agent_->wantsAny()) {
         return refusedReload("empty",
                              "the file has no policies, so every policy would be removed; "
                              "--allow-empty allows that",
                              options_.policyFile);
      }
      ReloadResult result =
            agent_->reload(file, options.partial ? PolicyAgent::Refused::isLeftOut
                                                 : PolicyAgent::Refused::nothingIsDone);
      result.findings = withFile(std::move(result.findings));
      if (result.accepted) {
         options_.policyText = text;
      }
      return result;
   }

   // ---- Those who wait for the policies ----

   struct Waiter {
      std::chrono::steady_clock::time_point deadline;
      std::function<void(WaitEnd)> end;
   };

   void wait(std::chrono::milliseconds time, std::function<void(WaitEnd)> end) {
      if (waiters_.size() >= mostWaiters) {
         return end(WaitEnd::refused);
      }
      waiters_.push_back({std::chrono::steady_clock::now() + time, std::move(end)});
      tellWaiters();
   }

   void tellWaiters() {
      if (waiters_.empty()) {
         return;
      }
      const Outlook outlook = agent_->outlook();
      const auto now = std::chrono::steady_clock::now();
      auto next = now + std::chrono::hours{24};
      std::vector<Waiter> waiters = std::exchange(waiters_, {});
      for (Waiter& waiter : waiters) {
         if (outlook.anyFailed || outlook.allProgrammed) {
            waiter.end(outlook.anyFailed ? WaitEnd::failed : WaitEnd::programmed);
         } else if (now >= waiter.deadline) {
            waiter.end(WaitEnd::late);
         } else {
            next = std::min(next, waiter.deadline);
            waiters_.push_back(std::move(waiter));
         }
      }
      if (!waiters_.empty()) {
         waitTimer_.start(std::chrono::ceil<std::chrono::milliseconds>(next - now));
      }
   }

   // SIGTERM or SIGINT has come.
   void end() {
      manager_.notify("STOPPING=1");
      if (!options_.deleteOnExit || ending_) {
         loop_.stop();
         return;
      }
      say("agent: taking back every policy");
      ending_ = true;
      deleteTimer_.start(options_.deleteTime);
      agent_->deleteAll(); // `reportChanges` ends the loop when that is done
   }

   // Names on standard error the policies that the rules client may still hold. Returns whether
   // there are none.
   bool sayWhatIsLeft() {
      bool nothing = true;
      for (const PolicyReport& report : agent_->report()) {
         if (report.state != PolicyState::removed) {
            nothing = false;
            say("agent: not taken back: " + statusLine(report));
         }
      }
      return nothing;
   }

   void reportChanges() {
      const Changes changes = agent_->takeChanges();
      log_.tell(changes);
      // All policies are looked at only when that may end the wait: not after each answer.
      const bool failed = std::ranges::any_of(changes.reports, [](const PolicyReport& report) {
         return report.state == PolicyState::failed || report.state == PolicyState::invalid ||
                report.state == PolicyState::unsupported;
      });
      if (failed || agent_->idle()) {
         tellWaiters();
      }
      // Not only idle: a removal that was refused or lost is tried again while there is time.
      if (ending_ && agent_->settled()) {
         loop_.stop();
      }
   }

   // Members are destroyed from the last to the first. So the loop outlives everything that runs on
   // it, and the agent outlives those that call it: rules client, control socket and signals.
   ServerOptions options_;
   EventLoop loop_;
   ErrorOutput errors_{loop_};
   Host::PluginHost host_;
   ServiceManager manager_;
   EventTimer answerTimer_; // the agent's timer: answer time, or time to the next attempt
   Reloader reloader_;
   std::vector<Waiter> waiters_; // oldest first
   EventTimer waitTimer_;        // until the first of them has waited long enough
   EventTimer watchdog_;         // sends the signs of life
   EventTimer deleteTimer_;      // ends the process although policies are left
   StatusLog log_;
   const Process process_{
         [this](ReloadOptions options, const ReloadDone& done) { reload(options, done); },
         [this]() -> const std::optional<RefusedReload>& { return reloader_.refused(); },
         [this] { return options_.capacity ? options_.capacity() : std::nullopt; },
         [this](std::chrono::milliseconds time, std::function<void(WaitEnd)> end) {
            wait(time, std::move(end));
         },
         options_.policyFile,
         [this] { return std::string_view{options_.policyText}; },
         options_.counters};
   bool ending_ = false; // every policy is being deleted before the end
   std::unique_ptr<PolicyAgent> agent_;
   std::shared_ptr<void> rulesClient_;
   std::vector<std::unique_ptr<EventDescriptor>> watched_; // of the rules client
   std::unique_ptr<ControlServer> control_;
   std::unique_ptr<EventSignal> hangUp_;
   std::unique_ptr<EventSignal> terminate_;
   std::unique_ptr<EventSignal> interrupt_;
};

AgentServer::AgentServer(ServerOptions options, const Policy::PolicyFile& file,
                         const MakeRulesClient& makeRulesClient)
   : implementation_{std::make_unique<Implementation>(std::move(options), file, makeRulesClient)} {}

AgentServer::~AgentServer() = default;

bool AgentServer::run() {
   return implementation_->run();
}

} // namespace Postcard::Agent::Service
