#include "Pello/VisibleCharacters.h"
#include "postcard/analysis/Warning.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <iterator>
#include <utility>

namespace Postcard::Analysis {

using Json = nlohmann::ordered_json;

std::string_view codeName(WarningCode code) {
   switch (code) {
   case WarningCode::shadowed:
      return "shadowed";
   case WarningCode::overlap:
      return "overlap";
   case WarningCode::rate:
      return "rate";
   case WarningCode::dscp:
      return "dscp";
   case WarningCode::cost:
      return "cost";
   case WarningCode::loop:
      return "loop";
   case WarningCode::empty:
      break;
   }
   return "empty";
}

void Warnings::add(Warnings other) {
   std::move(other.found.begin(), other.found.end(), std::back_inserter(found));
   std::move(other.notDecided.begin(), other.notDecided.end(), std::back_inserter(notDecided));
   moreOverlaps = moreOverlaps || other.moreOverlaps;
}

namespace {

std::string line(const Warning& warning, std::string_view fileName) {
   std::string text = fmt::format("{}:{}:{}: {}: {}", fileName, warning.location.line,
                                  warning.location.column, codeName(warning.code), warning.policy);
   if (warning.family) {
      text += fmt::format(" {}", familyName(*warning.family));
   }
   if (!warning.className.empty()) {
      text += fmt::format(": class '{}'", warning.className);
   }
   text += fmt::format(": {}", warning.text);
   for (const Blamed& each : warning.blamed) {
      text += fmt::format(", {} (line {})", each.what, each.location.line);
   }
   if (warning.witness) {
      text += fmt::format(": {}", printPacket(*warning.witness));
   }
   return text + '\n';
}

Json row(const Warning& warning) {
   Json blamed = Json::array();
   for (const Blamed& each : warning.blamed) {
      blamed.push_back(
            {{"what", each.what}, {"line", each.location.line}, {"column", each.location.column}});
   }
   return {{"code", codeName(warning.code)},
           {"policy", warning.policy},
           {"family", warning.family ? Json(familyName(*warning.family)) : Json(nullptr)},
           {"class", warning.className.empty() ? Json(nullptr) : Json(warning.className)},
           {"line", warning.location.line},
           {"column", warning.location.column},
           {"text", warning.text},
           {"blamed", std::move(blamed)},
           {"witness", warning.witness ? Json(printPacket(*warning.witness)) : Json(nullptr)}};
}

} // namespace

std::string text(const Warnings& warnings, std::string_view fileName) {
   const std::string file = Pello::escaped(fileName);
   std::string text;
   for (const Warning& each : warnings.found) {
      text += line(each, file);
   }
   if (warnings.moreOverlaps) {
      text +=
            fmt::format("{}: overlap: more than {} in a policy and family; only these are listed\n",
                        file, mostOverlaps);
   }
   for (const Warnings::Undecided& each : warnings.notDecided) {
      text += fmt::format("{}: {} {}: class '{}': not decided: the answer needs more memory or "
                          "time than it may use\n",
                          file, each.policy, familyName(each.family), each.className);
   }
   return text;
}

Json json(const Warnings& warnings) {
   Json list = Json::array();
   for (const Warning& each : warnings.found) {
      list.push_back(row(each));
   }
   return list;
}

Json notDecidedJson(const Warnings& warnings) {
   Json list = Json::array();
   for (const Warnings::Undecided& each : warnings.notDecided) {
      list.push_back({{"policy", each.policy},
                      {"family", familyName(each.family)},
                      {"class", each.className}});
   }
   return list;
}

} // namespace Postcard::Analysis
