// `Types`: the types of the framework as reflection describes them, as a value, as text and as
// JSON. Relies on the registered type descriptors. Only the types of loaded libraries are known, so
// a caller that wants the types of the plug-in must open the plug-in before.
#pragma once

#include "Kiv/TypeData.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Report {

struct Types {
   // Descriptors, sorted by name. Never null; owned by the libraries of the types.
   std::vector<const Kiv::TypeData*> types;
   // Whether the text shows attributes, operations and enumerators of each type, or a line for
   // each. Without effect on JSON.
   bool whole = false;
};

// All registered types, with `whole` off.
Types allTypes();

// The types that `name` means, with `whole` on. `name` is a qualified name such as
// "OruPostcardTelemetry::RuleFilter", or its end after a "::", such as "RuleFilter", which may mean
// several types. Empty when it means none.
Types typesNamed(std::string_view name);

// A table with a header line, or, with `whole`, a paragraph for each type.
std::string text(const Types& types);

// A whole document: {"schema", "types"}, every type whole. "madeFrom" lists the arguments from
// which an object can be made by name; null when it cannot.
nlohmann::ordered_json json(const Types& types);

} // namespace Postcard::Report
