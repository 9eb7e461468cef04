// `text` and `json` of the changes between two files.
#include "Pello/VisibleCharacters.h"
#include "postcard/changes/FileChanges.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Postcard::Changes {

namespace {

using Json = nlohmann::ordered_json;

// The version of the JSON document. It rises when a key changes its meaning or disappears.
constexpr int diffJsonSchema = 1;

// ---- Policies ----

std::string placeText(const std::string& file, const Policy::Location& place) {
   return fmt::format("{}:{}:{}", Pello::escaped(file), place.line, place.column);
}

const char* changeName(const PolicyChange& change) {
   return !change.before ? "added" : !change.after ? "removed" : "changed";
}

// The place in the later file, unless the policy is gone from it.
std::string policyText(const PolicyChange& change, const FileNames& files) {
   const std::string place =
         change.after ? placeText(files.after, *change.after)
                      : placeText(files.before, change.before.value_or(Policy::Location{}));
   return fmt::format("{}: policy '{}' {}\n", place, change.name, changeName(change));
}

Json placeJson(const std::optional<Policy::Location>& place) {
   return place ? Json{{"line", place->line}, {"column", place->column}} : Json(nullptr);
}

Json json(const PolicyChange& change) {
   return {{"policy", change.name},
           {"change", changeName(change)},
           {"old", placeJson(change.before)},
           {"new", placeJson(change.after)}};
}

// ---- One ACL ----

std::string joined(const std::vector<std::string>& names) {
   return fmt::format("{}", fmt::join(names, ", "));
}

std::string interfacesText(const AclChange& change) {
   std::string text;
   if (!change.interfacesAdded.empty()) {
      text += fmt::format("   interfaces added: {}\n", joined(change.interfacesAdded));
   }
   if (!change.interfacesRemoved.empty()) {
      text += fmt::format("   interfaces removed: {}\n", joined(change.interfacesRemoved));
   }
   return text;
}

const char* actionText(AgentAction action) {
   switch (action) {
   case AgentAction::none:
      return "nothing";
   case AgentAction::interfaces:
      return "changes interfaces, and the rules stay";
   case AgentAction::create:
      return "creates the policy";
   case AgentAction::recreate:
      return "makes the rules anew";
   case AgentAction::remove:
      return "removes the policy";
   }
   return ""; // no other action exists
}

std::string requestsText(const AgentStep& step, std::size_t all) {
   if (step.requests == 0) {
      return "no request, because there are no rules";
   }
   const std::size_t last = step.firstRequest + step.requests - 1;
   return step.requests == 1 ? fmt::format("request {} of {}", last, all)
                             : fmt::format("requests {}-{} of {}", step.firstRequest, last, all);
}

std::string agentText(const AgentStep& step, std::size_t all) {
   return fmt::format("   agent: {}; {}{}\n", actionText(step.action), requestsText(step, all),
                      step.replacesRules ? ", and the old rules stay until it is answered" : "");
}

std::string aclText(const AclChange& change, std::size_t all) {
   return fmt::format("{} {}\n", change.policy, familyName(change.family)) +
          interfacesText(change) + text(change.packets) + text(change.entries) +
          agentText(change.agent, all);
}

Json agentJson(const AgentStep& step) {
   const bool posts = step.requests != 0;
   Json until = nullptr;
   if (step.replacesRules) {
      until = step.firstRequest + step.requests - 1;
   }
   return {{"action", actionName(step.action)},
           {"requests", step.requests},
           {"firstRequest", posts ? Json(step.firstRequest) : Json(nullptr)},
           {"oldRulesUntilRequest", std::move(until)}};
}

Json json(const AclChange& change) {
   return {
         {"policy", change.policy},
         {"family", familyName(change.family)},
         {"interfaces", {{"added", change.interfacesAdded}, {"removed", change.interfacesRemoved}}},
         {"packets", json(change.packets)},
         {"notDecided", notDecidedJson(change.packets)},
         {"entries", json(change.entries)},
         {"agent", agentJson(change.agent)}};
}

// ---- The agent ----

std::string agentText(const FileChanges& changes) {
   if (changes.agentRefuses.empty()) {
      return fmt::format("agent: takes over the new file with {} request{}\n", changes.requests,
                         changes.requests == 1 ? "" : "s");
   }
   std::string text;
   for (const std::string& reason : changes.agentRefuses) {
      text += fmt::format("agent: refuses the new file and keeps all rules: {}\n", reason);
   }
   return text;
}

template <class Element>
Json listJson(const std::vector<Element>& elements) {
   Json list = Json::array();
   for (const Element& element : elements) {
      list.push_back(json(element));
   }
   return list;
}

} // namespace

std::string text(const FileChanges& changes) {
   if (changes.none()) {
      return "no difference\n";
   }
   std::string text;
   for (const std::string& toggle : changes.toggles) {
      text += fmt::format("feature toggle {} differs\n", toggle);
   }
   for (const PolicyChange& change : changes.policies) {
      text += policyText(change, changes.files);
   }
   for (const AclChange& change : changes.acls) {
      text += aclText(change, changes.requests);
   }
   return text + agentText(changes);
}

Json json(const FileChanges& changes) {
   return {{"schema", diffJsonSchema},
           {"same", changes.none()},
           {"old", changes.files.before},
           {"new", changes.files.after},
           {"featureToggles", changes.toggles},
           {"policies", listJson(changes.policies)},
           {"samePolicies", changes.samePolicies},
           {"acls", listJson(changes.acls)},
           {"refused", {{"old", json(changes.refusedBefore)}, {"new", json(changes.refusedAfter)}}},
           {"agent",
            {{"accepts", changes.agentRefuses.empty()},
             {"reasons", changes.agentRefuses},
             {"requests", changes.requests}}}};
}

} // namespace Postcard::Changes
