// A random walk through the life of several policies, with a rules client that succeeds, fails,
// answers late, at once and twice: after every step everything that can be seen of the helper is
// that of the model. A walk that fails is shrunk and printed as a list of commands.
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/LifecycleScript.h"
#include "support/LifecycleRecords.h"

#include <rapidcheck.h>

namespace OruPostcardTelemetry {
namespace {

using LifecycleModel::Client;
using LifecycleModel::Command;
using LifecycleModel::Content;
using LifecycleModel::Kind;
using LifecycleModel::Model;
using LifecycleModel::Policy;
using LifecycleModel::Script;
using TestSupport::Lines;

// The records of the policy, as the agent would hand them over.
Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> recordsOf(const Policy& policy) {
   TestSupport::PolicyRecords records{policy.name, policy.scope};
   for (const int family : {0, 1}) {
      const auto option = static_cast<PolicyMap::ClassMapMatchOption>(family);
      for (const std::string& name : policy.interfaces[family]) {
         family == 0 ? records.intf4(name) : records.intf6(name);
      }
      records.noRules(option);
      const Content content = policy.content[family];
      if (content != Content::nothing && content != Content::bad) {
         records.classMap("first").sample().filter(option, "acl");
      }
      if (content == Content::two) {
         records.classMap("second").sample().filter(option, "acl");
      }
      if (content == Content::oneThenBad || content == Content::bad) {
         records.classMap("third").sample().filter(option, "acl").data()->fragmentsIs();
      }
   }
   return records.data();
}

std::string configText(const PostcardTelemetryAclConfig& config) {
   std::string text = config.aclConfigKey().str() + " family " +
                      std::to_string(static_cast<U8>(config.aclType())) + " rules ";
   U32 expected = 0;
   for (const auto& rule : config.ruleByIndex()) {
      const bool fits = rule.key() == expected && config.ruleByName(rule->name()) == rule.value();
      text += (expected++ == 0 ? "" : ",") + rule->name().str() + (fits ? "" : " (misplaced)");
   }
   text += config.ruleByNames() == expected ? "" : " (and names without an index)";
   Lines interfaces;
   for (const auto& intf : config.policyIntf()) {
      interfaces.push_back(intf.key().stringValue().str());
   }
   std::ranges::sort(interfaces);
   text += " interfaces ";
   for (std::size_t i = 0; i != interfaces.size(); ++i) {
      // Like the model, which leaves no comma behind the empty name.
      text += (text.back() == ' ' ? "" : ",") + interfaces[i];
   }
   text += config.programmedPolicy() ? " programmed" : "";
   text += config.rulesClientUpdated() ? " updated" : "";
   text += " history";
   for (const auto& status : config.aclConfigStatus()->statusInOrder()) {
      text += " " + std::to_string(status.key()) + "='" + status.value().str() + "'";
   }
   return text + " next " + std::to_string(config.aclConfigStatus()->currentIndex());
}

// The helper with its rules client, driven by the same commands as the model.
class System {
 public:
   using Option = PolicyMap::ClassMapMatchOption;

   // `client` says how the rules client behaves, and may change.
   explicit System(const Client& client)
      : requests_{records_.clientConfig->publisher()->subscribe(
              [this, &client](const Pello::Change& change) {
                 if (change.attribute == 133 && client != Client::later) {
                    const bool success = client == Client::succeedsAtOnce;
                    returned_.push_back(answer(success, success ? "" : "busy"));
                 }
              })} {}

   // Does what the command says. Returns the text.
   std::string perform(const Command& command, const Policy& policy) {
      const auto data = recordsOf(policy);
      const auto option = static_cast<Option>(command.family);
      const Orlix::IntfId intf{command.interface()};
      auto& helper = *records_.helper;
      switch (command.kind) {
      case Kind::create:
         return helper.createPolicy(data, option).str();
      case Kind::recreate:
         return helper.recreatePolicy(data, option).str();
      case Kind::commit:
         return helper.commitPolicy(data, option).str();
      case Kind::remove:
         return helper.deletePolicy(data, option).str();
      case Kind::addIntf:
         return helper.addIntfToPolicy(data, intf, {}, {}, option).str();
      case Kind::removeIntf:
         return helper.removeIntfFromPolicy(data, intf, {}, {}, option).str();
      default:
         return {};
      }
   }
   std::string answer(bool success, std::string_view text) {
      return records_.helper
            ->updatePolicyStatus(success ? statusSuccess : statusFailure, Pello::String{text})
            .str();
   }
   PostcardTelemetryAclConfigStatus& history(const std::string& key) {
      return *records_.config(key)->aclConfigStatus();
   }

   // Everything that can be seen.
   Lines seen() {
      Lines lines;
      for (const auto& config : records_.helper->aclConfigColl()) {
         lines.push_back("configuration " + configText(*config.value()));
      }
      std::ranges::sort(lines);
      const auto& request = *records_.clientConfig;
      lines.push_back("request " + std::to_string(request.event()) + " '" +
                      request.currIntf().stringValue().str() + "' " +
                      std::to_string(request.kickRequest()));
      if (const auto about = request.aclConfig()) {
         const bool current = records_.helper->aclConfigColl(about->aclConfigKey()) == about;
         lines.push_back((current ? "about " : "about what is gone ") + configText(*about));
      }
      lines.push_back("result " + records_.helper->asyncOperationResult().status().str());
      lines.push_back("living " + std::to_string(living() - before_));
      for (const std::string& line : log_.take()) {
         lines.push_back("published " + line);
      }
      for (const std::string& text : std::exchange(returned_, {})) {
         lines.push_back("returned to the client " + text);
      }
      return lines;
   }

 private:
   static U64 living() { return PostcardTelemetryAclConfig::memAllocationTracker_.live(); }

   U64 before_ = living();
   TestSupport::HelperRecords records_;
   TestSupport::RecordLog log_{*records_.clientConfig, *records_.helper};
   Lines returned_;
   Pello::Publisher::Subscription requests_;
};

// The same of the model.
Lines seen(Model& model) {
   Lines lines;
   for (const auto& [key, config] : model.configs) {
      lines.push_back("configuration " + config->text());
   }
   std::ranges::sort(lines);
   lines.push_back("request " + std::to_string(model.event) + " '" + model.interface + "' " +
                   std::to_string(model.count));
   if (model.about != nullptr) {
      lines.push_back((model.current() ? "about " : "about what is gone ") + model.about->text());
   }
   lines.push_back("result " + model.result);
   lines.push_back("living " + std::to_string(model.living()));
   for (const std::string& line : std::exchange(model.published, {})) {
      lines.push_back("published " + line);
   }
   for (const std::string& text : std::exchange(model.returned, {})) {
      lines.push_back("returned to the client " + text);
   }
   return lines;
}

// Ends the walk with what differs.
void compare(const Lines& expected, const Lines& actual) {
   if (actual == expected) {
      return;
   }
   const auto lacking = [](const Lines& some, const Lines& others, const char* who) {
      std::string text;
      for (const std::string& line : some) {
         text += std::ranges::count(others, line) != 0 ? "" : who + line + "\n";
      }
      return text;
   };
   RC_FAIL("\n" + lacking(expected, actual, "model:  ") + lacking(actual, expected, "helper: ") +
           "(only the order differs when nothing stands here)");
}

class Walk {
 public:
   // Takes one step on both sides; one that would break a contract is left out.
   void step(const Command& command) {
      Policy& policy = policies_[command.policy];
      if (!legal(command, policy)) {
         return;
      }
      ++model.reached[kindName(command.kind)];
      const auto [expected, actual] = both(command, policy);
      compare({"text " + expected}, {"text " + actual});
      compare(seen(model), system_.seen());
      ++steps;
   }

   Model model;
   U64 steps = 0;

 private:
   using Texts = std::pair<std::string, std::string>;

   bool legal(const Command& command, const Policy& policy) const {
      const bool exists = model.has(policy, command.family);
      switch (command.kind) {
      case Kind::create:
         return !exists && !policy.interfaces[command.family].empty();
      case Kind::recreate:
         return exists && !policy.interfaces[command.family].empty();
      case Kind::commit:
      case Kind::addIntf:
      case Kind::removeIntf:
      case Kind::forget:
      case Kind::skip:
         return exists;
      case Kind::succeed:
      case Kind::fail:
         return model.unanswered != 0 && model.mayAnswer();
      case Kind::again:
         return answered_ && model.mayAnswer();
      default:
         return true;
      }
   }

   Texts both(const Command& command, Policy& policy) {
      const int family = command.family;
      const bool removal = command.kind == Kind::removeIntf;
      const auto real = [&] { return system_.perform(command, policy); };
      switch (command.kind) {
      case Kind::create:
         return {model.create(policy, family), real()};
      case Kind::recreate:
         return {model.recreate(policy, family), real()};
      case Kind::commit:
         return {model.commit(policy, family), real()};
      case Kind::remove:
         return {model.remove(policy, family), real()};
      case Kind::addIntf:
      case Kind::removeIntf:
         return {model.changeInterface(policy, family, command.interface(), removal), real()};
      default:
         return aside(command, policy);
      }
   }

   // Steps that are no operations of a policy.
   Texts aside(const Command& command, Policy& policy) {
      auto& interfaces = policy.interfaces[command.family];
      switch (command.kind) {
      case Kind::succeed:
      case Kind::fail:
         --model.unanswered;
         answered_ = true;
         success_ = command.kind == Kind::succeed;
         text_ = command.answerText();
         [[fallthrough]];
      case Kind::again:
         return {model.answer(success_, text_), system_.answer(success_, text_)};
      case Kind::client:
         model.client = command.client();
         break;
      case Kind::attach:
         interfaces.insert(command.interface());
         break;
      case Kind::detach:
         interfaces.erase(command.interface());
         break;
      case Kind::edit:
         policy.content[command.family] = command.content();
         break;
      default:
         disturbHistory(command, Model::key(policy, command.family));
      }
      return {};
   }

   // Texts with gaps, and a next key beyond them.
   void disturbHistory(const Command& command, const std::string& key) {
      auto& config = *model.configs.at(key);
      auto& status = system_.history(key);
      if (command.kind == Kind::forget) {
         config.texts.erase(command.value);
         status.statusInOrderDel(command.value);
      } else {
         ++config.next;
         status.currentIndexIs(status.currentIndex() + 1);
      }
   }

   std::vector<Policy> policies_ = LifecycleModel::newPolicies();
   // The latest answer, for repeating it.
   bool answered_ = false;
   bool success_ = false;
   std::string text_;
   System system_{model.client};
};

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

} // namespace
} // namespace OruPostcardTelemetry
