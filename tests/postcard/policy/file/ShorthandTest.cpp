// What makes policy files short means the same as what it stands for: aliases, definitions, `both`
// and `rate` against the text that is written out.
#include "postcard/policy/PolicyDiff.h"
#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/PolicyFileFrames.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <rapidcheck.h>
#include <string>
#include <vector>

namespace Postcard::Policy::File {
namespace {

// The tree without places.
std::string dumpOf(const Node& node) {
   if (node.isScalar()) {
      return std::string{node.text};
   }
   std::string text = node.kind == NodeKind::mapping ? "{" : "[";
   for (const Node& child : node.children()) {
      text += dumpOf(child) + " ";
   }
   return text + "]";
}

// A list of values, each of which may refer to those before it.
struct Lists {
   std::string aliased;    // with an anchor for every value, and aliases
   std::string writtenOut; // the same without
};

// Stops before the text that is written out becomes too long to be tried often.
Lists anyLists() {
   constexpr std::size_t longest = 4000;
   const auto count = *rc::gen::inRange<std::size_t>(1, 45);
   std::vector<std::string> values;
   Lists lists;
   for (std::size_t i = 0; i < count && lists.writtenOut.size() < longest; ++i) {
      std::string aliased = *rc::gen::element("x", "'y'", "[", "[", "[");
      std::string writtenOut = aliased;
      if (aliased == "[") {
         const auto children = *rc::gen::element<std::size_t>(0, 1, 1, 1, 2);
         for (std::size_t child = 0; child < children && !values.empty(); ++child) {
            const auto back = *rc::gen::element<std::size_t>(0, 0, 0, 1, 5) % values.size();
            aliased += fmt::format("*a{}, ", values.size() - 1 - back);
            writtenOut += values[values.size() - 1 - back] + ", ";
         }
         aliased += "]";
         writtenOut += "]";
      }
      lists.aliased += fmt::format("&a{} {}, ", i, aliased);
      lists.writtenOut += writtenOut + ", ";
      values.push_back(writtenOut);
   }
   return {"[" + lists.aliased + "]", "[" + lists.writtenOut + "]"};
}

// The bounds are those of the text that is written out, to the node and to the level.
RC_GTEST_PROP(PolicyFileShorthand, aliasesAreWhatTheyStandFor, ()) {
   const Lists values = anyLists();
   const auto maxNodes = *rc::gen::element<std::size_t>(10, 100, 1000);
   Findings ofAliased{1};
   Findings ofWrittenOut{1};
   const Document aliased{values.aliased, maxNodes, ofAliased};
   const Document writtenOut{values.writtenOut, maxNodes, ofWrittenOut};
   RC_CLASSIFY(aliased.root() != nullptr, "within the bounds");
   RC_ASSERT((aliased.root() == nullptr) == (writtenOut.root() == nullptr));
   if (aliased.root() != nullptr) {
      RC_ASSERT(dumpOf(*aliased.root()) == dumpOf(*writtenOut.root()));
      RC_ASSERT(ofAliased.empty());
   }
}

// A policy of one class, in two ways of writing.
struct Written {
   std::string brief;
   std::string full;
};

// One part of a filter that holds for both families, put into `both` or into each family.
void addPart(const std::string& brief, const std::string& full, std::string& both,
             Written& families) {
   if (*rc::gen::arbitrary<bool>()) {
      both += "      " + brief + "\n";
   } else {
      families.brief += "      " + brief + "\n";
   }
   families.full += "      " + full + "\n";
}

Written anyClass() {
   std::string both;
   Written parts;
   if (*rc::gen::arbitrary<bool>()) {
      const auto bits = *rc::gen::inRange(1, 17);
      addPart(fmt::format("sample: {{rate: {}}}", 1 << bits),
              fmt::format("sample: {{data: 1, mask: {}}}", (1 << bits) - 1), both, parts);
   }
   if (*rc::gen::arbitrary<bool>()) {
      addPart("ip-ttl: 1-5", "ip-ttl: 1-5", both, parts);
   }
   addPart(*rc::gen::element("protocols: [{protocol: tcp, ports: [{source: [web, 22]}]}]",
                             "protocols: [{protocol: tcp, ports: [{source: [web, 22]}]}] # again"),
           "protocols: [{protocol: tcp, ports: [{source: [80, 443-445, 22]}]}]", both, parts);
   const std::string definitions =
         "definitions: {prefixes: {v4: 10.0.0.0/8, v6: \"2001:db8::/32\"}, ports: {web: [80, "
         "443-445]}}\n";
   const std::string head = framed(Frame::klass, "");
   const std::string bothPart = both.empty() ? "" : "    both:\n" + both;
   return {definitions + head + bothPart + "    ipv4:\n      source: [v4]\n" + parts.brief +
                 "    ipv6:\n      destination: [v6]\n" + parts.brief,
           head + "    ipv4:\n      source: [10.0.0.0/8]\n" + parts.full +
                 "    ipv6:\n      destination: [\"2001:db8::/32\"]\n" + parts.full};
}

RC_GTEST_PROP(PolicyFileShorthand, meansWhatIsWrittenOut, ()) {
   const Written written = anyClass();
   const LoadResult brief = parsePolicyText(written.brief, "brief");
   const LoadResult full = parsePolicyText(written.full, "full");
   RC_LOG() << written.brief << formatFindings(brief) << formatFindings(full);
   RC_ASSERT(brief.policyFile && full.policyFile);
   for (const Family family : {Family::ipv4, Family::ipv6}) {
      RC_ASSERT(
            samePolicyClasses(brief.policyFile->policies[0], full.policyFile->policies[0], family));
   }
}

} // namespace
} // namespace Postcard::Policy::File
