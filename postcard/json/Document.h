// `documentText`: a JSON document as every command prints it. Relies on the JSON library only.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace Postcard::Json {

// The text of `document`, indented by two blanks for each level and ended by a line feed. File
// names and texts of rules clients may hold bytes that are not UTF-8. JSON cannot express such
// bytes, so U+FFFD stands in their place.
std::string documentText(const nlohmann::ordered_json& document);

} // namespace Postcard::Json
