// `PolicyRecords`: the records of a policy as its agent would hand them over, built line by line.
// Relies on the platform's records only; what it builds is not checked, so that a test can build
// what an agent never would.
//
//   PolicyRecords policy{"web"};
//   policy.intf4("Ethernet1").intf6("Ethernet2");
//   ClassRecords checkout = policy.classMap("checkout").sample().setDscp(46);
//   checkout.filter4().source("10.0.0.0/8").sampleMatch(0, 0xff);
//   checkout.filter6();
//   policy.classMap("rest").sampleAll().filter4().tcp().ports({}, {{80, 80}, {443, 443}}).flag(2,
//   18); helper->createPolicy(policy.data(), PolicyMap::matchIpAccessGroup());
#pragma once

#include "PolicyMap/PolicyMapSmCommonData.h"
#include "PolicyMap/SetDscpAction.h"
#include "TrafficPolicy/TrafficPolicyClassMapSmCommonData.h"

#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

namespace TestSupport {

// Closed ranges, low bound first.
using Ranges = std::vector<std::pair<U32, U32>>;

// One protocol field of a filter.
class ProtoRecords {
 public:
   explicit ProtoRecords(Pello::Ptr<Classification::ProtoField> field) : field_{std::move(field)} {}

   // Adds a port entry after the ones there are; a side without ranges matches every port.
   ProtoRecords& ports(const Ranges& sources, const Ranges& destinations) {
      const auto entry = field_->portIs(static_cast<U32>(field_->ports()));
      for (const auto& [low, high] : sources) {
         entry->sportIs(Classification::NumericalRange{low, high});
      }
      for (const auto& [low, high] : destinations) {
         entry->dportIs(Classification::NumericalRange{low, high});
      }
      return *this;
   }
   // Adds a port entry that names sets of ports; the empty name is no set.
   ProtoRecords& portSets(std::string_view source, std::string_view destination) {
      const auto entry = field_->portIs(static_cast<U32>(field_->ports()));
      entry->sportFieldSetIs(Pello::String{source});
      entry->dportFieldSetIs(Pello::String{destination});
      return *this;
   }
   ProtoRecords& flag(U8 flags, U8 mask) {
      field_->tcpFlagIs(Classification::TcpFlagAndMask{flags, mask});
      return *this;
   }
   ProtoRecords& icmpType(U8 type) {
      field_->icmpTypeIs(type);
      return *this;
   }
   const Pello::Ptr<Classification::ProtoField>& data() const { return field_; }

 private:
   Pello::Ptr<Classification::ProtoField> field_;
};

// One structured filter.
class FilterRecords {
 public:
   explicit FilterRecords(Pello::Ptr<Classification::StructuredFilter> filter)
      : filter_{std::move(filter)} {}

   FilterRecords& source(std::string_view prefix) {
      filter_->sourceIs(Orlix::IpGenPrefix{prefix});
      return *this;
   }
   FilterRecords& destination(std::string_view prefix) {
      filter_->destinationIs(Orlix::IpGenPrefix{prefix});
      return *this;
   }
   FilterRecords& sampleMatch(U32 sampleData, U32 mask, U32 version = 0) {
      const auto match = filter_->tcpUdpCheckSumOrIpIdIs(Pello::String{"match"});
      match->dataIs(sampleData);
      match->maskIs(mask);
      match->versionIs(version);
      return *this;
   }
   // The field of exactly these protocol numbers, made when there is none.
   ProtoRecords protocol(U32 low, U32 high) {
      return ProtoRecords{filter_->protoFieldIs(Classification::NumericalRange{low, high})};
   }
   ProtoRecords tcp() { return protocol(6, 6); }
   ProtoRecords udp() { return protocol(17, 17); }
   const Pello::Ptr<Classification::StructuredFilter>& data() const { return filter_; }

 private:
   Pello::Ptr<Classification::StructuredFilter> filter_;
};

// One class of a policy. Valid as long as its policy's records are.
class ClassRecords {
 public:
   using ClassMap = TrafficPolicy::TrafficPolicyClassMapSmCommonData;

   ClassRecords(Pello::Ptr<PolicyMap::PolicyMapSmCommonData> policy, Pello::Ptr<ClassMap> classMap)
      : policy_{std::move(policy)}, classMap_{std::move(classMap)} {}

   ClassRecords& sample() { return action(PolicyMap::ActionType::sample); }
   ClassRecords& sampleAll() { return action(PolicyMap::ActionType::sampleAll); }
   ClassRecords& setDscp(U8 dscp) {
      classMap_->actionIs(new PolicyMap::SetDscpAction{Orlix::DscpValue{dscp}});
      return *this;
   }
   ClassRecords& action(PolicyMap::ActionType type) {
      classMap_->actionIs(new PolicyMap::Action{type});
      return *this;
   }

   // A new rule of the class, which matches after all rules that the policy has in this family: the
   // filter 0 of the collection `aclName`. A second rule of a class in one family needs a name of
   // its own.
   FilterRecords filter4(std::string_view aclName = "acl") {
      return filter(PolicyMap::matchIpAccessGroup(), aclName);
   }
   FilterRecords filter6(std::string_view aclName = "acl") {
      return filter(PolicyMap::matchIpv6AccessGroup(), aclName);
   }
   // The same; 16 is between two priorities of those that are given in turn.
   FilterRecords filter(PolicyMap::ClassMapMatchOption option, std::string_view aclName) {
      const auto type = static_cast<Acl::AclType>(option);
      const auto rules = policy_->rulePriorityIs(type);
      return filterAt(16 * static_cast<U32>(rules->rules() + 1), option, aclName);
   }
   // The same at a priority of the test's choice.
   FilterRecords filterAt(U32 priority, PolicyMap::ClassMapMatchOption option,
                          std::string_view aclName = "acl") {
      const auto type = static_cast<Acl::AclType>(option);
      policy_->rulePriorityIs(type)->entryIs(PolicyMap::RulePriority{priority},
                                             key(option, aclName));
      return FilterRecords{collection(option, aclName)->filterIs(0)};
   }
   // Collections are kept by family too, so that a class may differ between the two.
   Pello::Ptr<TrafficPolicy::StructuredFilterColl> collection(PolicyMap::ClassMapMatchOption option,
                                                              std::string_view aclName = "acl") {
      return classMap_->aclStructuredFilterIs(key(option, aclName).aclName());
   }
   PolicyMap::AclRuleKey key(PolicyMap::ClassMapMatchOption option,
                             std::string_view aclName = "acl") const {
      const bool ipv6 = option == PolicyMap::matchIpv6AccessGroup();
      return {policy_->key(), classMap_->name(), Pello::String::join({aclName, ipv6 ? "-6" : "-4"}),
              1, option};
   }
   const Pello::Ptr<ClassMap>& data() const { return classMap_; }

 private:
   Pello::Ptr<PolicyMap::PolicyMapSmCommonData> policy_;
   Pello::Ptr<ClassMap> classMap_;
};

// A policy.
class PolicyRecords {
 public:
   explicit PolicyRecords(std::string_view name, std::string_view scope = {})
      : policy_{new PolicyMap::PolicyMapSmCommonData{
              PolicyMap::PolicyMapSmKey{Pello::String{name}, Pello::String{scope}}}} {}

   PolicyRecords& intf4(std::string_view name) {
      policy_->intf4Is(Orlix::IntfId{name});
      return *this;
   }
   PolicyRecords& intf6(std::string_view name) {
      policy_->intf6Is(Orlix::IntfId{name});
      return *this;
   }
   // The class of that name, made when there is none.
   ClassRecords classMap(std::string_view name) {
      const Pello::String key{name};
      if (!policy_->classDataHas(key)) {
         policy_->classDataIs(new ClassRecords::ClassMap{key});
      }
      return {policy_, Pello::dynamicCast<ClassRecords::ClassMap>(policy_->classData(key))};
   }
   // Takes part in the family without any rule.
   PolicyRecords& noRules(PolicyMap::ClassMapMatchOption option) {
      policy_->rulePriorityIs(static_cast<Acl::AclType>(option));
      return *this;
   }
   const Pello::Ptr<PolicyMap::PolicyMapSmCommonData>& changeable() const { return policy_; }
   Pello::Ptr<const PolicyMap::PolicyMapSmCommonData> data() const { return policy_; }

 private:
   Pello::Ptr<PolicyMap::PolicyMapSmCommonData> policy_;
};

} // namespace TestSupport
