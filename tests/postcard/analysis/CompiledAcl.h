// `CompiledAcl`: a policy of plain values, compiled by the real helper; what its rules do with a
// packet, read rule by rule. Relies on the helper's rooms.
#pragma once

#include "postcard/classifier/RuleOracle.h"
#include "postcard/host/RuleNames.h"
#include "postcard/policy/Classes.h"
#include "postcard/policy/PolicyBuilder.h"
#include "support/HelperRecords.h"

#include <string>

namespace AnalysisTest {

class CompiledAcl {
 public:
   using Config = TestSupport::HelperRecords::Config;

   CompiledAcl(const Postcard::Policy::Policy& policy, Postcard::Policy::Family family,
               bool tcpFlags = true)
      : records_{tcpFlags}, policy_{policy}, family_{family} {
      message_ = records_.helper->createPolicy(buildPolicy(policy), matchOptionOf(family)).str();
      acl_ = records_.config(policy.name.text + "-" + std::string{familyName(family)});
   }

   const std::string& message() const { return message_; } // of a refusal; empty when there is none
   Config& acl() { return *acl_; }
   const Config& acl() const { return *acl_; }

   // The place of the class whose rule is the first to match, among the classes in order; their
   // number when no rule matches, or one that does not do what its class means.
   std::size_t place(const Postcard::Packets::Packet& packet) const {
      const auto classes = classesInOrder(policy_, family_);
      const auto index = RulesClientTest::firstMatch(*acl_, packet);
      for (std::size_t place = 0; index && place < classes.size(); ++place) {
         const auto rule = acl_->ruleByIndex(*index);
         if (Postcard::Host::classOfRule(rule->name().view(), family_) ==
             classes[place]->name.text) {
            const bool sampled =
                  rule->ruleAction()->action(OruPostcardTelemetry::RuleAction::sampleAction);
            return sampled == samples(*classes[place]) ? place : classes.size() + 1;
         }
      }
      return index ? classes.size() + 1 : classes.size();
   }

 private:
   TestSupport::HelperRecords records_;
   const Postcard::Policy::Policy& policy_; // outlives this object
   Postcard::Policy::Family family_;
   std::string message_;
   Pello::Ptr<Config> acl_;
};

} // namespace AnalysisTest
