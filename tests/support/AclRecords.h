// `AclRecords`: an ACL built rule by rule, without a helper. Relies on the data model.
#pragma once

#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclTypes/PostcardTelemetryAclConfig.h"

#include <string>
#include <string_view>

namespace RulesClientTest {

using OruPostcardTelemetry::PostcardTelemetryAclConfig;
using OruPostcardTelemetry::RuleAction;
using OruPostcardTelemetry::RuleConfig;

class AclRecords {
 public:
   explicit AclRecords(std::string_view key, Acl::AclType type = Acl::AclType::ipv4)
      : acl_{new PostcardTelemetryAclConfig{Pello::String{key}}} {
      acl_->aclTypeIs(type);
   }

   // A rule behind all others, with filter and action; it samples.
   Pello::Ptr<RuleConfig> rule(U8 protocol = 6) {
      const auto next = static_cast<U32>(acl_->ruleByIndexs());
      const auto rule = acl_->ruleByNameIs(Pello::String{"r" + std::to_string(next)});
      rule->ruleFilterIs()->protoIs(OruPostcardTelemetry::Protocol{protocol});
      rule->ruleActionIs()->actionIs(RuleAction::sampleAction);
      acl_->ruleByIndexIs(next, rule);
      return rule;
   }
   AclRecords& rules(std::size_t count) {
      for (std::size_t i = 0; i < count; ++i) {
         rule();
      }
      return *this;
   }
   AclRecords& intf(std::string_view name) {
      acl_->policyIntfIs(Orlix::IntfId{name});
      return *this;
   }
   const Pello::Ptr<PostcardTelemetryAclConfig>& data() const { return acl_; }
   const PostcardTelemetryAclConfig& operator*() const { return *acl_; }

 private:
   Pello::Ptr<PostcardTelemetryAclConfig> acl_;
};

} // namespace RulesClientTest
