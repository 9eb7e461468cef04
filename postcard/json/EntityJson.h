// `entityJson`: an object of the type framework as JSON, for programs. Relies on reflection alone:
// what a type declares is what is shown, under the names of its attributes.
#pragma once

#include "Kiv/Entity.h"

#include <nlohmann/json.hpp>

namespace Postcard::Json {

// The version of the shape of ACLs in JSON; raised when an attribute changes its meaning or goes.
inline constexpr int aclJsonSchema = 2;

// An object by attribute, in declaration order. Entities that `entity` owns and collections by key
// are objects, sets are lists, values with a text of their own and enumerators are strings, and an
// object of somebody else's is its key. In `ruleByIndex`, for one, stand names of `ruleByName`.
nlohmann::ordered_json entityJson(const Kiv::Entity& entity);

} // namespace Postcard::Json
