// `Types`: the types of the framework as reflection knows them, as a value, as text and as JSON.
// Relies on the registered type descriptors: only types of libraries that are loaded are known.
#pragma once

#include "Kiv/TypeData.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Report {

struct Types {
   std::vector<const Kiv::TypeData*> types; // never null; sorted by name
   bool whole = false; // the text shows attributes, operations and enumerators of each type
};

// All registered types, a line for each.
Types allTypes();

// The types that `name` means, whole: a whole name such as "OruPostcardTelemetry::RuleFilter", or
// its end after a "::", such as "RuleFilter". Empty when there is none.
Types typesNamed(std::string_view name);

std::string text(const Types& types);

// A whole document: {"schema", "types"}, every type whole. "madeFrom" lists the arguments from
// which an object can be made by name; null when it cannot.
nlohmann::ordered_json json(const Types& types);

} // namespace Postcard::Report
