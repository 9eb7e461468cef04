#include "agent/AclJson.h"

namespace Agent {

namespace {

using OruPostcardTelemetry::L4PortDataMask;
using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::RuleAction;
using OruPostcardTelemetry::RuleConfig;
using OruPostcardTelemetry::RuleFilter;
using Json = nlohmann::ordered_json;

Json portJson(bool valid, const L4PortDataMask& port) {
   return valid ? Json{{"data", port.l4PortData()}, {"mask", port.l4PortMask()}} : Json(nullptr);
}

Json tcpFlagsJson(const Classification::TcpFlagAndMask& match) {
   const U8 mask = match.tcpFlagMask().value();
   return mask == 0 ? Json(nullptr) : Json{{"data", match.tcpFlag().value()}, {"mask", mask}};
}

Json sampleJson(const Classification::TcpUdpCheckSumOrIpId* sample) {
   if (sample == nullptr) {
      return nullptr;
   }
   const bool ipId = sample->version() == Classification::sampleVersionIpId;
   return {{"data", sample->data()},
           {"mask", sample->mask()},
           {"field", ipId ? "ip-id" : "checksum"}};
}

Json filterJson(const RuleFilter& filter) {
   return {
         {"source", filter.source().stringValue()},
         {"destination", filter.destination().stringValue()},
         {"protocol", filter.proto().value()},
         {"sourcePort", portJson(filter.sportDataMaskValid(), filter.sportDataMask())},
         {"destinationPort", portJson(filter.dportDataMaskValid(), filter.dportDataMask())},
         {"tcpFlags", tcpFlagsJson(filter.tcpFlagAndMask())},
         {"sample", sampleJson(filter.sampleDataAndMask().get())},
   };
}

Json actionJson(const RuleAction& action) {
   Json names = Json::array();
   for (const auto& member : action.action()) {
      names.push_back(stringValue(member.key()));
   }
   Json json{{"actions", std::move(names)}, {"setDscp", nullptr}};
   if (action.action(RuleAction::setDscpAction)) {
      json["setDscp"] = {{"data", action.dscpDataAndMask().dscpData().value()},
                         {"mask", action.dscpDataAndMask().dscpMask()}};
   }
   return json;
}

Json ruleJson(U32 index, const RuleConfig& rule) {
   return {{"index", index},
           {"name", rule.name().view()},
           {"filter", filterJson(*rule.ruleFilter())},
           {"action", actionJson(*rule.ruleAction())}};
}

} // namespace

Json aclJson(const PostcardTelemetryAclConfig& aclConfig) {
   Json interfaces = Json::array();
   for (const auto& intf : aclConfig.policyIntf()) {
      interfaces.push_back(intf.key().stringValue().view());
   }
   Json status = Json::array();
   for (const auto& text : aclConfig.aclConfigStatus()->statusInOrder()) {
      status.push_back(text.value().view());
   }
   Json rules = Json::array();
   for (const auto& rule : aclConfig.ruleByIndex()) {
      rules.push_back(ruleJson(rule.key(), *rule.value()));
   }
   return {{"name", aclConfig.aclConfigKey().view()},
           {"type", stringValue(aclConfig.aclType())},
           {"interfaces", std::move(interfaces)},
           {"programmedPolicy", aclConfig.programmedPolicy()},
           {"rulesClientUpdated", aclConfig.rulesClientUpdated()},
           {"status", std::move(status)},
           {"rules", std::move(rules)}};
}

} // namespace Agent
