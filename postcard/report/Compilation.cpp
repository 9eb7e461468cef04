#include "postcard/report/Compilation.h"

#include "Kiv/TypeData.h"
#include "postcard/json/EntityJson.h"
#include "postcard/packets/Packet.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace Postcard::Report {

namespace {

using Host::CompiledPolicy;
using Host::RuleOrigin;
using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::RuleConfig;

// A rule and where it comes from.
struct PlacedRule {
   const RuleConfig* rule;
   RuleOrigin origin;

   std::string_view name() const { return rule->name().view(); }
};

void writeAttribute(const Kiv::Entity& entity, const Kiv::AttributeData& attribute,
                    Json::Writer& writer) {
   writer.member(attribute.name);
   attribute.visit(ownerAddress(entity), writer);
}

void writeText(std::string_view name, std::string_view text, Json::Writer& writer) {
   writer.member(name);
   writer.text(text);
}

void writePorts(std::string_view name, const Policy::NumberRange* range, Json::Writer& writer) {
   writer.member(name);
   if (range == nullptr) {
      writer.null();
   } else {
      writer.text(fmt::format("{}-{}", range->low, range->high));
   }
}

void writeNumber(std::string_view name, U64 number, Json::Writer& writer) {
   writer.member(name);
   writer.number(number);
}

void writeOrigin(const RuleOrigin& origin, Json::Writer& writer) {
   writer.member("origin");
   writer.beginObject();
   writeNumber("line", origin.location().line, writer);
   writeNumber("column", origin.location().column, writer);
   writeText("protocol", Packets::protocolName(origin.protocol), writer);
   writer.member("portEntry");
   if (origin.entry == nullptr) {
      writer.null();
   } else {
      writer.number(origin.entryNumber);
   }
   writePorts("sourcePorts", origin.source, writer);
   writePorts("destinationPorts", origin.destination, writer);
   writer.member("tcpFlags");
   if (origin.flags == nullptr) {
      writer.null();
   } else {
      writer.beginObject();
      writeNumber("flags", origin.flags->flags, writer);
      writeNumber("mask", origin.flags->mask, writer);
      writer.endObject();
   }
   writer.endObject();
}

void writeRule(const PlacedRule& placed, const CompiledPolicy& compiled, Json::Writer& writer) {
   writer.beginObject();
   writeText("policy", compiled.policy.name.text, writer);
   writeText("family", familyName(compiled.family), writer);
   writeText("class", placed.origin.which->name.text, writer);
   writeOrigin(placed.origin, writer);
   for (const Kiv::AttributeData& attribute : placed.rule->typeData().attributes) {
      writeAttribute(*placed.rule, attribute, writer);
   }
   writer.endObject();
}

// Reflection would sort copies of the names of the rules, which take more memory than all else that
// is needed for writing.
std::vector<PlacedRule> rulesByName(const CompiledPolicy& compiled) {
   std::vector<PlacedRule> rules;
   rules.reserve(compiled.acl.ruleByIndexs());
   forEachRule(compiled, [&](U32 /*index*/, const RuleConfig& rule, const RuleOrigin& origin) {
      rules.push_back({&rule, origin});
   });
   // A stable sort leaves the first index of each rule in front.
   std::ranges::stable_sort(rules, {}, &PlacedRule::name);
   const auto again = std::ranges::unique(rules, {}, &PlacedRule::name);
   rules.erase(again.begin(), again.end());
   return rules;
}

void writeRulesByName(const CompiledPolicy& compiled, const std::vector<PlacedRule>& rules,
                      Json::Writer& writer) {
   writer.beginObject();
   for (const PlacedRule& placed : rules) {
      writer.member(placed.name());
      writeRule(placed, compiled, writer);
   }
   writer.endObject();
}

} // namespace

void Compilation::add(const PostcardTelemetryAclConfig& acl) {
   acls += 1;
   rules += acl.ruleByNames();
   tcamEntries += acl.ruleByIndexs();
}

std::string text(const Compilation& compilation) {
   return fmt::format("ACLs: {}, rules: {}, TCAM entries: {}\n", compilation.acls,
                      compilation.rules, compilation.tcamEntries);
}

void writeAcl(const CompiledPolicy& compiled, Json::Writer& writer) {
   const std::vector<PlacedRule> rules = rulesByName(compiled);
   writer.beginObject();
   for (const Kiv::AttributeData& attribute : compiled.acl.typeData().attributes) {
      if (std::string_view{attribute.name} == "ruleByName") {
         writer.member(attribute.name);
         writeRulesByName(compiled, rules, writer);
      } else {
         writeAttribute(compiled.acl, attribute, writer);
      }
   }
   writer.endObject();
}

// The document is about ACLs, and `postcard show` prints the same shape: they share a version.
CompilationWriter::CompilationWriter(Json::Writer::Sink sink) : writer_{std::move(sink)} {
   writer_.beginObject();
   writer_.member("schema");
   writer_.number(Json::aclJsonSchema);
   writer_.member("acls");
   writer_.beginList();
}

void CompilationWriter::add(const CompiledPolicy& compiled) {
   writeAcl(compiled, writer_);
}

void CompilationWriter::finish(const Compilation& compilation) {
   writer_.endList();
   writer_.member("refused");
   writer_.value(json(compilation.refused));
   writer_.member("totals");
   writer_.value({{"acls", compilation.acls},
                  {"rules", compilation.rules},
                  {"tcamEntries", compilation.tcamEntries}});
   writer_.endObject();
   writer_.finish();
}

} // namespace Postcard::Report
