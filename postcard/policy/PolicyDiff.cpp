#include "postcard/policy/PolicyDiff.h"

#include <algorithm>
#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Postcard::Policy {

namespace {

// Each `…Meaning` function below turns a structure into a tuple of the members that count, for
// comparing and sorting: the structures themselves also hold places in the file. The tuples refer
// to texts of the policies and must not outlive them.

// The results of `meaning` for all elements, in the order of the elements.
template <class Element, class Meaning>
auto listed(const std::vector<Element>& elements, Meaning meaning) {
   std::vector<std::decay_t<std::invoke_result_t<Meaning, const Element&>>> meanings;
   meanings.reserve(elements.size());
   for (const Element& element : elements) {
      meanings.push_back(std::invoke(meaning, element));
   }
   return meanings;
}

// The same, sorted, for lists whose order has no meaning.
template <class Element, class Meaning>
auto sorted(const std::vector<Element>& elements, Meaning meaning) {
   auto meanings = listed(elements, meaning);
   std::ranges::sort(meanings);
   return meanings;
}

// The result of `meaning` for a value that is there; else nothing.
template <class Element, class Meaning>
auto given(const std::optional<Element>& element, Meaning meaning) {
   std::optional<std::decay_t<std::invoke_result_t<Meaning, const Element&>>> result;
   if (element) {
      result = std::invoke(meaning, *element);
   }
   return result;
}

std::string_view nameMeaning(const Name& name) {
   return name.text;
}

auto rangeMeaning(const NumberRange& range) {
   return std::pair{range.low, range.high};
}

auto sampleMeaning(const SampleMatch& match) {
   return std::tuple{match.data, match.mask, match.field};
}

auto flagsMeaning(const TcpFlagMatch& match) {
   return std::pair{match.flags, match.mask};
}

auto portMeaning(const PortEntry& entry) {
   return std::tuple{sorted(entry.source, rangeMeaning), sorted(entry.destination, rangeMeaning),
                     given(entry.sourceSet, nameMeaning), given(entry.destinationSet, nameMeaning)};
}

// The port entries stay in file order, because the helper makes rules in that order.
auto protocolMeaning(const ProtocolMatch& match) {
   return std::tuple{match.low, match.high, listed(match.ports, portMeaning),
                     sorted(match.tcpFlags, flagsMeaning),
                     sorted(match.icmpTypes, &IcmpType::type)};
}

auto addressMeaning(const Filter& filter) {
   return std::tuple{sorted(filter.source, &Prefix::value),
                     sorted(filter.destination, &Prefix::value),
                     sorted(filter.sourceExcept, &Prefix::value),
                     sorted(filter.destinationExcept, &Prefix::value),
                     given(filter.sourcePrefixSet, nameMeaning),
                     given(filter.destinationPrefixSet, nameMeaning)};
}

auto filterMeaning(const Filter& filter) {
   return std::tuple{addressMeaning(filter),
                     given(filter.payloadLength, rangeMeaning),
                     given(filter.ipTtl, rangeMeaning),
                     filter.fragments,
                     filter.ipOptions,
                     filter.protocol,
                     filter.protocolNeighbor,
                     given(filter.sample, sampleMeaning),
                     sorted(filter.protocols, protocolMeaning)};
}

auto actionMeaning(const Action& action) {
   return std::pair{action.kind, action.dscp};
}

auto classMeaning(const Class& from, const Filter& filter) {
   return std::tuple{from.priority, nameMeaning(from.name), sorted(from.actions, actionMeaning),
                     filterMeaning(filter)};
}

// Sorted by priority, the first member of the tuple, which no two classes share.
auto classMeanings(const Policy& policy, Family family) {
   std::vector<std::invoke_result_t<decltype(classMeaning), const Class&, const Filter&>> meanings;
   for (const Class& from : policy.classes) {
      if (const Filter* filter = from.filter(family)) {
         meanings.push_back(classMeaning(from, *filter));
      }
   }
   std::ranges::sort(meanings);
   return meanings;
}

} // namespace

bool samePolicyClasses(const Policy& a, const Policy& b, Family family) {
   return a.scope == b.scope && classMeanings(a, family) == classMeanings(b, family);
}

} // namespace Postcard::Policy
