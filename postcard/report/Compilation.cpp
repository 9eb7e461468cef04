#include "postcard/report/Compilation.h"

#include "Kiv/TypeData.h"
#include "postcard/host/RuleNames.h"
#include "postcard/json/EntityJson.h"
#include "postcard/report/OriginOutput.h"

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

// What a rule was made for.
struct Purpose {
   std::string_view policy;
   Policy::Family family;
   std::string_view className;
};

// Begins the object of a rule.
void beginRule(const Purpose& purpose, Json::Writer& writer) {
   writer.beginObject();
   writeText("policy", purpose.policy, writer);
   writeText("family", familyName(purpose.family), writer);
   writeText("class", purpose.className, writer);
}

void endRule(const RuleConfig& rule, Json::Writer& writer) {
   for (const Kiv::AttributeData& attribute : rule.typeData().attributes) {
      writeAttribute(rule, attribute, writer);
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

void writeRules(const CompiledPolicy& compiled, const std::vector<PlacedRule>& rules,
                Json::Writer& writer) {
   writer.beginObject();
   for (const PlacedRule& placed : rules) {
      writer.member(placed.name());
      beginRule({compiled.policy.name.text, compiled.family, placed.origin.which->name.text},
                writer);
      writer.member("origin");
      writeOrigin(placed.origin, writer);
      endRule(*placed.rule, writer);
   }
   writer.endObject();
}

Policy::Family familyOf(const PostcardTelemetryAclConfig& acl) {
   return acl.aclType() == Acl::AclType::ipv6 ? Policy::Family::ipv6 : Policy::Family::ipv4;
}

// The helper calls the ACL of a policy POLICY-FAMILY.
std::string_view policyOf(const PostcardTelemetryAclConfig& acl, std::string_view family) {
   std::string_view key = acl.aclConfigKey().view();
   key.remove_suffix(std::min(key.size(), family.size() + 1));
   return key;
}

void writeRules(const PostcardTelemetryAclConfig& acl, Json::Writer& writer) {
   std::vector<const RuleConfig*> rules;
   rules.reserve(acl.ruleByNames());
   for (const auto& rule : acl.ruleByName()) {
      rules.push_back(rule.value().get());
   }
   std::ranges::sort(rules, {}, [](const RuleConfig* rule) { return rule->name().view(); });
   const Policy::Family family = familyOf(acl);
   const std::string_view policy = policyOf(acl, familyName(family));
   writer.beginObject();
   for (const RuleConfig* rule : rules) {
      writer.member(rule->name().view());
      beginRule({policy, family, Host::classOfRule(rule->name().view(), family)}, writer);
      writer.member("origin");
      writer.null();
      endRule(*rule, writer);
   }
   writer.endObject();
}

// Writes the object of an ACL, in which `rules` writes the value of `ruleByName`.
template <class WriteRules>
void writeAclWith(const PostcardTelemetryAclConfig& acl, Json::Writer& writer,
                  const WriteRules& rules) {
   writer.beginObject();
   for (const Kiv::AttributeData& attribute : acl.typeData().attributes) {
      if (std::string_view{attribute.name} == "ruleByName") {
         writer.member(attribute.name);
         rules();
      } else {
         writeAttribute(acl, attribute, writer);
      }
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
   writeAclWith(compiled.acl, writer, [&] { writeRules(compiled, rules, writer); });
}

void writeAcl(const PostcardTelemetryAclConfig& acl, Json::Writer& writer) {
   writeAclWith(acl, writer, [&] { writeRules(acl, writer); });
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
