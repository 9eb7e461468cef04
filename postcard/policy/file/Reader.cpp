// The file, its policies and their classes. See `PolicyFileReader.h`.

#include "postcard/policy/file/Reader.h"

#include "FeatureToggle/FeatureToggle.h"
#include "postcard/policy/RuleCount.h"
#include "postcard/policy/file/Filter.h"
#include "postcard/policy/file/Values.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace Postcard::Policy::File {

namespace {

constexpr std::string_view tcpControlToggle = "FeaturePostcardTelemetryTcpControl";
constexpr std::uint64_t maxPriority = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t maxDscp = 63;

class Reader {
 public:
   Reader(const LoadOptions& options, Findings& findings)
      : options_(options), values_(findings), policyNames_("policy name", findings) {
      file_.featureToggles = options.toggles;
   }

   // Hardware and toggles first, wherever they stand: they decide about the filters.
   PolicyFile read(const Node& root) {
      const Fields fields(root, Shape::file, values_);
      if (const Node* hardware = fields.value("hardware")) {
         readHardware(*hardware);
      }
      if (const Node* toggles = fields.value("feature-toggles")) {
         readToggles(*toggles);
      }
      const Node* policies = fields.value("policies");
      if (policies != nullptr && values_.isList(*policies, "policies")) {
         file_.policies.reserve(policies->childCount());
         for (const Node& policy : policies->children()) {
            readPolicy(policy);
         }
      }
      return std::move(file_);
   }

 private:
   Findings& findings() const { return values_.findings(); }

   void readHardware(const Node& node) {
      const Fields fields(node, Shape::hardware, values_);
      if (const Node* flags = fields.value("tcp-flags")) {
         file_.hardware.tcpFlags =
               values_.boolean(*flags, "tcp-flags").value_or(file_.hardware.tcpFlags);
      }
   }

   void readToggles(const Node& node) {
      if (node.kind != NodeKind::mapping) {
         values_.mismatch(node, "a mapping", "feature-toggles");
         return;
      }
      forEachField(node, [this](const Node& key, const Node& value) {
         if (options_.toggles.find(key.text) == options_.toggles.end()) {
            findings().add(key.location, unknownWord("toggle", key.text, toggleNames()));
         } else if (const auto on = values_.boolean(value, key.text)) {
            file_.featureToggles.insert_or_assign(std::string(key.text), *on);
         }
      });
   }

   std::vector<std::string_view> toggleNames() const {
      std::vector<std::string_view> names;
      for (const auto& [name, on] : options_.toggles) {
         names.push_back(name);
      }
      return names;
   }

   bool isOn(std::string_view toggle) const {
      const auto known = file_.featureToggles.find(toggle);
      return known == file_.featureToggles.end() || known->second;
   }

   void readPolicy(const Node& node) {
      const Fields fields(node, Shape::policy, values_);
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
         readClasses(policy, *classes);
      }
      if (interfaces != nullptr && interfaces->kind == NodeKind::mapping) {
         checkFamilies(policy, *interfaces);
      }
   }

   // Policies of one name share their ACLs, whatever their scopes are.
   void readPolicyName(Policy& policy, const Node& node) {
      if (auto name = values_.name(node, "name")) {
         policyNames_.isFirst(name->text, name->location, inQuotes(name->text));
         policy.name = std::move(*name);
      }
   }

   void readInterfaces(Policy& policy, const Node& node) {
      const Fields fields(node, Shape::interfaces, values_);
      readInterfaceList(policy.ipv4Interfaces, fields, "ipv4");
      readInterfaceList(policy.ipv6Interfaces, fields, "ipv6");
   }

   void readInterfaceList(std::vector<Name>& target, const Fields& fields, std::string_view key) {
      const Node* list = fields.value(key);
      if (list == nullptr || !values_.isList(*list, key)) {
         return;
      }
      Once<std::string> once("interface", findings());
      target.reserve(list->childCount());
      for (const Node& node : list->children()) {
         auto name = values_.name(node, "interface");
         if (name && once.isFirst(name->text, name->location, inQuotes(name->text))) {
            target.push_back(std::move(*name));
         }
      }
   }

   // Creating the ACL of a family asserts that the policy is attached to an interface of it.
   void checkFamilies(const Policy& policy, const Node& interfaces) {
      const std::array<bool, 2> attached = {namesInterfaces(interfaces, "ipv4"),
                                            namesInterfaces(interfaces, "ipv6")};
      if (!attached[0] && !attached[1]) {
         findings().add(interfaces.location,
                        fmt::format("policy {} has no interfaces (expected at least one, under "
                                    "ipv4 or ipv6)",
                                    inQuotes(policy.name.text)));
         return;
      }
      for (const Class& item : policy.classes) {
         for (const Family family : {Family::ipv4, Family::ipv6}) {
            const Filter* filter = item.filter(family);
            if (filter != nullptr && !attached[static_cast<std::size_t>(family)]) {
               findings().add(filter->location,
                              fmt::format("class {} matches {}, but policy {} has no {} interfaces",
                                          inQuotes(item.name.text), familyName(family),
                                          inQuotes(policy.name.text), familyName(family)));
            }
         }
      }
   }

   // Whether the user means the policy to have interfaces of a family, be they well written or not:
   // a wrong list has its own finding, and needs no second one here.
   static bool namesInterfaces(const Node& interfaces, std::string_view family) {
      bool names = false;
      forEachField(interfaces, [&](const Node& key, const Node& value) {
         const bool emptyList = value.kind == NodeKind::sequence && value.size == 1;
         names = names || (key.text == family && !emptyList);
      });
      return names;
   }

   void readClasses(Policy& policy, const Node& node) {
      if (!values_.isList(node, "classes")) {
         return;
      }
      Once<std::string> names("class name", findings());
      std::map<std::uint32_t, std::size_t> priorities;
      policy.classes.reserve(node.childCount());
      for (const Node& child : node.children()) {
         const Fields fields(child, Shape::policyClass, values_);
         Class& item = policy.classes.emplace_back();
         readClass(item, fields);
         if (!item.name.text.empty()) {
            names.isFirst(item.name.text, item.name.location, inQuotes(item.name.text));
         }
         if (readPriority(policy, fields)) {
            checkPriority(policy, priorities, priorityLocation(child, fields));
         }
      }
   }

   void readClass(Class& item, const Fields& fields) {
      if (const Node* name = fields.value("name")) {
         item.name = values_.name(*name, "name").value_or(Name());
      }
      if (const Node* actions = fields.value("actions")) {
         readActions(item.actions, *actions);
      }
      readFamily(item, item.ipv4, fields, Family::ipv4);
      readFamily(item, item.ipv6, fields, Family::ipv6);
   }

   void readFamily(const Class& item, std::optional<Filter>& target, const Fields& fields,
                   Family family) {
      const std::string_view key = familyName(family);
      if (const Node* value = fields.value(key)) {
         const std::size_t before = findings().count();
         const FilterRules rules{family, isOn(tcpControlToggle)};
         target = readFilter(*fields.key(key), *value, rules, values_);
         if (findings().count() == before) {
            countRules(item, *target, family);
         }
      }
   }

   // Reported once: the classes that follow cannot bring the file below the limit again.
   void countRules(const Class& item, const Filter& filter, Family family) {
      const std::uint64_t rules = ruleCount(filter, file_.hardware.tcpFlags);
      const bool within = rules_ <= options_.maxRules;
      rules_ += rules;
      if (within && rules_ > options_.maxRules) {
         findings().add(filter.location,
                        fmt::format("class {} adds {}{} {} rules, which makes more than {} in the "
                                    "file",
                                    inQuotes(item.name.text), rules == mostRules ? "at least " : "",
                                    rules, familyName(family), options_.maxRules));
      }
   }

   // The priority of the last class. False when the file gives one that is none.
   bool readPriority(Policy& policy, const Fields& fields) {
      Class& item = policy.classes.back();
      const Node* node = fields.value("priority");
      item.priorityGiven = node != nullptr;
      item.priority = positionStep * static_cast<std::uint32_t>(policy.classes.size());
      if (node == nullptr) {
         return true;
      }
      const auto number = values_.number(*node, "priority", 0, maxPriority);
      item.priority = static_cast<std::uint32_t>(number.value_or(0));
      return number.has_value();
   }

   // Where a finding about the priority of a class belongs: to its number, else to its name.
   static Location priorityLocation(const Node& node, const Fields& fields) {
      for (const std::string_view key : {"priority", "name"}) {
         if (const Node* value = fields.value(key)) {
            return value->location;
         }
      }
      return node.location;
   }

   void checkPriority(const Policy& policy, std::map<std::uint32_t, std::size_t>& priorities,
                      Location location) {
      const Class& item = policy.classes.back();
      const auto [holder, inserted] =
            priorities.try_emplace(item.priority, policy.classes.size() - 1);
      if (inserted) {
         return;
      }
      const Class& other = policy.classes[holder->second];
      const bool counted = !item.priorityGiven || !other.priorityGiven;
      const std::string why =
            counted ? fmt::format(" (a class without one has {} times its place)", positionStep)
                    : "";
      findings().add(location,
                     fmt::format("priority {} of class {} is that of class {} too{}", item.priority,
                                 inQuotes(item.name.text), inQuotes(other.name.text), why));
   }

   void readActions(std::vector<Action>& target, const Node& node) {
      if (!values_.isList(node, "actions")) {
         return;
      }
      Once<ActionKind> once("action", findings());
      for (const Node& child : node.children()) {
         const auto action = readAction(child);
         if (action && once.isFirst(action->kind, child.location, actionName(action->kind))) {
            target.push_back(*action);
         }
      }
   }

   std::optional<Action> readAction(const Node& node) {
      if (node.kind == NodeKind::mapping) {
         return readSetDscp(node);
      }
      if (!node.isScalar() || node.isNull()) {
         values_.mismatch(node, "an action", "actions");
         return std::nullopt;
      }
      const ActionWord* row = findWord(actionWords(), node.text);
      if (row == nullptr) {
         findings().add(node.location, unknownWord("action", node.text, wordsOf(actionWords())));
         return std::nullopt;
      }
      if (row->kind == ActionKind::setDscp) {
         findings().add(node.location, "action set-dscp needs a value (expected { set-dscp: 0 } to "
                                       "{ set-dscp: 63 })");
         return std::nullopt;
      }
      return Action{row->kind, 0, node.location};
   }

   std::optional<Action> readSetDscp(const Node& node) {
      const Fields fields(node, Shape::action, values_);
      const Node* value = fields.value("set-dscp");
      const auto dscp =
            value == nullptr ? std::nullopt : values_.number(*value, "set-dscp", 0, maxDscp);
      if (!dscp) {
         return std::nullopt;
      }
      return Action{ActionKind::setDscp, static_cast<std::uint8_t>(*dscp), node.location};
   }

   const LoadOptions& options_;
   Values values_;
   Once<std::string> policyNames_;
   PolicyFile file_;
   std::uint64_t rules_ = 0; // that the classes read so far expand to
};

} // namespace

ToggleMap declaredToggles() {
   constexpr bool undeclared = true;
   const U32 state = FeatureToggle::declaredToggleState(tcpControlToggle,
                                                        "PostcardTelemetryCommon.json", undeclared);
   return {{std::string(tcpControlToggle), state != 0}};
}

PolicyFile readPolicyFile(const Node& root, const LoadOptions& options, Findings& findings) {
   return Reader(options, findings).read(root);
}

} // namespace Postcard::Policy::File
