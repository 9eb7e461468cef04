#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/walk/LifecycleWalk.h"

#include <algorithm>

namespace LifecycleWalk {

using LifecycleModel::Kind;

namespace {

// Everything that can be seen of the model, as of the system.
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

} // namespace

void Walk::step(const Command& command) {
   Policy& policy = policies_[command.policy];
   if (!legal(command, policy)) {
      return;
   }
   ++model.reached[kindName(command.kind)];
   const auto [expected, actual] = both(command, policy);
   if (fault_) {
      fault_(command, model);
   }
   compare({"text " + expected}, {"text " + actual});
   compare(seen(model), system_.seen());
   ++steps;
}

bool Walk::legal(const Command& command, const Policy& policy) const {
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

Walk::Texts Walk::both(const Command& command, Policy& policy) {
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

Walk::Texts Walk::aside(const Command& command, Policy& policy) {
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

void Walk::disturbHistory(const Command& command, const std::string& key) {
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

} // namespace LifecycleWalk
