// `visitEntity`: shows an entity to a `ValueVisitor`, piece by piece. A writer of another notation
// than the generic text, such as JSON, derives from `ValueVisitor` and needs to know no type.
// Relies on type descriptors.
#pragma once

#include "Pello/Types.h"

#include <string_view>

namespace Kiv {

class Entity;

// The functions are called in the order in which the value is written. Each value is one call of
// `null`, `boolean`, `number`, `real` or `text`, or a `begin…`, the contents, and the matching
// `end…`. Views are valid during the call only. What a function throws reaches whoever began the
// visit.
class ValueVisitor {
 public:
   virtual ~ValueVisitor();

   // A child that was not made, or a reference to nothing.
   virtual void null() = 0;
   virtual void boolean(bool value) = 0;
   // An unsigned integer of any width.
   virtual void number(U64 value) = 0;
   // Infinities and NaN are possible.
   virtual void real(double value) = 0;
   // A string, a value with a text of its own, or the name of an enumerator; without quotes or
   // escapes.
   virtual void text(std::string_view value) = 0;

   // A value of several attributes, an entity, or a collection by key. Its members follow, each as
   // `member` and a value.
   virtual void beginObject() = 0;
   // Names the value that comes next: an attribute, or the key of an element.
   virtual void member(std::string_view name) = 0;
   virtual void endObject() = 0;

   // A set. Its members follow in the order of their keys.
   virtual void beginList() = 0;
   virtual void endList() = 0;
};

// Shows all attributes of `entity` as an object. What `entity` owns is shown whole. What it only
// refers to is shown as by `visitEntityKey`, so that every object is shown once.
void visitEntity(const Entity& entity, ValueVisitor& visitor);

// Shows what distinguishes `entity` from others of its type: its first constant attribute, or the
// name of its type when it has none.
void visitEntityKey(const Entity& entity, ValueVisitor& visitor);

} // namespace Kiv
