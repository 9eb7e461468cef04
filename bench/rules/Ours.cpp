// Ours: the helper module, opened with the run-time loader and driven through the operations that a
// switch's agent calls. The rules are read where a rules client reads them, in the ACL
// configuration of a posted request.
#include "Classification/StructuredFilter.h"
#include "Contender.h"
#include "Kiv/PlatformVersion.h"
#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/RulesClientSm.h"
#include "PolicyMap/PolicyMapAclHelper.h"
#include "PostcardTelemetry/HwCapability.h"
#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"

#include <dlfcn.h>
#include <stdexcept>

namespace Bench {

namespace {

using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::PostcardTelemetryRulesClientSmConfig;

constexpr auto matchOption = PolicyMap::matchIpAccessGroup();

using HelperFactory = PolicyMap::PolicyMapAclHelper*(PostcardTelemetryRulesClientSmConfig*,
                                                     const PostcardTelemetry::HwCapability*);

void* symbolOf(void* module, const char* name) {
   void* symbol = ::dlsym(module, name);
   if (symbol == nullptr) {
      throw std::runtime_error{::dlerror()};
   }
   return symbol;
}

// The module stays open: its code may run until the process ends.
HelperFactory* loadFactory() {
   const char* path = POSTCARD_MODULE_DIR "/OruPostcardTelemetryPolicyAclHelper.so";
   void* module = ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
   if (module == nullptr) {
      throw std::runtime_error{::dlerror()};
   }
   if (*static_cast<const U32*>(symbolOf(module, "oruPostcardPlatformVersion")) !=
       Kiv::platformVersion) {
      throw std::runtime_error{"the helper module was built for another platform"};
   }
   return reinterpret_cast<HelperFactory*>(symbolOf(module, "oruPostcardPolicyAclHelperFactory"));
}

void addProtocol(Classification::StructuredFilter& filter, const ClassInput& input, U8 protocol) {
   const auto port =
         filter.protoFieldIs(Classification::NumericalRange{protocol, protocol})->portIs(0);
   for (const PortRange& range : input.sources) {
      port->sportIs(Classification::NumericalRange{range.low, range.high});
   }
   for (const PortRange& range : input.destinations) {
      port->dportIs(Classification::NumericalRange{range.low, range.high});
   }
}

void addClass(PolicyMap::PolicyMapSmCommonData& policy, const ClassInput& input, U32 priority) {
   const Pello::Ptr<TrafficPolicy::TrafficPolicyClassMapSmCommonData> classMap{
         new TrafficPolicy::TrafficPolicyClassMapSmCommonData{input.name}};
   classMap->actionIs(new PolicyMap::Action{PolicyMap::ActionType::sample});
   const auto filter = classMap->aclStructuredFilterIs(input.name)->filterIs(0);
   filter->sourceIs(Orlix::IpGenPrefix{input.source});
   filter->destinationIs(Orlix::IpGenPrefix{input.destination});
   for (const U8 protocol : input.protocols) {
      addProtocol(*filter, input, protocol);
   }
   policy.classDataIs(classMap);
   policy.rulePriorityIs(Acl::AclType::ipv4)
         ->entryIs(PolicyMap::RulePriority{priority},
                   PolicyMap::AclRuleKey{policy.key(), input.name, input.name, 10, matchOption});
}

Pello::Ptr<PolicyMap::PolicyMapSmCommonData> policyOf(const Workload& workload) {
   const Pello::Ptr<PolicyMap::PolicyMapSmCommonData> policy{
         new PolicyMap::PolicyMapSmCommonData{PolicyMap::PolicyMapSmKey{workload.label, ""}}};
   policy->intf4Is(Orlix::IntfId{"Ethernet1"});
   U32 priority = 0;
   for (const ClassInput& input : workload.classes) {
      addClass(*policy, input, ++priority);
   }
   return policy;
}

void requireSuccess(const Kiv::String& status) {
   if (!status.empty()) {
      throw std::runtime_error{status.str()};
   }
}

class Ours : public Contender {
 public:
   explicit Ours(const Workload& workload) : policy_{policyOf(workload)} {
      hwCapability_->tcpFlagsSupportedIs(true);
      helper_ = loadFactory()(clientConfig_.get(), hwCapability_.get());
      helper_->hwInit();
   }

   void create() override { requireSuccess(helper_->createPolicy(policy_, matchOption)); }
   void remove() override {
      requireSuccess(helper_->deletePolicy(policy_, matchOption));
      clientConfig_->aclConfigIs(nullptr); // the latest request still holds the rules
   }

   std::size_t rules() override { return aclConfig().ruleByIndexs(); }
   std::size_t names() override { return aclConfig().ruleByNames(); }
   ShownRule rule(U32 index) override;

 private:
   const PostcardTelemetryAclConfig& aclConfig() {
      if (clientConfig_->aclConfig() == nullptr) {
         requireSuccess(helper_->commitPolicy(policy_, matchOption));
      }
      return *clientConfig_->aclConfig();
   }

   Pello::Ptr<PolicyMap::PolicyMapSmCommonData> policy_;
   Pello::Ptr<PostcardTelemetryRulesClientSmConfig> clientConfig_{
         new PostcardTelemetryRulesClientSmConfig};
   Pello::Ptr<PostcardTelemetry::HwCapability> hwCapability_{new PostcardTelemetry::HwCapability};
   Pello::Ptr<PolicyMap::PolicyMapAclHelper> helper_;
};

void showFilter(const OruPostcardTelemetry::RuleFilter& filter, FlatRule& rule) {
   rule.source = filter.source();
   rule.destination = filter.destination();
   rule.protocol = filter.proto().value();
   rule.sportValid = filter.sportDataMaskValid();
   rule.sportData = filter.sportDataMask().l4PortData();
   rule.sportMask = filter.sportDataMask().l4PortMask();
   rule.dportValid = filter.dportDataMaskValid();
   rule.dportData = filter.dportDataMask().l4PortData();
   rule.dportMask = filter.dportDataMask().l4PortMask();
   rule.tcpFlag = filter.tcpFlagAndMask().tcpFlag().value();
   rule.tcpFlagMask = filter.tcpFlagAndMask().tcpFlagMask().value();
   if (const auto& sample = filter.sampleDataAndMask(); sample != nullptr) {
      rule.sampleData = sample->data();
      rule.sampleMask = sample->mask();
      rule.sampleVersion = sample->version();
   }
}

ShownRule Ours::rule(U32 index) {
   const auto found = aclConfig().ruleByIndex(index);
   if (found == nullptr) {
      throw std::runtime_error{"no rule at index " + std::to_string(index)};
   }
   FlatRule rule;
   rule.index = index;
   showFilter(*found->ruleFilter(), rule);
   for (const auto& action : found->ruleAction()->action()) {
      rule.actions = static_cast<U8>(rule.actions | 1U << static_cast<U8>(action));
   }
   rule.dscpData = static_cast<U8>(found->ruleAction()->dscpDataAndMask().dscpData().value());
   rule.dscpMask = found->ruleAction()->dscpDataAndMask().dscpMask();
   return {rule, found->name().str(), aclConfig().ruleByName(found->name()) == found};
}

} // namespace

std::unique_ptr<Contender> makeOurs(const Workload& workload) {
   return std::make_unique<Ours>(workload);
}

} // namespace Bench
