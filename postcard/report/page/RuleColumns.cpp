#include "postcard/report/page/RuleColumns.h"

#include "postcard/packets/Packet.h"
#include "postcard/policy/Classes.h"

#include <fmt/format.h>

#include <algorithm>

namespace Postcard::Report {

using OruPostcardTelemetry::L4PortDataMask;
using OruPostcardTelemetry::RuleAction;
using OruPostcardTelemetry::RuleConfig;
using OruPostcardTelemetry::RuleFilter;

namespace {

// The name that the helper gives a rule, made of what the page holds besides. The page's script
// makes it in the same way (`ruleName` in web/model.js).
std::string madeName(const RuleFilter& filter, std::string_view className, Policy::Family family) {
   std::string name = fmt::format("{}-{}-{}", className, familyName(family),
                                  Packets::protocolName(filter.proto().value()));
   if (filter.sportDataMaskValid()) {
      const L4PortDataMask& port = filter.sportDataMask();
      name += fmt::format("-SportData-{}-SportMask-{}", port.l4PortData(), port.l4PortMask());
   }
   if (filter.dportDataMaskValid()) {
      const L4PortDataMask& port = filter.dportDataMask();
      name += fmt::format("-DportData-{}-DportMask-{}", port.l4PortData(), port.l4PortMask());
   }
   if (const U8 mask = filter.tcpFlagAndMask().tcpFlagMask().value(); mask != 0) {
      name += fmt::format("-tcpFlag-{}-tcpFlagMask-{}", filter.tcpFlagAndMask().tcpFlag().value(),
                          mask);
   }
   return name;
}

U32 actionsOf(const RuleAction& action) {
   return (action.action(RuleAction::sampleAction) ? 1U : 0U) |
          (action.action(RuleAction::setDscpAction) ? 2U : 0U);
}

} // namespace

std::string_view columnName(RuleColumns::Column which) {
   constexpr std::array<std::string_view, RuleColumns::columns> names{
         "class",           "protocol",        "ports",          "sourceData",     "sourceMask",
         "destinationData", "destinationMask", "flagsData",      "flagsMask",      "actions",
         "dscpData",        "dscpMask",        "line",           "column",         "entry",
         "sourceLow",       "sourceHigh",      "destinationLow", "destinationHigh"};
   return names.at(which);
}

std::map<std::size_t, std::string> RuleColumns::add(const Host::CompiledPolicy& compiled,
                                                    const Classifier::AclTable& table) {
   const auto classes = Policy::classesInOrder(compiled.policy, compiled.family);
   std::map<std::size_t, std::string> oddNames;
   std::size_t place = 0;
   std::size_t number = 0; // of the class; rules come class by class
   forEachRule(
         compiled, [&](U32 /*index*/, const RuleConfig& rule, const Host::RuleOrigin& origin) {
            while (classes[number] != origin.which) {
               ++number;
            }
            const RuleFilter& filter = *rule.ruleFilter(); // there: it agrees with its origin
            if (rule.name().view() != madeName(filter, origin.which->name.text, compiled.family)) {
               oddNames.emplace(place, rule.name().view());
            }
            const Classifier::AclTable::Entry& done = table.entries()[place++];
            put(classNumber, static_cast<U32>(number));
            addMatch(filter);
            put(actions, actionsOf(*rule.ruleAction()));
            put(dscpData, done.dscpData);
            put(dscpMask, done.dscpMask);
            addOrigin(origin);
         });
   rules_ += place;
   return oddNames;
}

void RuleColumns::addMatch(const RuleFilter& filter) {
   const auto& flags = filter.tcpFlagAndMask();
   put(protocol, filter.proto().value());
   put(ports, (filter.sportDataMaskValid() ? 1U : 0U) | (filter.dportDataMaskValid() ? 2U : 0U));
   put(sourceData, filter.sportDataMask().l4PortData());
   put(sourceMask, filter.sportDataMask().l4PortMask());
   put(destinationData, filter.dportDataMask().l4PortData());
   put(destinationMask, filter.dportDataMask().l4PortMask());
   put(flagsData, flags.tcpFlag().value());
   put(flagsMask, flags.tcpFlagMask().value());
}

void RuleColumns::addOrigin(const Host::RuleOrigin& origin) {
   const auto range = [&](Column low, Column high, const Policy::NumberRange* from) {
      put(low, from == nullptr ? 0 : from->low);
      put(high, from == nullptr ? 0 : from->high);
   };
   put(line, static_cast<U32>(origin.location().line));
   put(column, static_cast<U32>(origin.location().column));
   put(entry, static_cast<U32>(origin.entryNumber));
   range(sourceLow, sourceHigh, origin.source);
   range(destinationLow, destinationHigh, origin.destination);
}

} // namespace Postcard::Report
