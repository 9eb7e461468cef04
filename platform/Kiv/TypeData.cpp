#include "Kiv/TypeData.h"

#include "Kiv/Entity.h"
#include "Kiv/ValueVisitor.h"
#include "Pello/Assert.h"

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

namespace {

std::string text(std::string_view name) {
   return std::string{name};
}
std::string text(U16 id) {
   return std::to_string(id);
}

// "…: expected one of a, b", to tell a caller what there is.
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

namespace {

// The values in the order of the parameters.
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

bool canBecome(const Entity& entity, const Entity& other) {
   const TypeData& type = entity.typeData();
   return &type == &other.typeData() &&
          std::ranges::all_of(type.attributes, [&](const AttributeData& attribute) {
             return attribute.kind != AttributeKind::constant ||
                    attribute.text(ownerAddress(entity)) == attribute.text(ownerAddress(other));
          });
}

const void* ownerAddress(const Entity& entity) {
   return dynamic_cast<const void*>(&entity);
}

void visitEntity(const Entity& entity, ValueVisitor& visitor) {
   visitor.beginObject();
   for (const AttributeData& attribute : entity.typeData().attributes) {
      visitor.member(attribute.name);
      attribute.visit(ownerAddress(entity), visitor);
   }
   visitor.endObject();
}

void visitEntityKey(const Entity& entity, ValueVisitor& visitor) {
   const TypeData& type = entity.typeData();
   const auto key =
         std::ranges::find(type.attributes, AttributeKind::constant, &AttributeData::kind);
   if (key == type.attributes.end()) {
      visitor.text(type.name);
   } else {
      key->visit(ownerAddress(entity), visitor);
   }
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

void registerLoadedModule(const TypeModule& module) noexcept {
   try {
      registerTypeModule(module);
   } catch (const NameError& error) {
      Pello::assertionFailed({"Kiv/TypeData.cpp", __LINE__, "registerLoadedModule"}, module.name,
                             error.what());
   }
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
