// A run of the agent: it starts with one policy file and takes others, while the rules client does
// as it likes. Whatever the files are, and whatever becomes of the requests, the process goes on,
// and when the rules client has come to its senses nothing is left to wait for.
//
// The first bytes say what goes wrong with the first requests; texts of files follow, separated by
// lines of "%%".
#include "../Require.h"
#include "FeatureToggle/FeatureToggle.h"
#include "postcard/agent/PolicyAgent.h"
#include "postcard/policy/file/PolicyFile.h"
#include "postcard/rules-client/software/SoftwareTcam.h"
#include "support/FaultyLine.h"

#include <deque>
#include <fcntl.h>
#include <memory>

namespace {

using Fuzz::require;
using Postcard::Agent::PolicyAgent;
using TestSupport::InjectedFailure;

constexpr const char* toggle = "FeaturePostcardTelemetryTcpControl";
constexpr std::size_t fates = 8;

const Postcard::Host::PluginHost& host() {
   static const Postcard::Host::PluginHost opened{Postcard::Host::PluginHost::defaultModule()};
   return opened;
}

// The file, if it is one and makes few rules: others take too long.
std::optional<Postcard::Policy::PolicyFile> parse(std::string_view text) {
   // Made once: it asks a file what is declared.
   static const Postcard::Policy::File::LoadOptions limits = [] {
      Postcard::Policy::File::LoadOptions made;
      made.maxRules = 200;
      made.toggles = {{toggle, true}};
      return made;
   }();
   return Postcard::Policy::File::parsePolicyText(text, "file", limits).policyFile;
}

// The agent with its rules client, its event loop and its clock.
class Run {
 public:
   explicit Run(const Postcard::Policy::PolicyFile& file)
      : agent_{host(), file, PolicyAgent::Options{std::chrono::milliseconds{1}, 3},
               PolicyAgent::Hooks{[this](auto work) { works_.push_back(std::move(work)); },
                                  [this](auto time) { timer_ = time.has_value(); }, [] {}}},
        line_{agent_.requests(), agent_.answers(), client_,
              [this](auto work) { works_.push_back(std::move(work)); }} {}

   // What goes wrong with the next request that is spoken of; 0 is nothing.
   void inject(U8 fate) {
      constexpr unsigned kinds = InjectedFailure::gone + 1;
      if (const unsigned kind = fate % (kinds + 1); kind != 0) {
         line_.inject({static_cast<InjectedFailure::Kind>(kind - 1), "refused"});
         healthy_ = false;
      }
   }
   void start() {
      agent_.start();
      settle();
   }
   void reload(const Postcard::Policy::PolicyFile& file) {
      agent_.reload(file);
      settle();
   }
   // Every request that is still to come is answered.
   void end() {
      line_.releaseAnswers();
      settle();
      check();
      agent_.deleteAll();
      settle();
      require(agent_.idle(), "nothing is waited for in the end");
      require(!healthy_ || client_->acls().empty(), "deleted policies are gone from hardware");
   }

 private:
   // Until nothing happens any more. Time passes when somebody waits for it, but not for ever: what
   // does not fit is tried again and again.
   void settle() {
      constexpr int longest = 20;
      for (int ticks = 0; ticks < longest; ++ticks) {
         work();
         if (!std::exchange(timer_, false)) {
            return;
         }
         agent_.timeUp();
      }
      work();
   }
   void work() {
      while (!works_.empty()) {
         const auto next = std::move(works_.front());
         works_.pop_front();
         next();
      }
   }
   // What the agent says of a policy and what the rules client holds.
   void check() {
      static const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
      agent_.show(static_cast<U32>(nowhere));
      for (const Postcard::Agent::PolicyReport& report : agent_.report()) {
         require(report.history.size() <= 3, "the history is kept short", report.name);
         const std::string key = report.name + "-" + std::string{familyName(report.family)};
         const bool held = client_->acl(Pello::String{key}) != nullptr;
         if (healthy_) {
            require(held == (report.state == Postcard::Agent::PolicyState::programmed) ||
                          report.state == Postcard::Agent::PolicyState::failed,
                    "what is programmed is in hardware, and nothing else", key);
         }
      }
   }

   std::deque<std::function<void()>> works_;
   bool timer_ = false;
   bool healthy_ = true; // no request went wrong
   PolicyAgent agent_;
   std::shared_ptr<Postcard::RulesClient::SoftwareTcam> client_ =
         std::make_shared<Postcard::RulesClient::SoftwareTcam>(64);
   TestSupport::FaultyLine line_;
};

std::string_view takeText(std::string_view& texts) {
   constexpr std::string_view separator = "\n%%\n";
   const std::size_t end = texts.find(separator);
   const std::string_view text = texts.substr(0, end);
   texts.remove_prefix(end == texts.npos ? texts.size() : end + separator.size());
   return text;
}

// Names of interfaces are kept for ever; an hour of new ones would be taken for a leak.
bool enoughNames() {
   constexpr std::size_t enough = 500'000;
   static std::size_t runs = 0;
   return ++runs > enough;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
   FeatureToggle::toggleOverrideIs(toggle, true);
   host();
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   if (size < fates) {
      return 0;
   }
   std::string_view texts{reinterpret_cast<const char*>(data) + fates, size - fates};
   const auto first = parse(takeText(texts));
   // Another state of the toggle needs another process.
   if (!first || !first->featureToggles.at(toggle) || enoughNames()) {
      return 0;
   }
   Run run{*first};
   for (std::size_t i = 0; i < fates; ++i) {
      run.inject(data[i]);
   }
   run.start();
   while (!texts.empty()) {
      if (const auto next = parse(takeText(texts))) {
         run.reload(*next);
      }
   }
   run.end();
   return 0;
}
