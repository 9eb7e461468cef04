#include "Kiv/TypeData.h"

#include "Kiv/Exception.h"

#include <algorithm>

namespace Kiv {

namespace {

std::string text(std::string_view name) {
   return std::string{name};
}
std::string text(U16 id) {
   return std::to_string(id);
}

// ": expected one of a, b": the end of a message about a wrong name. `name` is the member that
// names a row.
template <class Rows, class Name>
std::string expectedOneOf(const Rows& rows, Name name) {
   if (rows.empty()) {
      return ": it has none";
   }
   std::string expected;
   for (const auto& row : rows) {
      expected += (expected.empty() ? ": expected one of " : ", ") + text(row.*name);
   }
   return expected;
}

} // namespace

// Searched from the first row: a type has few, and a caller may keep the reference.
const AttributeData& TypeData::attribute(U16 id) const {
   const auto found = std::ranges::find(attributes, id, &AttributeData::id);
   if (found == attributes.end()) {
      throw NameError{std::string{name} + " has no attribute " + std::to_string(id) +
                      expectedOneOf(attributes, &AttributeData::id)};
   }
   return *found;
}

const AttributeData& TypeData::attribute(std::string_view attributeName) const {
   const auto found = std::ranges::find(attributes, attributeName, &AttributeData::name);
   if (found == attributes.end()) {
      throw NameError{std::string{name} + " has no attribute '" + std::string{attributeName} + "'" +
                      expectedOneOf(attributes, &AttributeData::name)};
   }
   return *found;
}

const OperationData& TypeData::operation(std::string_view operationName) const {
   const auto found = std::ranges::find(operations, operationName, &OperationData::name);
   if (found == operations.end()) {
      throw NameError{std::string{name} + " has no operation '" + std::string{operationName} + "'" +
                      expectedOneOf(operations, &OperationData::name)};
   }
   return *found;
}

} // namespace Kiv
