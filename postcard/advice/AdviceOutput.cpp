#include "Pello/VisibleCharacters.h"
#include "postcard/advice/Advice.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Postcard::Advice {

using Json = nlohmann::ordered_json;

std::string_view kindName(Kind kind) {
   switch (kind) {
   case Kind::merge:
      return "merge";
   case Kind::remove:
      return "remove";
   case Kind::neighbour:
      break;
   }
   return "neighbour";
}

std::string text(const std::vector<Advice>& advice, std::string_view fileName, std::size_t most) {
   std::string text;
   std::size_t left = most;
   for (const Advice& each : advice) {
      if (left-- == 0) {
         return text + fmt::format("{}: and {} more that save less\n", Pello::escaped(fileName),
                                   advice.size() - most);
      }
      text += fmt::format("{}:{}:{}: saves {}: {} {}: class '{}': {}\n", Pello::escaped(fileName),
                          each.location.line, each.location.column, each.saves, each.policy,
                          familyName(each.family), each.className, each.text);
   }
   return text;
}

Json json(const std::vector<Advice>& advice) {
   Json list = Json::array();
   for (const Advice& each : advice) {
      list.push_back({{"kind", kindName(each.kind)},
                      {"policy", each.policy},
                      {"family", familyName(each.family)},
                      {"class", each.className},
                      {"line", each.location.line},
                      {"column", each.location.column},
                      {"text", each.text},
                      {"saves", each.saves}});
   }
   return list;
}

} // namespace Postcard::Advice
