// F: what the rules cost when they are nothing but values in a row.
#include "Contender.h"

#include <vector>

namespace Bench {

namespace {

class Flat : public Contender {
 public:
   explicit Flat(const Workload& workload) : workload_{workload} {}

   void create() override {
      rules_.reserve(ruleCount(workload_));
      for (const ClassInput& input : workload_.classes) {
         addClass(input);
      }
   }
   void remove() override { rules_ = {}; }

   std::size_t rules() override { return rules_.size(); }
   std::size_t names() override { return rules_.size(); }
   ShownRule rule(U32 index) override { return {rules_[index], {}, true}; }

 private:
   void addClass(const ClassInput& input) {
      FlatRule rule;
      rule.source = Orlix::IpGenPrefix{input.source};
      rule.destination = Orlix::IpGenPrefix{input.destination};
      rule.actions = 1;
      rule.sportValid = true;
      rule.dportValid = true;
      for (const U8 protocol : input.protocols) {
         rule.protocol = protocol;
         const auto destinations = cut(input.destinations);
         for (const PortBlock& source : cut(input.sources)) {
            rule.sportData = source.data;
            rule.sportMask = source.mask;
            for (const PortBlock& destination : destinations) {
               rule.index = static_cast<U32>(rules_.size());
               rule.dportData = destination.data;
               rule.dportMask = destination.mask;
               rules_.push_back(rule);
            }
         }
      }
   }

   const Workload& workload_;
   std::vector<FlatRule> rules_;
};

} // namespace

std::unique_ptr<Contender> makeFlat(const Workload& workload) {
   return std::make_unique<Flat>(workload);
}

} // namespace Bench
