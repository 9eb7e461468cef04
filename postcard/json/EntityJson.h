// `entityJson`: an object of the type framework as JSON, for programs. Relies on reflection alone:
// every attribute that a type declares is shown, under its declared name.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/ValueVisitor.h"

#include <nlohmann/json_fwd.hpp>

#include <functional>

namespace Postcard::Json {

// The version of the shape of ACLs in JSON. It rises when an attribute changes its meaning or
// disappears; a new attribute leaves it as it is.
inline constexpr int aclJsonSchema = 2;

// `entity` as a JSON object with one member per attribute, in the order of declaration:
//
//   entity that `entity` owns   object
//   value of several attributes object with one member per attribute
//   collection by key           object with one member per element, named by its key
//   set                         list
//   number, boolean             number, boolean
//   string, enumerator, value with a text form of its own   string
//   object that `entity` refers to but does not own         the key of that object, as a string
//   child that was not made, reference to nothing          null
//
// For example, `ruleByName` of an ACL configuration holds whole rules, and `ruleByIndex`, which
// refers to the same rules, holds their names. Takes time in proportion to the number of values.
// Strings keep bytes that are not UTF-8; print the result with `documentText`, because `dump`
// throws on such bytes unless it is told to replace them. The result does not refer to `entity`.
nlohmann::ordered_json entityJson(const Kiv::Entity& entity);

// The value that `write` writes to the visitor it is given, which must be one whole value: for
// documents in memory that contain what streamed documents contain as well.
nlohmann::ordered_json writtenJson(const std::function<void(Kiv::ValueVisitor& visitor)>& write);

} // namespace Postcard::Json
