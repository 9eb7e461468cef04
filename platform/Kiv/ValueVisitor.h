// `ValueVisitor`: is shown a value or object piece by piece, as its type's descriptor knows it.
// Whoever writes another notation than the generic text (JSON, say) derives from it and needs to
// know no type; `visitEntity` shows it a whole entity. Relies on type descriptors.
#pragma once

#include "Pello/Types.h"

#include <string_view>

namespace Kiv {

class Entity;

// Every value is shown by one of the first four, or by a begin, its contents, and an end. Views
// are valid during the call only.
class ValueVisitor {
 public:
   virtual ~ValueVisitor();

   // There is none: a child that was not made, a reference to nothing.
   virtual void null() = 0;
   virtual void boolean(bool value) = 0;
   virtual void number(U64 value) = 0;
   virtual void real(double value) = 0;
   // Strings, values with a text of their own, and enumerators by their names.
   virtual void text(std::string_view value) = 0;

   // A value of several attributes, an entity, or a collection by key: its members in order.
   virtual void beginObject() = 0;
   // The value that comes next is this member's.
   virtual void member(std::string_view name) = 0;
   virtual void endObject() = 0;

   // A set: its members in order.
   virtual void beginList() = 0;
   virtual void endList() = 0;
};

// Shows all attributes of `entity`, as an object. What `entity` owns is shown whole; what it refers
// to is shown as the other's key, so that every object is shown once.
void visitEntity(const Entity& entity, ValueVisitor& visitor);

// Shows by what `entity` is told from others of its type: its first constant attribute, or the
// name of its type when it has none.
void visitEntityKey(const Entity& entity, ValueVisitor& visitor);

} // namespace Kiv
