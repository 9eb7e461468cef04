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
      values.findings().add(node.location,
                            unknownWord("action", node.text, wordsOf(actionWords())));
      return std::nullopt;
   }
   if (row->kind == ActionKind::setDscp) {
      values.findings().add(node.location,
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
   readFamily(item, item.ipv4, fields, Family::ipv4);
   readFamily(item, item.ipv6, fields, Family::ipv6);
}

void ClassReader::readFamily(const Class& item, std::optional<Filter>& target, const Fields& fields,
                             Family family) {
   const std::string_view key = familyName(family);
   if (const Node* value = fields.value(key)) {
      const std::size_t before = findings().count();
      const FilterRules rules{family, surroundings_.severalPortEntries};
      target = readFilter(*fields.key(key), *value, rules, values_);
      // A wrong filter lacks parts, so its number of rules means nothing.
      if (findings().count() == before) {
         countRules(item, *target, family);
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
      findings().add(filter.location,
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
   findings().add(location,
                  fmt::format("priority {} of class {} is that of class {} too{}", item.priority,
                              inQuotes(item.name.text), inQuotes(other.name.text), why));
}

} // namespace Postcard::Policy::File
