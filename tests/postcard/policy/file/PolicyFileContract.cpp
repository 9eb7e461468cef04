// Compares every element with every other: slow, but plain enough to be trusted.

#include "postcard/policy/file/PolicyFileContract.h"

#include "Pello/VisibleCharacters.h"

namespace Postcard::Policy::File {

namespace {

template <class Element, class Same>
bool allDiffer(const std::vector<Element>& elements, Same same) {
   for (std::size_t i = 0; i < elements.size(); ++i) {
      for (std::size_t j = 0; j < i; ++j) {
         if (same(elements[i], elements[j])) {
            return false;
         }
      }
   }
   return true;
}

bool sameName(const Name& left, const Name& right) {
   return left.text == right.text;
}

// A text is as it was exactly when it held nothing to escape.
bool goodName(const std::string& text) {
   return Pello::escaped(text) == text && !text.empty() && text.size() <= 255;
}

bool goodPrefixes(const std::vector<Prefix>& prefixes, Family family) {
   const auto expected =
         family == Family::ipv4 ? Orlix::AddressFamily::ipv4 : Orlix::AddressFamily::ipv6;
   for (const Prefix& prefix : prefixes) {
      if (prefix.value.family() != expected) {
         return false;
      }
      const auto address = prefix.value.address();
      for (std::size_t bit = prefix.value.length(); bit < 8 * address.size(); ++bit) {
         if ((address[bit / 8] >> (7 - bit % 8) & 1) != 0) {
            return false;
         }
      }
   }
   return allDiffer(prefixes, [](const Prefix& left, const Prefix& right) {
      return left.value == right.value;
   });
}

bool goodRanges(const std::vector<NumberRange>& ranges) {
   for (const NumberRange& range : ranges) {
      if (range.low > range.high) {
         return false;
      }
   }
   return allDiffer(ranges, [](const NumberRange& left, const NumberRange& right) {
      return left.low == right.low && left.high == right.high;
   });
}

bool goodFlags(const std::vector<TcpFlagMatch>& matches) {
   for (const TcpFlagMatch& match : matches) {
      if (match.mask == 0 || (match.flags | match.mask) != match.mask) {
         return false;
      }
   }
   return allDiffer(matches, [](const TcpFlagMatch& left, const TcpFlagMatch& right) {
      return left.flags == right.flags && left.mask == right.mask;
   });
}

std::string brokenBy(const ProtocolMatch& match, bool tcpControl) {
   if (match.low > match.high) {
      return "protocol range";
   }
   if (match.ports.size() > 1 && !tcpControl) {
      return "port entries";
   }
   for (const PortEntry& entry : match.ports) {
      if (!goodRanges(entry.source) || !goodRanges(entry.destination)) {
         return "port range";
      }
   }
   return goodFlags(match.tcpFlags) ? "" : "TCP flags";
}

std::string brokenBy(const Filter& filter, Family family, bool tcpControl) {
   for (const auto* prefixes :
        {&filter.source, &filter.destination, &filter.sourceExcept, &filter.destinationExcept}) {
      if (!goodPrefixes(*prefixes, family)) {
         return "prefix";
      }
   }
   if (filter.sample) {
      const SampleMatch& sample = *filter.sample;
      const bool strange = family == Family::ipv6 && sample.field == SampleField::ipId;
      if (sample.mask == 0 || (sample.data | sample.mask) != sample.mask || strange) {
         return "sample";
      }
   }
   for (const ProtocolMatch& match : filter.protocols) {
      if (std::string broken = brokenBy(match, tcpControl); !broken.empty()) {
         return broken;
      }
   }
   const bool differ =
         allDiffer(filter.protocols, [](const ProtocolMatch& left, const ProtocolMatch& right) {
            return left.low == right.low && left.high == right.high;
         });
   return differ ? "" : "protocols";
}

std::string brokenBy(const Class& item, const Policy& policy, bool tcpControl) {
   if (!goodName(item.name.text)) {
      return "class name";
   }
   for (const Action& action : item.actions) {
      if (action.dscp > (action.kind == ActionKind::setDscp ? 63 : 0)) {
         return "DSCP";
      }
   }
   if (!allDiffer(item.actions, [](const Action& left, const Action& right) {
          return left.kind == right.kind;
       })) {
      return "actions";
   }
   for (const Family family : {Family::ipv4, Family::ipv6}) {
      const Filter* filter = item.filter(family);
      if (filter != nullptr && policy.interfaces(family).empty()) {
         return "family without interfaces";
      }
      std::string broken = filter == nullptr ? "" : brokenBy(*filter, family, tcpControl);
      if (!broken.empty()) {
         return broken;
      }
   }
   return "";
}

std::string brokenBy(const Policy& policy, bool tcpControl) {
   if (!goodName(policy.name.text) || (!policy.scope.empty() && !goodName(policy.scope))) {
      return "policy name";
   }
   if (policy.ipv4Interfaces.empty() && policy.ipv6Interfaces.empty()) {
      return "no interfaces";
   }
   if (!allDiffer(policy.ipv4Interfaces, sameName) || !allDiffer(policy.ipv6Interfaces, sameName)) {
      return "interfaces";
   }
   for (const Class& item : policy.classes) {
      if (std::string broken = brokenBy(item, policy, tcpControl); !broken.empty()) {
         return broken;
      }
   }
   return allDiffer(policy.classes,
                    [](const Class& left, const Class& right) {
                       return left.priority == right.priority || sameName(left.name, right.name);
                    })
                ? ""
                : "classes";
}

} // namespace

std::string brokenPromise(const PolicyFile& file) {
   const bool on = file.featureToggles.at("FeaturePostcardTelemetryTcpControl");
   for (const Policy& policy : file.policies) {
      if (std::string broken = brokenBy(policy, on); !broken.empty()) {
         return policy.name.text + ": " + broken;
      }
   }
   return allDiffer(file.policies,
                    [](const Policy& left, const Policy& right) {
                       return sameName(left.name, right.name);
                    })
                ? ""
                : "policies";
}

} // namespace Postcard::Policy::File
