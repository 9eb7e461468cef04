// `postcard types`: what is listed, and all about one type.
#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace {

using TestSupport::ProgramResult;
using TestSupport::runProgram;

ProgramResult types(std::vector<std::string> arguments = {},
                    std::vector<std::string> environment = {}) {
   arguments.insert(arguments.begin(), {POSTCARD_BIN_DIR "/postcard", "types"});
   return runProgram(std::move(arguments), std::move(environment));
}

bool holds(const std::string& text, const std::string& part) {
   return text.find(part) != std::string::npos;
}

TEST(Types, listsThoseOfAllLibrariesAndOfTheModule) {
   const ProgramResult result = types();
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.err, "");
   EXPECT_TRUE(result.out.starts_with("KIND         BYTES  ATTRIBUTES  OPERATIONS  NAME\n"));
   for (const char* type :
        {"  Acl::AclType\n", "  L3::VrfName\n", "  Orlix::IpGenPrefix\n", "  U16\n",
         "  PolicyMap::PolicyMapAclHelper\n", "  TrafficPolicy::StructuredFilterColl\n",
         "          12  OruPostcardTelemetry::OruPostcardPolicyAclHelper\n"}) {
      EXPECT_TRUE(holds(result.out, type)) << type << result.out;
   }
}

TEST(Types, tellsAllAboutAnEntity) {
   const ProgramResult result = types({"RuleConfig"});
   EXPECT_EQ(result.exitCode, 0);
   EXPECT_EQ(result.out.substr(result.out.find('\n')),
             "\nmade by name:\n"
             "   OruPostcardTelemetry::RuleConfig(name: Pello::String)\n"
             "attributes:\n"
             "    130  name                     constant    Pello::String\n"
             "    131  ruleFilter               child       "
             "Pello::Ptr<OruPostcardTelemetry::RuleFilter>\n"
             "    132  ruleAction               child       "
             "Pello::Ptr<OruPostcardTelemetry::RuleAction>\n");
   EXPECT_TRUE(result.out.starts_with("OruPostcardTelemetry::RuleConfig: entity, ")) << result.out;
   EXPECT_EQ(types({"OruPostcardTelemetry::RuleConfig"}).out, result.out);
}

TEST(Types, tellsEnumeratorsAndOperations) {
   EXPECT_EQ(types({"RuleAction::Action"}).out,
             "OruPostcardTelemetry::RuleAction::Action: enumeration, 1 bytes\n"
             "made by name:\n"
             "   OruPostcardTelemetry::RuleAction::Action(name: Pello::String)\n"
             "enumerators:\n"
             "      0  sampleAction\n"
             "      1  policeAction\n"
             "      2  setDscpAction\n");
   EXPECT_TRUE(holds(types({"OruPostcardPolicyAclHelper"}).out,
                     "   updatePolicyStatus(policyStatus: "
                     "OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatusType, "
                     "statusString: Pello::String) -> Pello::String\n"));
}

TEST(Types, jsonForPrograms) {
   const auto document = nlohmann::json::parse(types({"DscpDataAndMask", "--format", "json"}).out);
   EXPECT_EQ(document, nlohmann::json::parse(R"({"schema": 1, "types": [{
      "name": "OruPostcardTelemetry::DscpDataAndMask", "kind": "value", "size": 2,
      "madeFrom": [{"name": "dscpData", "type": "Orlix::DscpValue"},
                   {"name": "dscpMask", "type": "U8"}],
      "enumerators": [],
      "attributes": [
         {"id": 1, "name": "dscpData", "kind": "value", "type": "Orlix::DscpValue"},
         {"id": 2, "name": "dscpMask", "kind": "value", "type": "U8"}],
      "operations": []}]})"));
   EXPECT_EQ(nlohmann::json::parse(types({"--format", "json"}).out).at("types").size(), 52U);
}

TEST(Types, anUnknownTypeAndAMissingModule) {
   const ProgramResult unknown = types({"Config"});
   EXPECT_EQ(unknown.exitCode, 2);
   EXPECT_EQ(unknown.out, "");
   EXPECT_EQ(unknown.err, "there is no type 'Config'; postcard types lists them\n");
   EXPECT_EQ(types({}, {"POSTCARD_MODULE=/nonexistent.so"}).exitCode, 3);
}

} // namespace
