// `schemaProblem`: as much of JSON Schema as the schema of the policy file uses.

#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace Postcard::Policy::File {

// The first place where `value` does not keep to `schema`, a part of `root`; empty when it does.
// Throws std::logic_error for a keyword that it does not know, so that none is passed over.
std::string schemaProblem(const nlohmann::json& value, const nlohmann::json& schema,
                          const nlohmann::json& root, const std::string& place = "");

// `schema`, or what its $ref points to.
const nlohmann::json& resolved(const nlohmann::json& schema, const nlohmann::json& root);

} // namespace Postcard::Policy::File
