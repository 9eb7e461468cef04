// The run-time module: what it exports, that host and module mean the same types, and that its
// operations can be called by name. The helper's own class is unknown here, as it is to an agent.
#include "Kiv/Exception.h"
#include "Kiv/Operation.h"
#include "Kiv/PlatformVersion.h"
#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryPolicyKey.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "PolicyMap/PolicyMapAclHelper.h"
#include "PostcardTelemetry/HwCapability.h"
#include "support/PolicyRecords.h"
#include "support/Sanitized.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <dlfcn.h>
#include <memory>
#include <unistd.h>

namespace OruPostcardTelemetry {
namespace {

using namespace TestSupport;
using PolicyMap::matchIpAccessGroup;
using Lines = std::vector<std::string>;

const char* const modulePath = POSTCARD_MODULE_DIR "/OruPostcardTelemetryPolicyAclHelper.so";
const char* const helperType = "OruPostcardTelemetry::OruPostcardPolicyAclHelper";

using Factory = PolicyMap::PolicyMapAclHelper* (*)(PostcardTelemetryRulesClientSmConfig*,
                                                   const PostcardTelemetry::HwCapability*);

class Module : public testing::Test {
 protected:
   static void SetUpTestSuite() {
      // Bound at once, so that a symbol that nobody has is found here and not in a switch.
      handle = ::dlopen(modulePath, RTLD_NOW | RTLD_LOCAL);
      ASSERT_NE(handle, nullptr) << ::dlerror();
      factory = reinterpret_cast<Factory>(::dlsym(handle, "oruPostcardPolicyAclHelperFactory"));
      ASSERT_NE(factory, nullptr) << ::dlerror();
   }

   Module() { capability->tcpFlagsSupportedIs(true); }

   std::any call(const char* operation, const std::vector<Kiv::NamedArgument>& arguments) {
      return Kiv::callOperation(*helper, operation, arguments);
   }
   // The message of a call that is refused.
   std::string refusal(const char* operation, const std::vector<Kiv::NamedArgument>& arguments) {
      try {
         call(operation, arguments);
      } catch (const Kiv::NameError& error) {
         return error.what();
      }
      return "not refused";
   }

   static inline void* handle = nullptr;
   static inline Factory factory = nullptr;
   Pello::Ptr<PostcardTelemetryRulesClientSmConfig> request{
         new PostcardTelemetryRulesClientSmConfig};
   Pello::Ptr<PostcardTelemetry::HwCapability> capability{new PostcardTelemetry::HwCapability};
   Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper{factory(request.get(), capability.get())};
   PolicyRecords policy{"edge"};
};

// The lines that a command writes.
Lines outputOf(const std::string& command) {
   const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe{::popen(command.c_str(), "r"),
                                                              &::pclose};
   Lines lines;
   char line[4096];
   while (pipe != nullptr && std::fgets(line, sizeof line, pipe.get()) != nullptr) {
      const std::string_view text{line};
      lines.emplace_back(text.substr(0, text.find('\n')));
   }
   return lines;
}

// The module's symbols that `nm` shows with this option, without versions, sorted.
Lines dynamicSymbols(const char* option) {
   Lines symbols;
   for (const std::string& line : outputOf(std::string{"nm -D -P "} + option + " " + modulePath)) {
      symbols.push_back(line.substr(0, line.find_first_of(" @")));
   }
   std::ranges::sort(symbols);
   return symbols;
}

TEST_F(Module, exportsExactlyTwoSymbols) {
   EXPECT_EQ(dynamicSymbols("--defined-only"),
             (Lines{"oruPostcardPlatformVersion", "oruPostcardPolicyAclHelperFactory"}));
}

// The text of the show command goes through the C library's checked function, in a build that can
// have it: optimised, without sanitizers, and not by clang, whose C++ knows no checked form of it.
TEST_F(Module, writesThroughTheCheckedFunction) {
#if defined(POSTCARD_OPTIMIZED) && !defined(__clang__)
   const bool checked = !sanitized;
#else
   const bool checked = false;
#endif
   const Lines imports = dynamicSymbols("--undefined-only");
   EXPECT_EQ(std::ranges::count(imports, "__dprintf_chk"), checked ? 1 : 0);
   EXPECT_EQ(std::ranges::count(imports, "dprintf"), checked ? 0 : 1);
}

TEST_F(Module, saysForWhichPlatformItWasBuilt) {
   const auto* version = static_cast<const U32*>(::dlsym(handle, "oruPostcardPlatformVersion"));
   ASSERT_NE(version, nullptr);
   EXPECT_EQ(*version, Kiv::platformVersion);
}

// A host and a module of one version must lay objects out alike. When a size here changes, so does
// the version: raise both, here and in `Kiv/PlatformVersion.h`.
TEST_F(Module, layoutsBelongToTheVersion) {
   ASSERT_EQ(Kiv::platformVersion, 3U);
   EXPECT_EQ(sizeof(Pello::Publisher), 8U);
   EXPECT_EQ(sizeof(Kiv::TypeData), 240U);
   EXPECT_EQ(sizeof(Kiv::AttributeData), 128U);
   EXPECT_EQ(sizeof(Kiv::OperationData), 80U);
   EXPECT_EQ(sizeof(PolicyMap::PolicyMapAclHelper), 48U);
   const struct {
      const char* type;
      std::size_t size;
   } rows[] = {{"Classification::PortField", 128},
               {"Classification::ProtoField", 168},
               {"Classification::StructuredFilter", 392},
               {"OruPostcardTelemetry::OruPostcardPolicyAclHelper", 120},
               {"OruPostcardTelemetry::PostcardTelemetryAclConfig", 176},
               {"OruPostcardTelemetry::PostcardTelemetryAclConfigStatus", 72},
               {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig", 48},
               {"OruPostcardTelemetry::PostcardTelemetryRulesClientSmStatus", 40},
               {"OruPostcardTelemetry::RuleAction", 32},
               {"OruPostcardTelemetry::RuleConfig", 40},
               {"OruPostcardTelemetry::RuleFilter", 80},
               {"PolicyMap::ClassMapSmCommonData", 72},
               {"PolicyMap::PolicyMapSmCommonData", 240},
               {"PolicyMap::RulePriorityData", 112},
               {"PostcardTelemetry::HwCapability", 16},
               {"TrafficPolicy::TrafficPolicyClassMapSmCommonData", 120}};
   for (const auto& [type, size] : rows) {
      const Kiv::TypeData* data = Kiv::findType(type);
      ASSERT_NE(data, nullptr) << type;
      EXPECT_EQ(data->size, size) << type;
   }
}

TEST_F(Module, factoryMakesAHelperThatHoldsTheRecords) {
   EXPECT_EQ(helper->references(), 1U);
   EXPECT_EQ(request->references(), 2U);
   EXPECT_EQ(capability->references(), 2U);
   helper = nullptr;
   EXPECT_EQ(request->references(), 1U);
   EXPECT_EQ(capability->references(), 1U);
}

TEST_F(Module, factoryTakesNullRecords) {
   const Pello::Ptr<PolicyMap::PolicyMapAclHelper> bare{factory(nullptr, nullptr)};
   bare->hwInit();
   EXPECT_TRUE(bare->asyncOperations());
   EXPECT_FALSE(bare->updateActionSupported());
}

TEST_F(Module, itsTypeIsRegistered) {
   EXPECT_EQ(helper->typeData().name, helperType);
   EXPECT_EQ(Kiv::findType(helperType), &helper->typeData());
}

template <class T>
void expectOneDescriptor() {
   EXPECT_EQ(Kiv::findType(T::kivTypeName), &T::kivTypeData()) << T::kivTypeName;
}

TEST_F(Module, hostAndModuleMeanTheSameTypes) {
   expectOneDescriptor<PostcardTelemetryPolicyKey>();
   expectOneDescriptor<DscpDataAndMask>();
   expectOneDescriptor<L4Port>();
   expectOneDescriptor<L4PortDataMask>();
   expectOneDescriptor<Protocol>();
   expectOneDescriptor<RuleFilter>();
   expectOneDescriptor<RuleAction>();
   expectOneDescriptor<RuleConfig>();
   expectOneDescriptor<PostcardTelemetryAclConfigStatus>();
   expectOneDescriptor<PostcardTelemetryAclConfig>();
   expectOneDescriptor<PostcardTelemetryRulesClientSmConfig>();
   expectOneDescriptor<PostcardTelemetryRulesClientSmStatus>();
}

// The classes of all other types, and with them their descriptors, are those of the host's
// libraries.
TEST_F(Module, bringsNoDescriptorButItsHelpers) {
   Lines descriptors;
   for (const std::string& line : outputOf(std::string{"nm -C --defined-only "} + modulePath)) {
      // Of classes, and of enumerations, whose function takes the type as an argument.
      const std::size_t function = line.find("kivTypeData(");
      if (function != std::string::npos && line.ends_with(')') &&
          line.find("guard variable") == std::string::npos) {
         descriptors.push_back(line.substr(line.rfind(' ', function) + 1));
      }
   }
   EXPECT_EQ(descriptors, Lines{"OruPostcardTelemetry::OruPostcardPolicyAclHelper::kivTypeData()"});
   const Lines imported = outputOf(std::string{"nm -DC --undefined-only "} + modulePath);
   for (const char* type : {"RuleConfig", "RuleFilter", "RuleAction"}) {
      EXPECT_TRUE(std::ranges::any_of(imported, [&](const std::string& line) {
         return line.ends_with(std::string{"vtable for OruPostcardTelemetry::"} + type);
      })) << type;
   }
}

// Objects that the module has made, seen from the host.
TEST_F(Module, objectsOfTheModuleHaveTheHostsTypes) {
   policy.intf4("Ethernet1").classMap("web").sample().filter4().sampleMatch(1, 1);
   EXPECT_EQ(helper->createPolicy(policy.data(), matchIpAccessGroup()), "");
   EXPECT_EQ(helper->commitPolicy(policy.data(), matchIpAccessGroup()), "");
   const auto config = request->aclConfig();
   ASSERT_NE(config, nullptr);
   EXPECT_EQ(&config->typeData(), &PostcardTelemetryAclConfig::kivTypeData());
   EXPECT_EQ(&config->aclConfigStatus()->typeData(),
             &PostcardTelemetryAclConfigStatus::kivTypeData());
   const auto rule = config->ruleByIndex(0);
   ASSERT_NE(rule, nullptr);
   EXPECT_EQ(&rule->typeData(), &RuleConfig::kivTypeData());
   EXPECT_EQ(&rule->ruleFilter()->typeData(), &RuleFilter::kivTypeData());
   EXPECT_EQ(&rule->ruleAction()->typeData(), &RuleAction::kivTypeData());
   EXPECT_NE(dynamic_cast<const RuleConfig*>(static_cast<const Kiv::Entity*>(rule.get())), nullptr);
   EXPECT_EQ(&helper->asyncOperationResult().kivTypeData(),
             &PolicyMap::AsyncOperationResult::kivTypeData());
}

TEST_F(Module, exceptionsOfTheModuleAreCaughtByTheHost) {
   const auto config = std::any{
         Pello::Ptr<PostcardTelemetryAclConfig>{new PostcardTelemetryAclConfig{"edge-ipv4"}}};
   const Pello::Ptr<RuleConfig> rule{new RuleConfig{"web"}};
   rule->ruleFilterIs();
   rule->ruleActionIs();
   const Pello::Ptr<const Classification::StructuredFilter> filter{
         new Classification::StructuredFilter{0}};
   EXPECT_THROW(call("addRulesProtoField", {{"aclConfig", config},
                                            {"ruleConfig", rule},
                                            {"sf", filter},
                                            {"proto", U8{0}},
                                            {"nextRuleIndex", U32{0}}}),
                Kiv::RangeError);
}

// ---------------------------------------------------------------- operations by name

TEST_F(Module, namesItsTwelveOperations) {
   Lines names;
   for (const auto& operation : helper->typeData().operations) {
      std::string text{operation.name};
      for (const auto& parameter : operation.parameters) {
         text.append(" ").append(parameter.name);
      }
      names.push_back(text);
   }
   EXPECT_EQ(
         names,
         (Lines{"updateRuleAction classData ruleConfig", "ignoreSampleData classData",
                "addRulesL4PortDataMask protoField ruleConfig aclConfig sportDataMaskValid "
                "sportDataMask dportDataMaskValid dportDataMask tcpFlagAvailable nextRuleIndex",
                "addRulesProtoField aclConfig ruleConfig sf proto nextRuleIndex",
                "addRules key policyData classMapData aclConfig nextRuleIndex",
                "createAclConfig policyData matchOption", "deleteAclConfig policyData matchOption",
                "getAclConfigKey policyData matchOption",
                "updateRulesInAclConfig policyData matchOption",
                "updateIntfInAclConfig aclConfig intf remove",
                "updatePolicyStatus policyStatus statusString", "showPostcardAcl socket"}));
}

TEST_F(Module, aKeyIsAskedForByName) {
   const Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> readOnly = policy.data();
   for (const auto& data : {std::any{readOnly}, std::any{policy.changeable()}}) {
      const std::any key =
            call("getAclConfigKey",
                 {{"matchOption", PolicyMap::matchIpv6AccessGroup()}, {"policyData", data}});
      EXPECT_EQ(std::any_cast<Pello::String>(key), "edge-ipv6");
   }
}

TEST_F(Module, aStatusIsRecordedByName) {
   policy.intf4("Ethernet1").classMap("web").filter4();
   helper->createPolicy(policy.data(), matchIpAccessGroup());
   helper->commitPolicy(policy.data(), matchIpAccessGroup());
   const std::any failed = call("updatePolicyStatus", {{"policyStatus", statusFailure},
                                                       {"statusString", Pello::String{"full"}}});
   EXPECT_EQ(std::any_cast<Kiv::String>(failed), "full");
   EXPECT_FALSE(request->aclConfig()->programmedPolicy());
   call("updatePolicyStatus",
        {{"policyStatus", statusSuccess}, {"statusString", Pello::String{"ok"}}});
   EXPECT_TRUE(request->aclConfig()->programmedPolicy());
   EXPECT_EQ(request->aclConfig()->aclConfigStatus()->statusInOrder(1), "ok");
}

TEST_F(Module, isShownByName) {
   call("createAclConfig",
        {{"policyData", policy.changeable()}, {"matchOption", matchIpAccessGroup()}});
   int ends[2];
   ASSERT_EQ(::pipe(ends), 0);
   const std::any result = call("showPostcardAcl", {{"socket", static_cast<U32>(ends[1])}});
   EXPECT_FALSE(result.has_value());
   char text[4096];
   const auto size = static_cast<std::size_t>(::read(ends[0], text, sizeof text));
   ::close(ends[0]);
   ::close(ends[1]);
   EXPECT_NE((std::string_view{text, size}.find("Policy Name:           edge-ipv4\n")),
             std::string_view::npos);
}

TEST_F(Module, anAclIsMadeAndDeletedByName) {
   const std::any data = policy.changeable();
   const std::any option = matchIpAccessGroup();
   const auto made = std::any_cast<Pello::Ptr<PostcardTelemetryAclConfig>>(
         call("createAclConfig", {{"policyData", data}, {"matchOption", option}}));
   EXPECT_EQ(made->aclConfigKey(), "edge-ipv4");
   EXPECT_EQ(made->references(), 2U);
   call("updateIntfInAclConfig",
        {{"aclConfig", made}, {"intf", Orlix::IntfId{"Ethernet1"}}, {"remove", false}});
   EXPECT_TRUE(made->policyIntf(Orlix::IntfId{"Ethernet1"}));
   call("updateIntfInAclConfig",
        {{"aclConfig", made}, {"intf", Orlix::IntfId{"Ethernet1"}}, {"remove", true}});
   EXPECT_EQ(made->policyIntfs(), 0U);
   call("deleteAclConfig", {{"policyData", data}, {"matchOption", option}});
   EXPECT_EQ(made->references(), 1U);
}

TEST_F(Module, rulesAreMadeByName) {
   ClassRecords web = policy.classMap("web").sample().setDscp(46);
   web.filter4().sampleMatch(1, 3);
   const std::any data = policy.changeable();
   const std::any option = matchIpAccessGroup();
   const auto config = std::any_cast<Pello::Ptr<PostcardTelemetryAclConfig>>(
         call("createAclConfig", {{"policyData", data}, {"matchOption", option}}));
   const std::any status =
         call("updateRulesInAclConfig", {{"policyData", data}, {"matchOption", option}});
   EXPECT_EQ(std::any_cast<Kiv::String>(status), "");
   const auto rules = static_cast<U32>(config->ruleByIndexs());
   EXPECT_EQ(rules, 2U) << "TCP and UDP";
   // The same class once more, behind the others.
   const std::any next = call("addRules", {{"key", web.key(matchIpAccessGroup())},
                                           {"policyData", data},
                                           {"classMapData", web.data()},
                                           {"aclConfig", config},
                                           {"nextRuleIndex", rules}});
   EXPECT_EQ(std::any_cast<U32>(next), 2 * rules);
   EXPECT_EQ(config->ruleByIndexs(), 2 * rules);
   EXPECT_EQ(config->ruleByNames(), rules);
}

TEST_F(Module, aRuleGetsItsActionsAndPortsByName) {
   const Pello::Ptr<PolicyMap::ClassMapSmCommonData> sampled =
         policy.classMap("web").sample().setDscp(46).data();
   const Pello::Ptr<PolicyMap::ClassMapSmCommonData> other =
         policy.classMap("dns").sampleAll().data();
   EXPECT_FALSE(std::any_cast<bool>(call("ignoreSampleData", {{"classData", sampled}})));
   EXPECT_TRUE(std::any_cast<bool>(call("ignoreSampleData", {{"classData", other}})));
   const Pello::Ptr<RuleConfig> rule{new RuleConfig{"web"}};
   rule->ruleFilterIs();
   rule->ruleActionIs();
   call("updateRuleAction", {{"classData", sampled}, {"ruleConfig", rule}});
   EXPECT_TRUE(rule->ruleAction()->action(RuleAction::setDscpAction));
   const Pello::Ptr<PostcardTelemetryAclConfig> config{new PostcardTelemetryAclConfig{"edge-ipv4"}};
   const Pello::Ptr<const Classification::ProtoField> tcp{new Classification::ProtoField{{6, 6}}};
   const L4PortDataMask ports{80, 65535};
   const std::any next = call("addRulesL4PortDataMask", {{"protoField", tcp},
                                                         {"ruleConfig", rule},
                                                         {"aclConfig", config},
                                                         {"sportDataMaskValid", true},
                                                         {"sportDataMask", ports},
                                                         {"dportDataMaskValid", false},
                                                         {"dportDataMask", ports},
                                                         {"tcpFlagAvailable", false},
                                                         {"nextRuleIndex", U32{5}}});
   EXPECT_EQ(std::any_cast<U32>(next), 6U);
   const auto made = config->ruleByIndex(5);
   ASSERT_NE(made, nullptr);
   EXPECT_TRUE(made->ruleFilter()->sportDataMaskValid());
   EXPECT_EQ(made->ruleFilter()->sportDataMask(), ports);
   EXPECT_FALSE(made->ruleFilter()->dportDataMaskValid());
}

TEST_F(Module, wrongCallsAreRefusedAndSayWhatWasExpected) {
   const std::any data = policy.changeable();
   const std::any option = matchIpAccessGroup();
   const struct {
      const char* operation;
      std::vector<Kiv::NamedArgument> arguments;
      const char* contains;
   } rows[] = {
         {"getAclConfigKey", {{"policyData", data}}, "matchOption"},
         {"getAclConfigKey", {}, "getAclConfigKey"},
         {"getAclConfigKey", {{"policyData", data}, {"option", option}}, "matchOption"},
         {"getAclConfigKey", {{"policyData", data}, {"matchOption", U8{0}}}, "matchOption"},
         {"getAclConfigKey", {{"policyData", request}, {"matchOption", option}}, "policyData"},
         {"getAclConfigKey",
          {{"policyData", data}, {"matchOption", option}, {"third", option}},
          "getAclConfigKey"},
         {"getAclConfigKey", {{"policyData", data}, {"policyData", data}}, "getAclConfigKey"},
         {"showPostcardAcl", {{"socket", 1}}, "U32"},
         {"showPostcardAcl", {{"fd", U32{1}}}, "socket"},
         {"updatePolicyStatus",
          {{"policyStatus", statusSuccess}, {"statusString", "ok"}},
          "Pello::String"},
         {"hwInit", {}, "hwInit"},
         {"createPolicy", {}, "createPolicy"},
         {"addRulesPortField", {}, "addRulesPortField"},
   };
   for (const auto& row : rows) {
      const std::string text = refusal(row.operation, row.arguments);
      EXPECT_NE(text.find(row.contains), std::string::npos) << text;
      EXPECT_NE(text, "not refused") << row.operation;
   }
}

// ---------------------------------------------------------------- life of the module

TEST_F(Module, unloadingForgetsItsTypeAndLoadingBringsItBack) {
   helper = nullptr;
   ASSERT_EQ(::dlclose(handle), 0);
   const bool gone = ::dlopen(modulePath, RTLD_NOW | RTLD_NOLOAD) == nullptr;
   EXPECT_EQ(Kiv::findType(helperType) == nullptr, gone);
   SetUpTestSuite();
   EXPECT_NE(Kiv::findType(helperType), nullptr);
}

} // namespace
} // namespace OruPostcardTelemetry
