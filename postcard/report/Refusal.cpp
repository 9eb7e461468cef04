#include "postcard/report/Refusal.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/policy/RefusedClasses.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace Postcard::Report {

namespace {

// "FILE:LINE:COLUMN: ", without what is not known.
std::string placeText(std::string_view file, const Policy::Location& location) {
   const std::string name = file.empty() ? "" : Pello::escaped(file) + ":";
   return location.line == 0 ? "" : fmt::format("{}{}:{}: ", name, location.line, location.column);
}

} // namespace

std::vector<RefusedKey> refusedKeysOf(const Policy::Policy& policy, Policy::Family family,
                                      const Policy::Hardware& hardware) {
   std::vector<RefusedKey> keys;
   for (Policy::RefusedClass& each : refusedClasses(policy, family, hardware)) {
      for (Policy::UnsupportedKey& key : each.keys) {
         keys.push_back({each.item->name.text, std::move(key.path), key.location});
      }
   }
   return keys;
}

Refusal refusalOf(const Policy::Policy& policy, Policy::Family family,
                  const Policy::Hardware& hardware, std::string_view file,
                  const std::string& message) {
   return {policy.name.text, family, message, std::string{file},
           refusedKeysOf(policy, family, hardware)};
}

std::string text(const std::vector<RefusedKey>& keys, std::string_view file,
                 std::string_view indent) {
   std::string text;
   for (const RefusedKey& key : keys) {
      text += fmt::format("{}{}class '{}': {}\n", indent, placeText(file, key.location),
                          key.className, key.key);
   }
   return text;
}

nlohmann::ordered_json json(const std::vector<RefusedKey>& keys, std::string_view file) {
   auto list = nlohmann::ordered_json::array();
   for (const RefusedKey& key : keys) {
      list.push_back({{"class", key.className},
                      {"key", key.key},
                      {"file", file},
                      {"line", key.location.line},
                      {"column", key.location.column}});
   }
   return list;
}

std::string text(const Refusal& refusal) {
   return fmt::format("{} {}: {}\n", refusal.policy, familyName(refusal.family), refusal.message) +
          text(refusal.keys, refusal.file, "   ");
}

nlohmann::ordered_json json(const std::vector<Refusal>& refusals) {
   auto list = nlohmann::ordered_json::array();
   for (const Refusal& refusal : refusals) {
      list.push_back({{"policy", refusal.policy},
                      {"family", familyName(refusal.family)},
                      {"message", refusal.message},
                      {"classes", json(refusal.keys, refusal.file)}});
   }
   return list;
}

} // namespace Postcard::Report
