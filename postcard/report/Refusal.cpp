#include "postcard/report/Refusal.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Postcard::Report {

std::string text(const Refusal& refusal) {
   return fmt::format("{} {}: {}\n", refusal.policy, familyName(refusal.family), refusal.message);
}

nlohmann::ordered_json json(const std::vector<Refusal>& refusals) {
   auto list = nlohmann::ordered_json::array();
   for (const Refusal& refusal : refusals) {
      list.push_back({{"policy", refusal.policy},
                      {"family", familyName(refusal.family)},
                      {"message", refusal.message}});
   }
   return list;
}

} // namespace Postcard::Report
