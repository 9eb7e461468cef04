#include "postcard/report/Types.h"

#include "Kiv/Enumeration.h"
#include "Kiv/Operation.h"
#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <utility>

namespace Postcard::Report {

namespace {

using Json = nlohmann::ordered_json;

// The version of the JSON document. It rises when a key changes its meaning or disappears.
constexpr int typesJsonSchema = 1;

// In the order of the enumerators.
std::string_view kindName(Kiv::TypeKind kind) {
   constexpr std::string_view names[] = {"number",      "boolean", "string",
                                         "enumeration", "value",   "entity"};
   return names[static_cast<std::size_t>(kind)];
}

// In the order of the enumerators.
std::string_view kindName(Kiv::AttributeKind kind) {
   constexpr std::string_view names[] = {"constant", "value", "child", "collection"};
   return names[static_cast<std::size_t>(kind)];
}

// Whether `name` is the type's qualified name or the end of it behind a "::". Users need not write
// namespaces, because types of different namespaces seldom share a name.
bool isMeant(const Kiv::TypeData& type, std::string_view name) {
   return type.name == name ||
          (type.name.ends_with(name) &&
           type.name.substr(0, type.name.size() - name.size()).ends_with("::"));
}

// ---- Text ----

// A row of the table; `text` prints the header with the same widths.
std::string line(const Kiv::TypeData& type) {
   return fmt::format("{:<12} {:>5} {:>11} {:>11}  {}\n", kindName(type.kind), type.size,
                      type.attributes.size(), type.operations.size(), type.name);
}

std::string enumeratorsText(const Kiv::TypeData& type) {
   if (type.enumeration == nullptr) {
      return "";
   }
   std::string text = "enumerators:\n";
   for (const Kiv::Enumerator& enumerator : type.enumeration->enumerators) {
      text += fmt::format("   {:>4}  {}\n", enumerator.value, enumerator.name);
   }
   return text;
}

std::string attributesText(const Kiv::TypeData& type) {
   std::string text = type.attributes.empty() ? "" : "attributes:\n";
   for (const Kiv::AttributeData& attribute : type.attributes) {
      text += fmt::format("   {:>4}  {:<24} {:<10}  {}\n", attribute.id, attribute.name,
                          kindName(attribute.kind), attribute.type);
   }
   return text;
}

std::string operationsText(const Kiv::TypeData& type) {
   std::string text = type.operations.empty() ? "" : "operations:\n";
   for (const Kiv::OperationData& operation : type.operations) {
      text += fmt::format("   {} -> {}\n", Kiv::signatureText(operation.name, operation.parameters),
                          operation.result);
   }
   return text;
}

std::string wholeText(const Kiv::TypeData& type) {
   std::string text = fmt::format("{}: {}, {} bytes\n", type.name, kindName(type.kind), type.size);
   if (type.make != nullptr) {
      text += fmt::format("made by name:\n   {}\n", Kiv::signatureText(type.name, type.parameters));
   }
   return text + enumeratorsText(type) + attributesText(type) + operationsText(type);
}

// ---- JSON ----

Json parametersJson(const std::vector<Kiv::Parameter>& parameters) {
   Json list = Json::array();
   for (const Kiv::Parameter& parameter : parameters) {
      list.push_back({{"name", parameter.name}, {"type", parameter.type}});
   }
   return list;
}

Json enumeratorsJson(const Kiv::TypeData& type) {
   Json list = Json::array();
   if (type.enumeration != nullptr) {
      for (const Kiv::Enumerator& enumerator : type.enumeration->enumerators) {
         list.push_back({{"value", enumerator.value}, {"name", enumerator.name}});
      }
   }
   return list;
}

Json attributesJson(const Kiv::TypeData& type) {
   Json list = Json::array();
   for (const Kiv::AttributeData& attribute : type.attributes) {
      list.push_back({{"id", attribute.id},
                      {"name", attribute.name},
                      {"kind", kindName(attribute.kind)},
                      {"type", attribute.type}});
   }
   return list;
}

Json operationsJson(const Kiv::TypeData& type) {
   Json list = Json::array();
   for (const Kiv::OperationData& operation : type.operations) {
      list.push_back({{"name", operation.name},
                      {"parameters", parametersJson(operation.parameters)},
                      {"result", operation.result}});
   }
   return list;
}

// Every member is there for every kind of type, so that programs need not ask which there are.
Json typeJson(const Kiv::TypeData& type) {
   return {{"name", type.name},
           {"kind", kindName(type.kind)},
           {"size", type.size},
           {"madeFrom", type.make == nullptr ? Json(nullptr) : parametersJson(type.parameters)},
           {"enumerators", enumeratorsJson(type)},
           {"attributes", attributesJson(type)},
           {"operations", operationsJson(type)}};
}

} // namespace

Types allTypes() {
   return {Kiv::registeredTypes(), false};
}

Types typesNamed(std::string_view name) {
   Types types{Kiv::registeredTypes(), true};
   std::erase_if(types.types, [&](const Kiv::TypeData* type) { return !isMeant(*type, name); });
   return types;
}

std::string text(const Types& types) {
   std::string text = types.whole ? ""
                                  : fmt::format("{:<12} {:>5} {:>11} {:>11}  {}\n", "KIND", "BYTES",
                                                "ATTRIBUTES", "OPERATIONS", "NAME");
   for (const Kiv::TypeData* type : types.types) {
      text += types.whole ? wholeText(*type) : line(*type);
   }
   return text;
}

Json json(const Types& types) {
   Json list = Json::array();
   for (const Kiv::TypeData* type : types.types) {
      list.push_back(typeJson(*type));
   }
   return {{"schema", typesJsonSchema}, {"types", std::move(list)}};
}

} // namespace Postcard::Report
