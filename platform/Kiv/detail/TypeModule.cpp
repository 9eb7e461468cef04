#include "Kiv/detail/TypeModule.h"

#include "Kiv/Reflection.h"
#include "Kiv/String.h"

namespace Kiv {

namespace {

// These types have no class of the framework that could hold the descriptor, so it stands here.
template <class T>
const TypeData& plainType(std::string_view name, TypeKind kind) {
   static const TypeData data = describeValue<T>(name, kind);
   return data;
}

} // namespace

const TypeModule& typeModule() {
   static const TypeModule module{
         "Kiv",
         {
               &plainType<U8>("U8", TypeKind::number),
               &plainType<U16>("U16", TypeKind::number),
               &plainType<U32>("U32", TypeKind::number),
               &plainType<U64>("U64", TypeKind::number),
               &plainType<double>("double", TypeKind::number),
               &plainType<bool>("bool", TypeKind::boolean),
               &plainType<Pello::String>("Pello::String", TypeKind::string),
         }};
   return module;
}

KIV_REGISTER_WHEN_LOADED(typeModule())

} // namespace Kiv
