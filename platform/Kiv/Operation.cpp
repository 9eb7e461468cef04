#include "Kiv/Operation.h"

#include "Kiv/Entity.h"
#include "Kiv/Exception.h"
#include "Kiv/TypeData.h"

#include <algorithm>
#include <vector>

namespace Kiv {

namespace {

// The values of `arguments` in the order of `parameters`. Since the counts are equal and each
// parameter finds an argument, an unknown or repeated name shows as a missing argument.
std::vector<std::any> inOrder(std::string_view name, std::span<const Parameter> parameters,
                              std::span<const NamedArgument> arguments) {
   if (arguments.size() != parameters.size()) {
      throw NameError{std::to_string(arguments.size()) + " arguments: expected " +
                      signatureText(name, parameters)};
   }
   std::vector<std::any> values;
   values.reserve(parameters.size());
   for (const Parameter& parameter : parameters) {
      const auto found = std::ranges::find(arguments, parameter.name, &NamedArgument::name);
      if (found == arguments.end()) {
         throw NameError{"argument '" + std::string{parameter.name} + "' is missing: expected " +
                         signatureText(name, parameters)};
      }
      values.push_back(found->value);
   }
   return values;
}

} // namespace

std::string signatureText(std::string_view name, std::span<const Parameter> parameters) {
   std::string signature{name};
   const char* separator = "(";
   for (const Parameter& parameter : parameters) {
      signature.append(separator).append(parameter.name).append(": ").append(parameter.type);
      separator = ", ";
   }
   return signature + (*separator == '(' ? "()" : ")");
}

std::any callOperation(Entity& entity, std::string_view operationName,
                       std::span<const NamedArgument> arguments) {
   const OperationData& operation = entity.typeData().operation(operationName);
   return operation.call(entity, operation,
                         inOrder(operation.name, operation.parameters, arguments));
}

std::any makeObject(const TypeData& type, std::span<const NamedArgument> arguments) {
   if (type.make == nullptr) {
      throw NameError{std::string{type.name} + " cannot be made by name"};
   }
   return type.make(inOrder(type.name, type.parameters, arguments));
}

} // namespace Kiv
