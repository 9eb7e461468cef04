#include "postcard/report/page/ClassJson.h"

#include "postcard/policy/Classes.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace Postcard::Report {

namespace {

using Json = nlohmann::ordered_json;

Json prefixJson(const std::vector<Policy::Prefix>& prefixes) {
   return prefixes.empty() ? Json(nullptr) : Json(prefixes.front().value.stringValue());
}

Json rangesJson(const std::vector<Policy::NumberRange>& ranges) {
   Json list = Json::array();
   for (const Policy::NumberRange& range : ranges) {
      list.push_back(Json::array({range.low, range.high}));
   }
   return list;
}

Json protocolJson(const Policy::ProtocolMatch& match) {
   Json ports = Json::array();
   for (const Policy::PortEntry& entry : match.ports) {
      ports.push_back(
            {{"source", rangesJson(entry.source)}, {"destination", rangesJson(entry.destination)}});
   }
   Json flags = Json::array();
   for (const Policy::TcpFlagMatch& each : match.tcpFlags) {
      flags.push_back(Json::array({each.flags, each.mask}));
   }
   return {{"protocol", match.low}, {"ports", std::move(ports)}, {"flags", std::move(flags)}};
}

Json sampleJson(const Policy::SampleMatch* sample) {
   if (sample == nullptr) {
      return nullptr;
   }
   return {{"field", sample->field == Policy::SampleField::checksum ? "checksum" : "ip-id"},
           {"data", sample->data},
           {"mask", sample->mask}};
}

Json classJson(const Policy::Class& each, Policy::Family family) {
   const Policy::Filter& filter = *each.filter(family);
   Json actions = Json::array();
   for (const Policy::Action& action : each.actions) {
      actions.push_back(actionName(action.kind));
   }
   Json protocols = Json::array();
   for (const Policy::ProtocolMatch& match : filter.protocols) {
      protocols.push_back(protocolJson(match));
   }
   const Policy::Action* mark = actionOf(each, Policy::ActionKind::setDscp);
   return {{"name", each.name.text},
           {"line", each.name.location.line},
           {"column", each.name.location.column},
           {"actions", std::move(actions)},
           {"dscp", mark == nullptr ? Json(nullptr) : Json(mark->dscp)},
           {"source", prefixJson(filter.source)},
           {"destination", prefixJson(filter.destination)},
           {"sample", sampleJson(sampleOf(each, family))},
           {"protocols", std::move(protocols)}};
}

} // namespace

Json classesJson(const Policy::Policy& policy, Policy::Family family) {
   Json list = Json::array();
   for (const Policy::Class* each : classesInOrder(policy, family)) {
      list.push_back(classJson(*each, family));
   }
   return list;
}

} // namespace Postcard::Report
