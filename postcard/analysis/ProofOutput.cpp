#include "Pello/VisibleCharacters.h"
#include "postcard/analysis/Proof.h"
#include "postcard/packets/Packet.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Postcard::Analysis {

using Json = nlohmann::ordered_json;

namespace {

std::string_view verdictName(Verdict verdict) {
   switch (verdict) {
   case Verdict::proven:
      return "proven";
   case Verdict::departs:
      return "departs";
   case Verdict::notDecided:
      break;
   }
   return "not decided";
}

std::string_view verdictText(Verdict verdict) {
   switch (verdict) {
   case Verdict::proven:
      return "proven: the rules do for every packet what the filters mean";
   case Verdict::departs:
      return "wrong: the rules do not do what the filters mean";
   case Verdict::notDecided:
      break;
   }
   return "not decided: the answer needs more memory or time than it may use";
}

std::string placeText(std::string_view fileName, const Policy::Location& location) {
   return fmt::format("{}:{}:{}", Pello::escaped(fileName), location.line, location.column);
}

Json placed(const std::string& className, const Policy::Location& location,
            const Packets::Packet& witness) {
   return {{"class", className},
           {"line", location.line},
           {"column", location.column},
           {"witness", printPacket(witness)}};
}

} // namespace

std::string_view designText(Design design) {
   switch (design) {
   case Design::onlyTcpAndUdp:
      return "without protocols the class takes TCP and UDP only";
   case Design::dscpNotRewritten:
      return "no rule rewrites the DSCP";
   case Design::tcpFlagsNotCompared:
      break;
   }
   return "the hardware does not compare TCP flags";
}

std::string text(const Proof& proof, std::string_view fileName) {
   std::string text = fmt::format("{} {}: {} rules, {}\n", proof.policy, familyName(proof.family),
                                  proof.rules, verdictText(proof.verdict));
   for (const Departure& each : proof.departures) {
      text += fmt::format("{}: class '{}': {} instead of {}: {}\n",
                          placeText(fileName, each.location), each.className, each.done, each.meant,
                          printPacket(each.witness));
   }
   for (const ByDesign& each : proof.byDesign) {
      text += fmt::format("{}: by design: class '{}': {}: {}\n", placeText(fileName, each.location),
                          each.className, designText(each.design), printPacket(each.witness));
   }
   for (const std::string& each : proof.notDecided) {
      text += fmt::format("{} {}: class '{}': not decided\n", proof.policy,
                          familyName(proof.family), each);
   }
   return text;
}

Json json(const Proof& proof) {
   Json departures = Json::array();
   for (const Departure& each : proof.departures) {
      Json row = placed(each.className, each.location, each.witness);
      row["meant"] = each.meant;
      row["done"] = each.done;
      departures.push_back(std::move(row));
   }
   Json byDesign = Json::array();
   for (const ByDesign& each : proof.byDesign) {
      Json row = placed(each.className, each.location, each.witness);
      row["difference"] = static_cast<int>(each.design);
      row["text"] = designText(each.design);
      byDesign.push_back(std::move(row));
   }
   return {{"policy", proof.policy},
           {"family", familyName(proof.family)},
           {"verdict", verdictName(proof.verdict)},
           {"rules", proof.rules},
           {"departures", std::move(departures)},
           {"byDesign", std::move(byDesign)},
           {"notDecided", proof.notDecided}};
}

} // namespace Postcard::Analysis
