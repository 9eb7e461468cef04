// `text` and `json` of differences.
#include "postcard/analysis/Difference.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Postcard::Analysis {

namespace {

using Json = nlohmann::ordered_json;

std::string treatmentText(const Treatment& treatment) {
   return treatment.className.empty()
                ? "no class, not sampled"
                : fmt::format("class '{}', {}", treatment.className, Policy::text(treatment.rate));
}

Json treatmentJson(const Treatment& treatment) {
   if (treatment.className.empty()) {
      return nullptr;
   }
   Json field = nullptr;
   if (treatment.rate.field) {
      field = treatment.rate.field == Policy::SampleField::checksum ? "checksum" : "ip-id";
   }
   return {{"class", treatment.className},        {"line", treatment.location.line},
           {"column", treatment.location.column}, {"sampled", treatment.sampled()},
           {"oneIn", treatment.rate.oneIn},       {"field", std::move(field)}};
}

std::string_view versionName(bool after) {
   return after ? "new" : "old";
}

} // namespace

std::string text(const Differences& differences) {
   std::string text;
   for (const TreatedOtherwise& each : differences.found) {
      text += fmt::format("   {}: {} -> {}\n", codeName(each.difference),
                          treatmentText(each.before), treatmentText(each.after));
      for (const std::string& line : each.words) {
         text += fmt::format("      all: {}\n", line);
      }
      text += fmt::format("      such as: {}\n", Packets::printPacket(each.witness));
   }
   for (const Differences::Undecided& each : differences.notDecided) {
      text += fmt::format("   not decided: class '{}' of the {} file\n", each.className,
                          versionName(each.after));
   }
   return text;
}

Json json(const Differences& differences) {
   Json list = Json::array();
   for (const TreatedOtherwise& each : differences.found) {
      list.push_back({{"difference", codeName(each.difference)},
                      {"old", treatmentJson(each.before)},
                      {"new", treatmentJson(each.after)},
                      {"words", each.words.empty() ? Json(nullptr) : Json(each.words)},
                      {"witness", Packets::printPacket(each.witness)}});
   }
   return list;
}

Json notDecidedJson(const Differences& differences) {
   Json list = Json::array();
   for (const Differences::Undecided& each : differences.notDecided) {
      list.push_back({{"version", versionName(each.after)}, {"class", each.className}});
   }
   return list;
}

} // namespace Postcard::Analysis
