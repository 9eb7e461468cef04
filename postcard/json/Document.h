// `documentText`: a JSON document as every command prints it. Relies on nothing.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace Postcard::Json {

// The text of `document`, indented by two, with a line end. File names, and texts of a rules
// client, may hold bytes that are not UTF-8, which JSON cannot hold: each becomes U+FFFD.
std::string documentText(const nlohmann::ordered_json& document);

} // namespace Postcard::Json
