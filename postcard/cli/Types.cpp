#include "postcard/cli/Types.h"

#include "Kiv/Enumeration.h"
#include "Kiv/Operation.h"
#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"
#include "postcard/host/PluginHost.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Cli {

namespace {

using Json = nlohmann::ordered_json;
using Types = std::vector<const Kiv::TypeData*>;

constexpr int typesJsonSchema = 1;

struct Options {
   std::string name; // empty: all
   std::string format = "text";
};

std::string_view kindName(Kiv::TypeKind kind) {
   constexpr std::string_view names[] = {"number",      "boolean", "string",
                                         "enumeration", "value",   "entity"};
   return names[static_cast<std::size_t>(kind)];
}

std::string_view kindName(Kiv::AttributeKind kind) {
   constexpr std::string_view names[] = {"constant", "value", "child", "collection"};
   return names[static_cast<std::size_t>(kind)];
}

// Whether a user who writes `name` means `type`: the whole name, or what stands behind a "::".
bool isMeant(const Kiv::TypeData& type, std::string_view name) {
   return type.name == name ||
          (type.name.ends_with(name) &&
           type.name.substr(0, type.name.size() - name.size()).ends_with("::"));
}

// For people ------------------------------------------------------------------------------------

void printLine(const Kiv::TypeData& type) {
   fmt::print("{:<12} {:>5} {:>11} {:>11}  {}\n", kindName(type.kind), type.size,
              type.attributes.size(), type.operations.size(), type.name);
}

void printAttribute(const Kiv::AttributeData& attribute) {
   fmt::print("   {:>4}  {:<24} {:<10}  {}\n", attribute.id, attribute.name,
              kindName(attribute.kind), attribute.type);
}

void printWhole(const Kiv::TypeData& type) {
   fmt::print("{}: {}, {} bytes\n", type.name, kindName(type.kind), type.size);
   if (type.make != nullptr) {
      fmt::print("made by name:\n   {}\n", Kiv::signatureText(type.name, type.parameters));
   }
   if (type.enumeration != nullptr) {
      fmt::print("enumerators:\n");
      for (const Kiv::Enumerator& enumerator : type.enumeration->enumerators) {
         fmt::print("   {:>4}  {}\n", enumerator.value, enumerator.name);
      }
   }
   fmt::print("{}", type.attributes.empty() ? "" : "attributes:\n");
   std::ranges::for_each(type.attributes, printAttribute);
   fmt::print("{}", type.operations.empty() ? "" : "operations:\n");
   for (const Kiv::OperationData& operation : type.operations) {
      fmt::print("   {} -> {}\n", Kiv::signatureText(operation.name, operation.parameters),
                 operation.result);
   }
}

void printText(const Types& types, bool whole) {
   if (!whole) {
      fmt::print("{:<12} {:>5} {:>11} {:>11}  {}\n", "KIND", "BYTES", "ATTRIBUTES", "OPERATIONS",
                 "NAME");
   }
   for (const Kiv::TypeData* type : types) {
      whole ? printWhole(*type) : printLine(*type);
   }
}

// For programs ----------------------------------------------------------------------------------

Json parametersJson(const std::vector<Kiv::Parameter>& parameters) {
   Json list = Json::array();
   for (const Kiv::Parameter& parameter : parameters) {
      list.push_back({{"name", parameter.name}, {"type", parameter.type}});
   }
   return list;
}

Json typeJson(const Kiv::TypeData& type) {
   Json attributes = Json::array();
   for (const Kiv::AttributeData& attribute : type.attributes) {
      attributes.push_back({{"id", attribute.id},
                            {"name", attribute.name},
                            {"kind", kindName(attribute.kind)},
                            {"type", attribute.type}});
   }
   Json operations = Json::array();
   for (const Kiv::OperationData& operation : type.operations) {
      operations.push_back({{"name", operation.name},
                            {"parameters", parametersJson(operation.parameters)},
                            {"result", operation.result}});
   }
   Json enumerators = Json::array();
   if (type.enumeration != nullptr) {
      for (const Kiv::Enumerator& enumerator : type.enumeration->enumerators) {
         enumerators.push_back({{"value", enumerator.value}, {"name", enumerator.name}});
      }
   }
   return {{"name", type.name},
           {"kind", kindName(type.kind)},
           {"size", type.size},
           {"madeFrom", type.make == nullptr ? Json(nullptr) : parametersJson(type.parameters)},
           {"enumerators", std::move(enumerators)},
           {"attributes", std::move(attributes)},
           {"operations", std::move(operations)}};
}

void printJson(const Types& types) {
   Json list = Json::array();
   for (const Kiv::TypeData* type : types) {
      list.push_back(typeJson(*type));
   }
   const Json document{{"schema", typesJsonSchema}, {"types", std::move(list)}};
   std::cout << document.dump(2) << std::endl;
}

int run(const Options& options) {
   try {
      // The module brings the helper's own types.
      const Host::PluginHost host{Host::PluginHost::defaultModule()};
   } catch (const Host::PluginError& error) {
      std::cerr << error.what() << '\n';
      return exitEnvironment;
   }
   Types types = Kiv::registeredTypes();
   if (!options.name.empty()) {
      std::erase_if(types,
                    [&](const Kiv::TypeData* type) { return !isMeant(*type, options.name); });
      if (types.empty()) {
         std::cerr << "there is no type '" << options.name << "'; postcard types lists them\n";
         return exitUsage;
      }
   }
   if (options.format == "json") {
      printJson(types);
   } else {
      printText(types, !options.name.empty());
   }
   return exitDone;
}

std::function<int()> declare(CLI::App& parser) {
   auto options = std::make_shared<Options>();
   parser.add_option("NAME", options->name,
                     "only this type, with all it has; the part behind a :: will do");
   parser.add_option("--format", options->format, "text for people, json for programs")
         ->check(CLI::IsMember({"text", "json"}))
         ->capture_default_str();
   parser.footer("Exit status: 0 done, 2 bad usage or no such type, 3 the helper module or\n"
                 "standard output cannot be used.");
   return [options] { return run(*options); };
}

} // namespace

const Command typesCommand{"types", "Print the types of the framework, or all about one", &declare};

} // namespace Postcard::Cli
