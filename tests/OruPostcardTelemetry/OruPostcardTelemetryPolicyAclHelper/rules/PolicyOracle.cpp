#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/rules/PolicyOracle.h"

#include <algorithm>

namespace Oracle {

namespace {

using Match = std::pair<unsigned, unsigned>; // data, mask

// One rule; what has no value is not matched.
struct Rule {
   std::string name;
   std::string source = "0.0.0.0/0";
   std::string destination = "0.0.0.0/0";
   unsigned proto = 1;
   std::optional<Match> sport;
   std::optional<Match> dport;
   std::optional<Match> flags;
   std::optional<std::pair<Match, unsigned>> sample;
   std::set<unsigned> actions;
   unsigned dscp = 0;
   unsigned dscpMask = 0;
};
using RulePtr = std::shared_ptr<Rule>;

std::string matchText(const char* label, const std::optional<Match>& match) {
   return match ? std::string{label} + std::to_string(match->first) + "/" +
                        std::to_string(match->second)
                : "";
}

std::string textOf(const Rule& rule) {
   std::string text = rule.name + ": " + rule.source + " > " + rule.destination +
                      " proto=" + std::to_string(rule.proto);
   text += matchText(" sport=", rule.sport) + matchText(" dport=", rule.dport) +
           matchText(" flags=", rule.flags);
   if (rule.sample) {
      text += matchText(" sample=", rule.sample->first) + "/" + std::to_string(rule.sample->second);
   }
   text += " actions=";
   for (const unsigned action : rule.actions) {
      text += std::to_string(action);
   }
   return text + " dscp=" + std::to_string(rule.dscp) + "/" + std::to_string(rule.dscpMask);
}

// The largest block that is aligned to its size, tried from the whole space downwards.
std::vector<Match> blocksOf(const std::set<Range>& ranges) {
   std::vector<Match> blocks;
   for (const auto& [low, high] : ranges) {
      for (unsigned at = low; at <= high;) {
         unsigned size = 65536;
         while (at % size != 0 || at + size - 1 > high) {
            size /= 2;
         }
         blocks.emplace_back(at, 65536 - size);
         at += size;
      }
   }
   return blocks;
}

class Tables {
 public:
   Result result(const std::string& status) const {
      Result result{status, {}, {}};
      for (const auto& [index, rule] : byIndex_) {
         const auto named = byName_.find(rule->name);
         const bool same = named != byName_.end() && named->second == rule;
         result.byIndex.push_back(std::to_string(index) + (same ? " " : " (without name) ") +
                                  textOf(*rule));
      }
      for (const auto& [name, rule] : byName_) {
         result.byName.push_back(textOf(*rule));
      }
      std::ranges::sort(result.byName);
      return result;
   }

   void addEntry(const Policy& policy, const Entry& entry) {
      const std::string name = entry.className + "-" + policy.family;
      const RulePtr base = made(name);
      fill(*base, entry.filter, policy.classes.at(entry.className));
      const bool tcp = entry.filter.protocols.contains({6, 6});
      const bool udp = entry.filter.protocols.contains({17, 17});
      if (tcp || !udp) {
         addProtocol(policy, entry.filter, *base, 6, "tcp");
      }
      if (udp || !tcp) {
         addProtocol(policy, entry.filter, *base, 17, "udp");
      }
      byName_.erase(name);
   }

 private:
   RulePtr made(const std::string& name) {
      RulePtr& rule = byName_[name];
      if (rule == nullptr) {
         rule = std::make_shared<Rule>();
         rule->name = name;
      }
      return rule;
   }

   static void fill(Rule& rule, const Filter& filter, const ClassActions& actions) {
      if (!filter.source.empty()) {
         rule.source = filter.source;
      }
      if (!filter.destination.empty()) {
         rule.destination = filter.destination;
      }
      if (filter.sample && actions.types.contains(18)) {
         rule.sample.emplace(*filter.sample, filter.version);
      }
      if (actions.types.contains(18) || actions.types.contains(19)) {
         rule.actions.insert(0);
      }
      if (actions.dscp) {
         rule.actions.insert(2);
         rule.dscp = *actions.dscp;
         rule.dscpMask = 63;
      }
   }

   // The rule of that name with everything of `from` added. The DSCP value stays behind.
   RulePtr copied(const Rule& from, const std::string& name) {
      const Rule read = from;
      const RulePtr rule = made(name);
      rule->source = read.source;
      rule->destination = read.destination;
      rule->proto = read.proto;
      rule->sport = read.sport ? read.sport : rule->sport;
      rule->dport = read.dport ? read.dport : rule->dport;
      rule->flags = read.flags ? read.flags : rule->flags;
      rule->sample = read.sample ? read.sample : rule->sample;
      rule->actions.insert(read.actions.begin(), read.actions.end());
      return rule;
   }

   void addProtocol(const Policy& policy, const Filter& filter, const Rule& base, unsigned number,
                    const char* label) {
      const RulePtr copy = copied(base, base.name + "-" + label);
      copy->proto = number;
      const auto field = filter.protocols.find({number, number});
      const Proto none;
      const Proto& proto = field == filter.protocols.end() ? none : field->second;
      const bool flags = policy.tcpFlags && !proto.flags.empty();
      if (proto.ports.empty() && !flags) {
         byIndex_[next_++] = copy;
         return;
      }
      if (proto.ports.empty()) {
         addFlags(*copy, proto);
      }
      for (const PortEntry& entry : proto.ports) {
         addPorts(*copy, entry, proto, flags);
      }
      byName_.erase(copy->name);
   }

   void addPorts(const Rule& base, const PortEntry& entry, const Proto& proto, bool flags) {
      // A side without ranges takes part once, as "not matched".
      std::vector<std::optional<Match>> sides[2];
      int side = 0;
      for (const auto* ranges : {&entry.sources, &entry.destinations}) {
         for (const Match& block : blocksOf(*ranges)) {
            sides[side].emplace_back(block);
         }
         ++side;
      }
      if (sides[0].empty() && sides[1].empty()) {
         return;
      }
      for (auto& blocks : sides) {
         if (blocks.empty()) {
            blocks.emplace_back();
         }
      }
      for (const auto& source : sides[0]) {
         for (const auto& destination : sides[1]) {
            addPair(base, source, destination, proto, flags);
         }
      }
   }

   void addPair(const Rule& base, const std::optional<Match>& source,
                const std::optional<Match>& destination, const Proto& proto, bool flags) {
      const auto part = [](const char* letter, const std::optional<Match>& match) {
         return match ? std::string{"-"} + letter + "portData-" + std::to_string(match->first) +
                              "-" + letter + "portMask-" + std::to_string(match->second)
                      : "";
      };
      const RulePtr rule = copied(base, base.name + part("S", source) + part("D", destination));
      rule->sport = source ? source : rule->sport;
      rule->dport = destination ? destination : rule->dport;
      byIndex_[next_] = rule;
      if (flags) {
         addFlags(*rule, proto);
      } else {
         ++next_;
      }
   }

   void addFlags(const Rule& base, const Proto& proto) {
      const std::string name = base.name;
      const Rule read = base;
      for (const auto& [flag, mask] : proto.flags) {
         const RulePtr rule = copied(read, name + "-tcpFlag-" + std::to_string(flag) +
                                                 "-tcpFlagMask-" + std::to_string(mask));
         rule->flags = {flag, mask};
         byIndex_[next_++] = rule;
      }
      byName_.erase(name);
   }

   std::map<std::string, RulePtr> byName_;
   std::map<unsigned, RulePtr> byIndex_;
   unsigned next_ = 0;
};

std::string refusal(const Policy& policy, const Entry& entry) {
   std::string found;
   if (entry.filter.fragments) {
      found += " 'Fragments',";
   }
   for (const auto& [range, proto] : entry.filter.protocols) {
      std::string faults;
      if (range != Range{6, 6} && range != Range{17, 17}) {
         faults += " 'IP Protocol',";
      }
      if (policy.tcpFlags && range != Range{6, 6} && !proto.flags.empty()) {
         faults += " 'TCP Flag',";
      }
      found += faults;
      if (!faults.empty()) {
         break;
      }
   }
   if (!found.empty()) {
      return "Unsupported match(es):" + found + " in configuration";
   }
   const auto& types = policy.classes.at(entry.className).types;
   return types.contains(3) ? "Unsupported action(s): 'police', in configuration" : "";
}

} // namespace

Result expectedRules(const Policy& policy) {
   Tables tables;
   if (policy.entries.empty()) {
      return tables.result("No rules configured in policy  p");
   }
   for (const Entry& entry : policy.entries) {
      const std::string error = refusal(policy, entry);
      if (!error.empty()) {
         return tables.result(error);
      }
      tables.addEntry(policy, entry);
   }
   return tables.result("");
}

} // namespace Oracle
