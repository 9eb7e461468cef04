#include "postcard/policy/file/Reader.h"

#include "postcard/policy/FeatureToggles.h"
#include "postcard/policy/RuleCount.h"
#include "postcard/policy/file/ClassReader.h"
#include "postcard/policy/file/Definitions.h"
#include "postcard/policy/file/Fields.h"
#include "postcard/policy/file/Values.h"

#include <fmt/format.h>

#include <array>
#include <limits>
#include <utility>

namespace Postcard::Policy::File {

namespace {

// Stands for a number that is not known; every number of an expectation is less.
constexpr U64 notKnown = std::numeric_limits<U64>::max();

// Reads one policy file. All functions go on after a finding, so that the user sees all of them.
class Reader {
 public:
   Reader(const LoadOptions& options, Findings& findings)
      : options_{options},
        values_{findings},
        policyNames_{"policy name", findings},
        definitions_{options.maxNodes} {
      file_.featureToggles = options.toggles;
   }

   // Reads `hardware`, `feature-toggles` and `definitions` first, wherever they stand in the file,
   // because what a filter may hold and how many rules it makes depends on them.
   PolicyFile read(const Node& root) {
      const Fields fields{root, Shape::file, values_};
      if (const Node* hardware = fields.value("hardware")) {
         readHardware(*hardware);
      }
      if (const Node* toggles = fields.value("feature-toggles")) {
         readToggles(*toggles);
      }
      if (const Node* definitions = fields.value("definitions")) {
         definitions_.read(*definitions, values_);
      }
      if (const Node* collector = fields.value("collector")) {
         readCollector(*collector);
      }
      if (const Node* policies = fields.value("policies")) {
         readPolicies(*policies);
      }
      if (const Node* expect = fields.value("expect")) {
         checkExpectations(*expect);
      }
      return std::move(file_);
   }

 private:
   Findings& findings() const { return values_.findings(); }

   void readHardware(const Node& node) {
      const Fields fields{node, Shape::hardware, values_};
      if (const Node* flags = fields.value("tcp-flags")) {
         file_.hardware.tcpFlags =
               values_.boolean(*flags, "tcp-flags").value_or(file_.hardware.tcpFlags);
      }
   }

   // Not through `Fields`, because the keys are those of `options_.toggles` and stand in no table.
   void readToggles(const Node& node) {
      if (node.kind != NodeKind::mapping) {
         values_.mismatch(node, "a mapping", "feature-toggles");
         return;
      }
      forEachField(node, [this](const Node& key, const Node& value) {
         if (options_.toggles.find(key.text) == options_.toggles.end()) {
            findings().add(key.location, FindingCode::unknownKey,
                           unknownWord("toggle", key.text, toggleNames()));
         } else if (const auto on = values_.boolean(value, key.text)) {
            file_.featureToggles.insert_or_assign(std::string{key.text}, *on);
         }
      });
   }

   void readCollector(const Node& node) {
      const Fields fields{node, Shape::collector, values_};
      const Node* address = fields.value("address");
      const auto host = address == nullptr ? std::nullopt : values_.address(*address, "address");
      const Node* port = fields.value("port");
      const auto number = port == nullptr ? std::optional<U64>{collectorPort}
                                          : values_.number(*port, "port", 1, 65535);
      if (host && number) {
         file_.collector = Collector{*host, static_cast<U16>(*number), address->location};
      }
   }

   std::vector<std::string_view> toggleNames() const {
      std::vector<std::string_view> names;
      for (const auto& [name, on] : options_.toggles) {
         names.push_back(name);
      }
      return names;
   }

   // A toggle that is missing in `LoadOptions` is on, because that is its default.
   bool isOn(std::string_view toggle) const {
      const auto known = file_.featureToggles.find(toggle);
      return known == file_.featureToggles.end() || known->second;
   }

   void readPolicies(const Node& node) {
      if (!values_.isList(node, "policies")) {
         return;
      }
      file_.policiesLocation = node.location;
      ClassReader classes{{file_.hardware.tcpFlags, isOn(tcpControlToggle), options_.maxRules},
                          definitions_,
                          values_};
      file_.policies.reserve(node.childCount());
      for (const Node& policy : node.children()) {
         readPolicy(policy, classes);
      }
   }

   // Policies and classes are counted even when something is wrong, so that the findings of a file
   // that was cut in the middle of a class say so. The rules of such a file would be too few.
   void checkExpectations(const Node& node) {
      const Fields fields{node, Shape::expect, values_};
      const bool whole = findings().empty();
      const bool listed = file_.policiesLocation.line != 0;
      U64 classes = 0;
      for (const Policy& policy : file_.policies) {
         classes += policy.classes.size();
      }
      checkExpectation(fields, "policies", listed ? file_.policies.size() : notKnown);
      checkExpectation(fields, "classes", listed ? classes : notKnown);
      checkExpectation(fields, "rules", whole ? ruleCount(file_) : notKnown);
   }

   void checkExpectation(const Fields& fields, std::string_view key, U64 found) {
      const Node* node = fields.value(key);
      if (node == nullptr) {
         return;
      }
      const auto expected = values_.number(*node, key, 0, notKnown - 1);
      if (expected && found != notKnown && found != *expected) {
         findings().add(node->location, FindingCode::unexpected,
                        fmt::format("expected {} {}, found {} (was the file cut while it was "
                                    "written?)",
                                    *expected, key, found));
      }
   }

   void readPolicy(const Node& node, ClassReader& classReader) {
      const Fields fields{node, Shape::policy, values_};
      Policy& policy = file_.policies.emplace_back();
      if (const Node* name = fields.value("name")) {
         readPolicyName(policy, *name);
      }
      if (const Node* scope = fields.value("scope")) {
         if (auto text = values_.name(*scope, "scope")) {
            policy.scope = std::move(text->text);
         }
      }
      const Node* interfaces = fields.value("interfaces");
      if (interfaces != nullptr) {
         readInterfaces(policy, *interfaces);
      }
      if (const Node* classes = fields.value("classes")) {
         classReader.read(policy.classes, *classes);
      }
      // Interfaces that are no mapping have their finding; a second one would only distract.
      if (interfaces != nullptr && interfaces->kind == NodeKind::mapping) {
         checkFamilies(policy, *interfaces);
      }
   }

   // The helper names an ACL after the policy and the family, without the scope. Two policies of
   // one name would share an ACL, and the helper ends the process when it creates an ACL twice.
   void readPolicyName(Policy& policy, const Node& node) {
      if (auto name = values_.name(node, "name")) {
         policyNames_.isFirst(name->text, name->location, inQuotes(name->text));
         policy.name = std::move(*name);
      }
   }

   void readInterfaces(Policy& policy, const Node& node) {
      const Fields fields{node, Shape::interfaces, values_};
      readInterfaceList(policy.ipv4Interfaces, fields, "ipv4");
      readInterfaceList(policy.ipv6Interfaces, fields, "ipv6");
   }

   void readInterfaceList(std::vector<Name>& target, const Fields& fields, std::string_view key) {
      const Node* list = fields.value(key);
      if (list == nullptr || !values_.isList(*list, key)) {
         return;
      }
      Once<std::string> once{"interface", findings()};
      target.reserve(list->childCount());
      for (const Node& node : list->children()) {
         auto name = values_.name(node, "interface");
         if (name && once.isFirst(name->text, name->location, inQuotes(name->text))) {
            target.push_back(std::move(*name));
         }
      }
   }

   // Checks that a family in which a class takes part has interfaces: the helper asserts that when
   // it creates the policy for the family.
   void checkFamilies(const Policy& policy, const Node& interfaces) {
      const std::array<bool, 2> attached{namesInterfaces(interfaces, Family::ipv4),
                                         namesInterfaces(interfaces, Family::ipv6)};
      if (!attached[0] && !attached[1]) {
         findings().add(interfaces.location, FindingCode::noInterfaces,
                        fmt::format("policy {} has no interfaces (expected at least one, under "
                                    "ipv4 or ipv6)",
                                    inQuotes(policy.name.text)));
         return;
      }
      for (const Class& item : policy.classes) {
         for (const Family family : {Family::ipv4, Family::ipv6}) {
            if (!attached[static_cast<std::size_t>(family)]) {
               checkTakesNoPart(policy, item, family);
            }
         }
      }
   }

   void checkTakesNoPart(const Policy& policy, const Class& item, Family family) {
      if (const Filter* filter = item.filter(family)) {
         findings().add(filter->location, FindingCode::noInterfaces,
                        fmt::format("class {} matches {}, but policy {} has no {} interfaces",
                                    inQuotes(item.name.text), familyName(family),
                                    inQuotes(policy.name.text), familyName(family)));
      }
   }

   // Whether `interfaces` has a key for `family` whose value is not an empty list. A value that is
   // wrong counts as well: it has its finding, and "has no interfaces" would be a misleading second
   // one.
   static bool namesInterfaces(const Node& interfaces, Family family) {
      bool names = false;
      forEachField(interfaces, [&](const Node& key, const Node& value) {
         const bool emptyList = value.kind == NodeKind::sequence && value.size == 1;
         names = names || (key.text == familyName(family) && !emptyList);
      });
      return names;
   }

   const LoadOptions& options_;
   Values values_;
   Once<std::string> policyNames_;
   Definitions definitions_;
   PolicyFile file_;
};

} // namespace

PolicyFile readPolicyFile(const Node& root, const LoadOptions& options, Findings& findings) {
   return Reader{options, findings}.read(root);
}

} // namespace Postcard::Policy::File
