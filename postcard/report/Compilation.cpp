#include "postcard/report/Compilation.h"

#include "Kiv/TypeData.h"
#include "postcard/host/RuleNames.h"
#include "postcard/json/EntityJson.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace Postcard::Report {

namespace {

using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::RuleConfig;

Policy::Family familyOf(const PostcardTelemetryAclConfig& acl) {
   return acl.aclType() == Acl::AclType::ipv6 ? Policy::Family::ipv6 : Policy::Family::ipv4;
}

// The helper calls the ACL of a policy POLICY-FAMILY.
std::string_view policyOf(const PostcardTelemetryAclConfig& acl, std::string_view family) {
   std::string_view key = acl.aclConfigKey().view();
   key.remove_suffix(std::min(key.size(), family.size() + 1));
   return key;
}

// What the rules of an ACL were made for.
struct Origin {
   explicit Origin(const PostcardTelemetryAclConfig& acl)
      : family{familyOf(acl)}, policy{policyOf(acl, familyName(family))} {}

   Policy::Family family;
   std::string_view policy; // valid as long as the ACL
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

void writeRule(const RuleConfig& rule, const Origin& origin, Json::Writer& writer) {
   writer.beginObject();
   writeText("policy", origin.policy, writer);
   writeText("family", familyName(origin.family), writer);
   writeText("class", Host::classOfRule(rule.name().view(), origin.family), writer);
   for (const Kiv::AttributeData& attribute : rule.typeData().attributes) {
      writeAttribute(rule, attribute, writer);
   }
   writer.endObject();
}

// In the order of their names. Reflection would sort copies of the names, which take more memory
// than all else that is needed for writing; a pointer for each rule suffices.
void writeRulesByName(const PostcardTelemetryAclConfig& acl, Json::Writer& writer) {
   std::vector<const RuleConfig*> rules;
   rules.reserve(acl.ruleByNames());
   for (const auto& rule : acl.ruleByName()) {
      rules.push_back(rule.value().get());
   }
   std::ranges::sort(rules, {}, [](const RuleConfig* rule) { return rule->name().view(); });
   const Origin origin{acl};
   writer.beginObject();
   for (const RuleConfig* rule : rules) {
      writer.member(rule->name().view());
      writeRule(*rule, origin, writer);
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

void writeAcl(const PostcardTelemetryAclConfig& acl, Json::Writer& writer) {
   writer.beginObject();
   for (const Kiv::AttributeData& attribute : acl.typeData().attributes) {
      if (std::string_view{attribute.name} == "ruleByName") {
         writer.member(attribute.name);
         writeRulesByName(acl, writer);
      } else {
         writeAttribute(acl, attribute, writer);
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

void CompilationWriter::add(const PostcardTelemetryAclConfig& acl) {
   writeAcl(acl, writer_);
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
