#include "Kiv/TypeData.h"

#include "Kiv/Entity.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

namespace Kiv {

namespace {

// The name is kept beside the type: a module may be forgotten at the end of the process, when the
// descriptors of others exist no more.
struct NamedType {
   std::string_view name;
   const TypeData* type;
};

using Modules = std::map<std::string, std::vector<NamedType>, std::less<>>;
using Types = std::map<std::string_view, const TypeData*>;

struct Registry {
   std::mutex mutex;
   Modules modules;
   Types types; // those of all modules
};

// Throws NameError when two types share a name.
Types typesOf(const Modules& modules) {
   Types types;
   for (const auto& [module, members] : modules) {
      for (const auto& [name, type] : members) {
         if (types.emplace(name, type).first->second != type) {
            throw NameError{"type " + std::string{name} + " is registered twice"};
         }
      }
   }
   return types;
}

// Never destroyed: libraries unregister while the process ends.
Registry& registry() {
   static Registry& instance = *new Registry;
   return instance;
}

} // namespace

const AttributeData& TypeData::attribute(U16 id) const {
   const auto found = std::ranges::find(attributes, id, &AttributeData::id);
   if (found == attributes.end()) {
      throw NameError{std::string{name} + " has no attribute " + std::to_string(id)};
   }
   return *found;
}

const AttributeData& TypeData::attribute(std::string_view attributeName) const {
   const auto found = std::ranges::find(attributes, attributeName, &AttributeData::name);
   if (found == attributes.end()) {
      throw NameError{std::string{name} + " has no attribute '" + std::string{attributeName} + "'"};
   }
   return *found;
}

const OperationData& TypeData::operation(std::string_view operationName) const {
   const auto found = std::ranges::find(operations, operationName, &OperationData::name);
   if (found == operations.end()) {
      throw NameError{std::string{name} + " has no operation '" + std::string{operationName} + "'"};
   }
   return *found;
}

namespace {

// `name(first: Type, second: Type)`, to tell a caller what was expected.
std::string signatureOf(const OperationData& operation) {
   std::string signature{operation.name};
   const char* separator = "(";
   for (const OperationData::Parameter& parameter : operation.parameters) {
      signature.append(separator).append(parameter.name).append(": ").append(parameter.type);
      separator = ", ";
   }
   return signature + (*separator == '(' ? "()" : ")");
}

const std::any& argumentOf(const OperationData& operation, std::string_view parameter,
                           std::span<const NamedArgument> arguments) {
   const auto found = std::ranges::find(arguments, parameter, &NamedArgument::name);
   if (found == arguments.end()) {
      throw NameError{"argument '" + std::string{parameter} + "' is missing: expected " +
                      signatureOf(operation)};
   }
   return found->value;
}

} // namespace

std::any callOperation(Entity& entity, std::string_view operationName,
                       std::span<const NamedArgument> arguments) {
   const OperationData& operation = entity.typeData().operation(operationName);
   if (arguments.size() != operation.parameters.size()) {
      throw NameError{std::to_string(arguments.size()) + " arguments: expected " +
                      signatureOf(operation)};
   }
   std::vector<std::any> values;
   values.reserve(arguments.size());
   for (const OperationData::Parameter& parameter : operation.parameters) {
      values.push_back(argumentOf(operation, parameter.name, arguments));
   }
   return operation.call(entity, operation, values);
}

void registerTypeModule(const TypeModule& module) {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   Modules modules = all.modules;
   std::vector<NamedType>& members = modules[std::string{module.name}];
   members.clear();
   for (const TypeData* type : module.types) {
      members.push_back({type->name, type});
   }
   all.types = typesOf(modules);
   all.modules = std::move(modules);
}

void unregisterTypeModule(std::string_view name) {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   const auto found = all.modules.find(name);
   if (found == all.modules.end()) {
      return;
   }
   all.modules.erase(found);
   all.types = typesOf(all.modules);
}

const TypeData* findType(std::string_view name) {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   const auto found = all.types.find(name);
   return found == all.types.end() ? nullptr : found->second;
}

std::vector<const TypeData*> registeredTypes() {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   std::vector<const TypeData*> types;
   types.reserve(all.types.size());
   for (const auto& [name, type] : all.types) {
      types.push_back(type);
   }
   return types;
}

} // namespace Kiv
