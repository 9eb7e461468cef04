#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/walk/LifecycleScript.h"

#include <iterator>
#include <utility>

namespace LifecycleModel {

namespace {

constexpr const char* kindNames[] = {
      "create", "recreate", "commit", "delete",       "addIntf", "removeIntf",  "attach", "detach",
      "edit",   "succeed",  "fail",   "answer again", "client",  "forget text", "skip"};
constexpr const char* contentNames[] = {"nothing", "one class", "two classes",
                                        "one class and a bad one", "a bad class"};
constexpr const char* clientNames[] = {"answers later", "succeeds at once", "fails at once"};
constexpr const char* interfaceNames[] = {"", "Ethernet1", "Ethernet2", "Ethernet3"};
constexpr const char* answerTexts[] = {"", "full", "invalid"};

std::string policyText(const Command& command) {
   const Policy& policy = newPolicies()[command.policy];
   return policy.name + (policy.scope.empty() ? "" : "/" + policy.scope) +
          (command.family == 0 ? " ipv4" : " ipv6");
}

} // namespace

const char* kindName(Kind kind) {
   return kindNames[static_cast<std::size_t>(kind)];
}

const char* Command::interface() const {
   return interfaceNames[value % std::size(interfaceNames)];
}

const char* Command::answerText() const {
   return answerTexts[value % std::size(answerTexts)];
}

Content Command::content() const {
   return static_cast<Content>(value % std::size(contentNames));
}

Client Command::client() const {
   return static_cast<Client>(value % std::size(clientNames));
}

// The last two share their configurations with the first: the key does not know the scope.
const std::vector<Policy>& newPolicies() {
   static const std::vector<Policy> policies{{"p", ""}, {"q", ""}, {"p", "s"}, {"p", "t"}};
   return policies;
}

std::ostream& operator<<(std::ostream& out, const Command& command) {
   out << kindName(command.kind) << " ";
   switch (command.kind) {
   case Kind::succeed:
   case Kind::fail:
      return out << "'" << command.answerText() << "'";
   case Kind::again:
      return out;
   case Kind::client:
      return out << clientNames[static_cast<std::size_t>(command.client())];
   case Kind::addIntf:
   case Kind::removeIntf:
   case Kind::attach:
   case Kind::detach:
      return out << policyText(command) << " '" << command.interface() << "'";
   case Kind::edit:
      return out << policyText(command) << ": "
                 << contentNames[static_cast<std::size_t>(command.content())];
   case Kind::forget:
      return out << policyText(command) << " " << unsigned{command.value};
   default:
      return out << policyText(command);
   }
}

std::ostream& operator<<(std::ostream& out, const Script& script) {
   for (const Command& command : script.commands) {
      out << "\n   " << command;
   }
   return out;
}

rc::Gen<Script> scripts() {
   const auto kinds = rc::gen::weightedElement<Kind>({{3, Kind::create},
                                                      {4, Kind::recreate},
                                                      {6, Kind::commit},
                                                      {2, Kind::remove},
                                                      {5, Kind::addIntf},
                                                      {5, Kind::removeIntf},
                                                      {2, Kind::attach},
                                                      {2, Kind::detach},
                                                      {3, Kind::edit},
                                                      {6, Kind::succeed},
                                                      {4, Kind::fail},
                                                      {2, Kind::again},
                                                      {2, Kind::client},
                                                      {2, Kind::forget},
                                                      {1, Kind::skip}});
   const auto below = [](std::size_t count) {
      return rc::gen::resize(100, rc::gen::inRange<uint8_t>(0, static_cast<uint8_t>(count)));
   };
   const auto commands =
         rc::gen::construct<Command>(kinds, below(newPolicies().size()), below(2), below(60));
   return rc::gen::map(rc::gen::scale(20, rc::gen::container<std::vector<Command>>(commands)),
                       [](std::vector<Command> list) { return Script{std::move(list)}; });
}

} // namespace LifecycleModel
