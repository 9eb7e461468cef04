// R: the same rules with the tools of the standard library, as one would write them first: three
// counted heap objects per rule, a table by name, a table by index, no traces. The references are
// `std::shared_ptr` made by `std::make_shared`, because that is what comes to hand; a process with
// one thread counts them without atomic instructions. The set of actions is a `std::set`, which for
// one or two members is smaller and faster than a hash set.
#include "Contender.h"

#include <map>
#include <set>
#include <unordered_map>

namespace Bench {

namespace {

enum class PlainActionType : U8 { sample = 0, police = 1, setDscp = 2 };

struct PlainAction {
   U8 dscpData = 0;
   U8 dscpMask = 0;
   std::set<PlainActionType> actions;
};

struct PlainSample {
   U32 data = 0;
   U32 mask = 0;
   U32 version = 0;
};

struct PlainPort {
   bool valid = false;
   U16 data = 0;
   U16 mask = 0;
};

struct PlainFilter {
   Orlix::IpGenPrefix source;
   Orlix::IpGenPrefix destination;
   PlainPort sport;
   PlainPort dport;
   U8 protocol = 1;
   U8 tcpFlag = 0;
   U8 tcpFlagMask = 0;
   std::shared_ptr<PlainSample> sample; // null: no match
};

struct PlainRule {
   explicit PlainRule(std::string ruleName) : name{std::move(ruleName)} {}

   // Takes over filter and action; the name stays.
   void copy(const PlainRule& other) {
      if (filter == nullptr) {
         filter = std::make_shared<PlainFilter>();
      }
      *filter = *other.filter;
      if (action == nullptr) {
         action = std::make_shared<PlainAction>();
      }
      for (const PlainActionType type : other.action->actions) {
         action->actions.insert(type);
      }
   }

   std::string name;
   std::shared_ptr<PlainFilter> filter;
   std::shared_ptr<PlainAction> action;
};

using PlainRulePtr = std::shared_ptr<PlainRule>;

class Plain : public Contender {
 public:
   explicit Plain(const Workload& workload) : workload_{workload} {}

   void create() override {
      U32 nextIndex = 0;
      for (const ClassInput& input : workload_.classes) {
         nextIndex = addClass(input, nextIndex);
      }
   }
   void remove() override {
      byIndex_ = {};
      byName_ = {};
   }

   std::size_t rules() override { return byIndex_.size(); }
   std::size_t names() override { return byName_.size(); }
   ShownRule rule(U32 index) override;

 private:
   // The rule of that name, made when there is none.
   PlainRulePtr ruleIs(const std::string& name) {
      PlainRulePtr& rule = byName_[name];
      if (rule == nullptr) {
         rule = std::make_shared<PlainRule>(name);
      }
      return rule;
   }

   // The class's template is there while its rules are made, and so is each protocol's.
   U32 addClass(const ClassInput& input, U32 nextIndex) {
      const std::string name = input.name + "-ipv4";
      const PlainRulePtr rule = ruleIs(name);
      rule->filter = std::make_shared<PlainFilter>();
      rule->filter->source = Orlix::IpGenPrefix{input.source};
      rule->filter->destination = Orlix::IpGenPrefix{input.destination};
      rule->action = std::make_shared<PlainAction>();
      rule->action->actions.insert(PlainActionType::sample);
      for (const U8 protocol : input.protocols) {
         nextIndex = addProtocol(input, *rule, protocol, nextIndex);
      }
      byName_.erase(name);
      return nextIndex;
   }

   U32 addProtocol(const ClassInput& input, const PlainRule& classRule, U8 protocol,
                   U32 nextIndex) {
      const std::string name = classRule.name + (protocol == 6 ? "-tcp" : "-udp");
      const PlainRulePtr rule = ruleIs(name);
      rule->copy(classRule);
      rule->filter->protocol = protocol;
      const auto destinations = cut(input.destinations);
      for (const PortBlock& source : cut(input.sources)) {
         for (const PortBlock& destination : destinations) {
            addRule(*rule, source, destination, nextIndex);
            ++nextIndex;
         }
      }
      byName_.erase(name);
      return nextIndex;
   }

   void addRule(const PlainRule& protocolRule, const PortBlock& source,
                const PortBlock& destination, U32 index) {
      const std::string name = protocolRule.name + "-SportData-" + std::to_string(source.data) +
                               "-SportMask-" + std::to_string(source.mask) + "-DportData-" +
                               std::to_string(destination.data) + "-DportMask-" +
                               std::to_string(destination.mask);
      const PlainRulePtr rule = ruleIs(name);
      rule->copy(protocolRule);
      rule->filter->sport = {true, source.data, source.mask};
      rule->filter->dport = {true, destination.data, destination.mask};
      byIndex_[index] = rule;
   }

   const Workload& workload_;
   std::unordered_map<std::string, PlainRulePtr> byName_;
   std::map<U32, PlainRulePtr> byIndex_;
};

ShownRule Plain::rule(U32 index) {
   const PlainRulePtr& found = byIndex_.at(index);
   const PlainFilter& filter = *found->filter;
   FlatRule rule;
   rule.index = index;
   rule.source = filter.source;
   rule.destination = filter.destination;
   rule.protocol = filter.protocol;
   rule.sportValid = filter.sport.valid;
   rule.sportData = filter.sport.data;
   rule.sportMask = filter.sport.mask;
   rule.dportValid = filter.dport.valid;
   rule.dportData = filter.dport.data;
   rule.dportMask = filter.dport.mask;
   rule.tcpFlag = filter.tcpFlag;
   rule.tcpFlagMask = filter.tcpFlagMask;
   for (const PlainActionType type : found->action->actions) {
      rule.actions = static_cast<U8>(rule.actions | 1U << static_cast<U8>(type));
   }
   rule.dscpData = found->action->dscpData;
   rule.dscpMask = found->action->dscpMask;
   if (filter.sample != nullptr) {
      rule.sampleData = filter.sample->data;
      rule.sampleMask = filter.sample->mask;
      rule.sampleVersion = filter.sample->version;
   }
   return {rule, found->name, byName_.at(found->name) == found};
}

} // namespace

std::unique_ptr<Contender> makePlain(const Workload& workload) {
   return std::make_unique<Plain>(workload);
}

} // namespace Bench
