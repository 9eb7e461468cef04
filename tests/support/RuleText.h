// `ruleText`: one line that says everything about a rule, for comparing whole tables of rules.
// Relies on the data model; written out attribute by attribute, so that it does not lean on the
// framework's own text forms.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"

#include <algorithm>
#include <string>
#include <vector>

namespace TestSupport {

inline std::string portText(const char* side, bool valid,
                            const OruPostcardTelemetry::L4PortDataMask& match) {
   return valid ? std::string{" "} + side + "=" + std::to_string(match.l4PortData()) + "/" +
                        std::to_string(match.l4PortMask())
                : "";
}

inline std::string filterText(const OruPostcardTelemetry::RuleFilter& filter) {
   std::string text = filter.source().stringValue() + " > " + filter.destination().stringValue() +
                      " proto=" + std::to_string(filter.proto().value());
   text += portText("sport", filter.sportDataMaskValid(), filter.sportDataMask());
   text += portText("dport", filter.dportDataMaskValid(), filter.dportDataMask());
   const auto& flags = filter.tcpFlagAndMask();
   if (flags.tcpFlagMask().value() != 0) {
      text += " flags=" + std::to_string(flags.tcpFlag().value()) + "/" +
              std::to_string(flags.tcpFlagMask().value());
   }
   if (const auto& sample = filter.sampleDataAndMask()) {
      text += " sample=" + std::to_string(sample->data()) + "/" + std::to_string(sample->mask()) +
              "/" + std::to_string(sample->version());
   }
   return text;
}

inline std::string actionText(const OruPostcardTelemetry::RuleAction& action) {
   std::vector<unsigned> numbers;
   for (const auto& member : action.action()) {
      numbers.push_back(member);
   }
   std::ranges::sort(numbers);
   std::string text = "actions=";
   for (const unsigned number : numbers) {
      text += std::to_string(number);
   }
   return text + " dscp=" + std::to_string(action.dscpDataAndMask().dscpData().value()) + "/" +
          std::to_string(action.dscpDataAndMask().dscpMask());
}

// `name: source > destination proto=… [sport=…] [dport=…] [flags=…] [sample=…] actions=… dscp=…`
inline std::string ruleText(const OruPostcardTelemetry::RuleConfig& rule) {
   return rule.name().str() + ": " +
          (rule.ruleFilter() ? filterText(*rule.ruleFilter()) : "no filter") + " " +
          (rule.ruleAction() ? actionText(*rule.ruleAction()) : "no action");
}

// `index rule`, in ascending order; a rule that is not the one under its name says so.
inline std::vector<std::string>
rulesByIndex(const OruPostcardTelemetry::PostcardTelemetryAclConfig& config) {
   std::vector<std::string> lines;
   for (const auto& rule : config.ruleByIndex()) {
      const bool named = config.ruleByName(rule->name()) == rule.value();
      lines.push_back(std::to_string(rule.key()) + (named ? " " : " (without name) ") +
                      ruleText(*rule.value()));
   }
   return lines;
}

// All rules that have a name, sorted.
inline std::vector<std::string>
rulesByName(const OruPostcardTelemetry::PostcardTelemetryAclConfig& config) {
   std::vector<std::string> lines;
   for (const auto& rule : config.ruleByName()) {
      lines.push_back(rule.key() == rule->name() ? ruleText(*rule.value()) : "key differs");
   }
   std::ranges::sort(lines);
   return lines;
}

// "index name", in ascending order of indexes.
inline std::vector<std::string>
namesByIndex(const OruPostcardTelemetry::PostcardTelemetryAclConfig& config) {
   std::vector<std::string> names;
   for (const auto& rule : config.ruleByIndex()) {
      names.push_back(std::to_string(rule.key()) + " " + rule->name().str());
   }
   return names;
}

// The names of `ruleByName`, sorted.
inline std::vector<std::string>
sortedNames(const OruPostcardTelemetry::PostcardTelemetryAclConfig& config) {
   std::vector<std::string> names;
   for (const auto& rule : config.ruleByName()) {
      names.push_back(rule.key().str());
   }
   std::ranges::sort(names);
   return names;
}

} // namespace TestSupport
