#include "postcard/agent/service/AgentServer.h"

#include "postcard/agent/service/ControlCommands.h"
#include "postcard/agent/service/EventLoop.h"
#include "postcard/agent/service/ServiceManager.h"
#include "postcard/agent/service/StatusLog.h"
#include "postcard/policy/file/PolicyFile.h"

#include <fmt/format.h>

#include <csignal>
#include <sstream>
#include <utility>

namespace Postcard::Agent::Service {

namespace {

// The lines of a text, without their ends.
std::vector<std::string> linesOf(const std::string& text) {
   std::vector<std::string> lines;
   std::istringstream stream{text};
   for (std::string line; std::getline(stream, line);) {
      lines.push_back(std::move(line));
   }
   return lines;
}

// Also after a SIGHUP, which nobody waits for: the log is the only place that tells its outcome.
void sayReload(const ReloadResult& result) {
   const std::string text = result.text();
   say((result.accepted ? "agent: reloaded, " : "agent: reload refused, nothing changed\n") +
       text.substr(0, text.size() - 1));
}

} // namespace

class AgentServer::Implementation {
 public:
   Implementation(ServerOptions options, const Policy::PolicyFile& file,
                  const MakeRulesClient& makeRulesClient)
      : options_{std::move(options)},
        host_{Host::PluginHost::defaultModule()},
        answerTimer_{loop_, [this] { agent_->timeUp(); }},
        watchdog_{loop_, [this] { manager_.notify("WATCHDOG=1"); }},
        deleteTimer_{loop_, [this] { loop_.stop(); }} {
      const Later later = [this](std::function<void()> work) { loop_.later(std::move(work)); };
      agent_ = std::make_unique<PolicyAgent>(host_, file, options_.agent, hooks(later));
      // Before `run` posts the first request, which it would not hear otherwise.
      rulesClient_ = makeRulesClient(*agent_, later);
      control_ = std::make_unique<ControlServer>(
            loop_, options_.socketPath, options_.control,
            [this](std::string_view line) { return answerLine(line); });
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
      say("agent: listening at " + options_.socketPath);
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

   void watchSignals() {
      std::signal(SIGPIPE, SIG_IGN); // a client that disconnects must not end the agent
      hangUp_ = std::make_unique<EventSignal>(loop_, SIGHUP, [this] { reload(); });
      terminate_ = std::make_unique<EventSignal>(loop_, SIGTERM, [this] { end(); });
      interrupt_ = std::make_unique<EventSignal>(loop_, SIGINT, [this] { end(); });
   }

   // A command that throws is answered with exit code 3 and the reason: the client waits for an
   // answer, and the agent goes on.
   std::string answerLine(std::string_view line) {
      try {
         return answerRequest(line, *agent_, [this] { return reload(); });
      } catch (const std::exception& error) {
         return fmt::format("{{\"exit\":3}}\n{}\n", error.what());
      }
   }

   ReloadResult reload() {
      ReloadResult result = tryReload();
      sayReload(result);
      return result;
   }

   ReloadResult tryReload() {
      if (ending_) {
         return {false, 0, {"the agent is ending"}}; // a new file would want policies again
      }
      const Policy::File::LoadResult loaded = Policy::File::loadPolicyFile(options_.policyFile);
      return loaded.policyFile ? agent_->reload(*loaded.policyFile)
                               : ReloadResult{false, 0, linesOf(formatFindings(loaded)), true};
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
      log_.tell(agent_->report());
      // Not only idle: a removal that was refused or lost is tried again while there is time.
      if (ending_ && agent_->settled()) {
         loop_.stop();
      }
   }

   // Members are destroyed from the last to the first. So the loop outlives everything that runs on
   // it, and the agent outlives those that call it: rules client, control socket and signals.
   ServerOptions options_;
   EventLoop loop_;
   Host::PluginHost host_;
   ServiceManager manager_;
   EventTimer answerTimer_; // the agent's timer: answer time, or time to the next attempt
   EventTimer watchdog_;    // sends the signs of life
   EventTimer deleteTimer_; // ends the process although policies are left
   StatusLog log_;
   bool ending_ = false; // every policy is being deleted before the end
   std::unique_ptr<PolicyAgent> agent_;
   std::shared_ptr<void> rulesClient_;
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
