#include "postcard/policy/PolicyDiff.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace Postcard::Policy {

namespace {

using Json = nlohmann::json;

// Structures are compared as documents without places: a new member is then forgotten in one place
// only, and the documents are small beside the rules they become.
Json document(const std::vector<Prefix>& prefixes) {
   Json json = Json::array();
   for (const Prefix& prefix : prefixes) {
      json.push_back(prefix.value.stringValue());
   }
   std::sort(json.begin(), json.end());
   return json;
}

Json document(const NumberRange& range) {
   return {range.low, range.high};
}

Json document(const std::vector<NumberRange>& ranges) {
   Json json = Json::array();
   for (const NumberRange& range : ranges) {
      json.push_back(document(range));
   }
   std::sort(json.begin(), json.end());
   return json;
}

Json document(const std::optional<Name>& name) {
   return name ? Json(name->text) : Json(nullptr);
}

Json document(const std::optional<NumberRange>& range) {
   return range ? document(*range) : Json(nullptr);
}

Json document(const std::optional<SampleMatch>& sample) {
   return sample ? Json{sample->data, sample->mask, static_cast<int>(sample->field)}
                 : Json(nullptr);
}

Json document(const ProtocolMatch& match) {
   Json ports = Json::array();
   for (const PortEntry& entry : match.ports) {
      ports.push_back({document(entry.source), document(entry.destination),
                       document(entry.sourceSet), document(entry.destinationSet)});
   }
   Json flags = Json::array();
   for (const TcpFlagMatch& flag : match.tcpFlags) {
      flags.push_back({flag.flags, flag.mask});
   }
   std::sort(flags.begin(), flags.end());
   Json types = Json::array();
   for (const IcmpType& type : match.icmpTypes) {
      types.push_back(type.type);
   }
   std::sort(types.begin(), types.end());
   return {match.low, match.high, ports, flags, types};
}

Json document(const Filter& filter) {
   Json protocols = Json::array();
   for (const ProtocolMatch& match : filter.protocols) {
      protocols.push_back(document(match));
   }
   std::sort(protocols.begin(), protocols.end());
   return {document(filter.source),
           document(filter.destination),
           document(filter.sourceExcept),
           document(filter.destinationExcept),
           document(filter.sourcePrefixSet),
           document(filter.destinationPrefixSet),
           document(filter.payloadLength),
           document(filter.ipTtl),
           filter.fragments,
           filter.ipOptions,
           filter.protocol,
           filter.protocolNeighbor,
           document(filter.sample),
           protocols};
}

Json document(const std::vector<Action>& actions) {
   Json json = Json::array();
   for (const Action& action : actions) {
      json.push_back({static_cast<int>(action.kind), action.dscp});
   }
   std::sort(json.begin(), json.end());
   return json;
}

Json document(const Policy& policy, Family family) {
   Json classes = Json::array();
   for (const Class& from : policy.classes) {
      if (const Filter* filter = from.filter(family)) {
         classes.push_back(
               {from.priority, from.name.text, document(from.actions), document(*filter)});
      }
   }
   std::sort(classes.begin(), classes.end()); // by priority, which is the order of matching
   return {policy.scope, classes};
}

} // namespace

bool samePolicyClasses(const Policy& a, const Policy& b, Family family) {
   return document(a, family) == document(b, family);
}

} // namespace Postcard::Policy
