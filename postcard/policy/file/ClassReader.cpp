#include "postcard/policy/file/ClassReader.h"

#include "postcard/policy/RuleCount.h"
#include "postcard/policy/file/Filter.h"

#include <fmt/format.h>

#include <limits>
#include <utility>

namespace Postcard::Policy::File {

namespace {

constexpr U64 maxPriority = std::numeric_limits<U32>::max();
constexpr U64 maxDscp = 63; // six bits (RFC 2474)

// ---- Actions ----

std::optional<Action> readSetDscp(const Node& node, const Values& values) {
   const Fields fields{node, Shape::action, values};
   const Node* value = fields.value("set-dscp");
   const auto dscp =
         value == nullptr ? std::nullopt : values.number(*value, "set-dscp", 0, maxDscp);
   if (!dscp) {
      return std::nullopt;
   }
   return Action{ActionKind::setDscp, static_cast<U8>(*dscp), node.location};
}

// An action with a value is a mapping of one key, and `set-dscp` is the only such action; all
// others are bare words.
std::optional<Action> readAction(const Node& node, const Values& values) {
   if (node.kind == NodeKind::mapping) {
      return readSetDscp(node, values);
   }
   if (!node.isScalar() || node.isNull()) {
      values.mismatch(node, "an action", "actions");
      return std::nullopt;
   }
   const ActionWord* row = findWord(actionWords(), node.text);
   if (row == nullptr) {
      values.findings().add(node.location, FindingCode::unknownWord,
                            unknownWord("action", node.text, wordsOf(actionWords())));
      return std::nullopt;
   }
   if (row->kind == ActionKind::setDscp) {
      values.findings().add(node.location, FindingCode::wrongValue,
                            "action set-dscp needs a value (expected { set-dscp: 0 } to "
                            "{ set-dscp: 63 })");
      return std::nullopt;
   }
   return Action{row->kind, 0, node.location};
}

void readActions(std::vector<Action>& target, const Fields& fields, const Values& values) {
   Once<ActionKind> once{"action", values.findings()};
   readList(target, fields, "actions", values, [&](const Node& node) {
      auto action = readAction(node, values);
      const bool good =
            action && once.isFirst(action->kind, node.location, actionName(action->kind));
      return good ? action : std::nullopt;
   });
}

// ---- Filters ----

// The key of `mapping` that is called `name`, or null.
const Node* keyIn(const Node& mapping, std::string_view name) {
   const Node* found = nullptr;
   forEachField(mapping, [&](const Node& key, const Node& /*value*/) {
      if (found == nullptr && key.text == name) {
         found = &key;
      }
   });
   return found;
}

// ---- Priorities ----

// The place for a finding about the priority of a class: its `priority` key; for a priority that
// follows from the position, the name of the class; else the class.
Location priorityLocation(const Node& node, const Fields& fields) {
   for (const std::string_view key : {"priority", "name"}) {
      if (const Node* value = fields.value(key)) {
         return value->location;
      }
   }
   return node.location;
}

} // namespace

void ClassReader::read(std::vector<Class>& target, const Node& node) {
   if (!values_.isList(node, "classes")) {
      return;
   }
   Once<std::string> names{"class name", findings()};
   PlaceOfPriority places;
   target.reserve(node.childCount());
   for (const Node& child : node.children()) {
      const Fields fields{child, Shape::policyClass, values_};
      Class& item = target.emplace_back();
      readClass(item, fields);
      if (!item.name.text.empty()) { // a name that is missing or wrong has its finding already
         names.isFirst(item.name.text, item.name.location, inQuotes(item.name.text));
      }
      if (readPriority(target, fields)) {
         checkPriority(target, places, priorityLocation(child, fields));
      }
   }
}

void ClassReader::readClass(Class& item, const Fields& fields) {
   if (const Node* name = fields.value("name")) {
      item.name = values_.name(*name, "name").value_or(Name{});
   }
   readActions(item.actions, fields, values_);
   Both both;
   if (const Node* value = fields.value("both")) {
      const std::size_t before = findings().count();
      both.value = value;
      both.filter = readFilterForBoth(*fields.key("both"), *value, surroundings_.severalPortEntries,
                                      definitions_, values_);
      both.good = findings().count() == before;
   }
   readFamily(item, item.ipv4, fields, both, Family::ipv4);
   readFamily(item, item.ipv6, fields, both, Family::ipv6);
}

void ClassReader::readFamily(const Class& item, std::optional<Filter>& target, const Fields& fields,
                             const Both& both, Family family) {
   const std::size_t before = findings().count();
   const std::string_view key = familyName(family);
   const Node* value = fields.value(key);
   target = both.filter;
   if (value != nullptr) {
      if (!target) {
         target.emplace();
      } else {
         checkNotInBoth(*value, *both.value, family);
      }
      readFilter(*target, *fields.key(key), *value, {family, surroundings_.severalPortEntries},
                 definitions_, values_);
   }
   // A wrong filter lacks parts, so its number of rules means nothing.
   if (target && both.good && findings().count() == before) {
      countRules(item, *target, family);
   }
}

// Adds a finding for each key of `own` that `both` has as well: neither of the two values would be
// more right than the other.
void ClassReader::checkNotInBoth(const Node& own, const Node& both, Family family) const {
   if (own.kind != NodeKind::mapping || both.kind != NodeKind::mapping) {
      return;
   }
   for (const KeyRow& row : shapeOf(Shape::both).keys) {
      const Node* repeated = keyIn(own, row.name);
      const Node* first = keyIn(both, row.name);
      if (repeated != nullptr && first != nullptr) {
         findings().add(repeated->location, FindingCode::conflict,
                        fmt::format("key '{}' stands in both and in {} (first at {}:{})", row.name,
                                    familyName(family), first->location.line,
                                    first->location.column));
      }
   }
}

// The limit is reported once, at the class that exceeds it: the sum only grows. It cannot wrap,
// because a filter counts for 2^32 rules at most.
void ClassReader::countRules(const Class& item, const Filter& filter, Family family) {
   const U64 rules = ruleCount(filter, surroundings_.tcpFlags);
   const bool within = rules_ <= surroundings_.maxRules;
   rules_ += rules;
   if (within && rules_ > surroundings_.maxRules) {
      findings().add(filter.location, FindingCode::tooManyRules,
                     fmt::format("class {} adds {}{} {} rules, which makes more than {} in the "
                                 "file",
                                 inQuotes(item.name.text), rules == mostRules ? "at least " : "",
                                 rules, familyName(family), surroundings_.maxRules));
   }
}

// Sets the priority of the last class. Returns false when the file gives one that is wrong, so that
// the value that takes its place is not compared with other priorities.
bool ClassReader::readPriority(std::vector<Class>& classes, const Fields& fields) const {
   Class& item = classes.back();
   const Node* node = fields.value("priority");
   item.priorityGiven = node != nullptr;
   item.priority = positionStep * static_cast<U32>(classes.size());
   if (node == nullptr) {
      return true;
   }
   const auto number = values_.number(*node, "priority", 0, maxPriority);
   item.priority = static_cast<U32>(number.value_or(0));
   return number.has_value();
}

// Adds a finding when the last class has the priority of an earlier one.
void ClassReader::checkPriority(const std::vector<Class>& classes, PlaceOfPriority& places,
                                Location location) const {
   const Class& item = classes.back();
   const auto [holder, inserted] = places.try_emplace(item.priority, classes.size() - 1);
   if (inserted) {
      return;
   }
   const Class& other = classes[holder->second];
   // Nobody wrote a priority that follows from the position, so the message says where it is from.
   const bool counted = !item.priorityGiven || !other.priorityGiven;
   const std::string why =
         counted ? fmt::format(" (a class without one has {} times its place)", positionStep) : "";
   findings().add(location, FindingCode::duplicatePriority,
                  fmt::format("priority {} of class {} is that of class {} too{}", item.priority,
                              inQuotes(item.name.text), inQuotes(other.name.text), why));
}

} // namespace Postcard::Policy::File
