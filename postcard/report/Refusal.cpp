#include "postcard/report/Refusal.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/policy/RefusedClasses.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace Postcard::Report {

namespace {

nlohmann::ordered_json keysJson(const Refusal& refusal) {
   auto list = nlohmann::ordered_json::array();
   for (const RefusedKey& key : refusal.keys) {
      list.push_back({{"class", key.className},
                      {"key", key.key},
                      {"file", refusal.file},
                      {"line", key.location.line},
                      {"column", key.location.column}});
   }
   return list;
}

} // namespace

Refusal refusalOf(const Policy::Policy& policy, Policy::Family family,
                  const Policy::Hardware& hardware, std::string_view file,
                  const std::string& message) {
   Refusal refusal{policy.name.text, family, message, std::string{file}, {}};
   for (Policy::RefusedClass& each : refusedClasses(policy, family, hardware)) {
      for (Policy::UnsupportedKey& key : each.keys) {
         refusal.keys.push_back({each.item->name.text, std::move(key.path), key.location});
      }
   }
   return refusal;
}

std::string text(const Refusal& refusal) {
   std::string text =
         fmt::format("{} {}: {}\n", refusal.policy, familyName(refusal.family), refusal.message);
   for (const RefusedKey& key : refusal.keys) {
      text += fmt::format("   {}:{}:{}: class '{}': {}\n", Pello::escaped(refusal.file),
                          key.location.line, key.location.column, key.className, key.key);
   }
   return text;
}

nlohmann::ordered_json json(const std::vector<Refusal>& refusals) {
   auto list = nlohmann::ordered_json::array();
   for (const Refusal& refusal : refusals) {
      list.push_back({{"policy", refusal.policy},
                      {"family", familyName(refusal.family)},
                      {"message", refusal.message},
                      {"classes", keysJson(refusal)}});
   }
   return list;
}

} // namespace Postcard::Report
