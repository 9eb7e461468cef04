// `FunctionRef<Result(Arguments...)>`: a callable that somebody else owns, for parameters that are
// called before the function returns. Relies on nothing.
#pragma once

#include <concepts>
#include <type_traits>
#include <utility>

namespace Pello {

template <class Signature>
class FunctionRef;

// Made of any callable, which must exist as long as this reference is called. Two words; copying
// copies the reference.
template <class Result, class... Arguments>
class FunctionRef<Result(Arguments...)> {
 public:
   template <class Callable>
      requires(!std::same_as<std::remove_cvref_t<Callable>, FunctionRef> &&
               std::is_object_v<std::remove_reference_t<Callable>> &&
               std::is_invocable_r_v<Result, Callable&, Arguments...>)
   FunctionRef(Callable&& callable) noexcept
      : callable_{const_cast<void*>(static_cast<const void*>(&callable))},
        call_{&callIt<std::remove_reference_t<Callable>>} {}

   Result operator()(Arguments... arguments) const {
      return call_(callable_, std::forward<Arguments>(arguments)...);
   }

 private:
   template <class Callable>
   static Result callIt(void* callable, Arguments... arguments) {
      return static_cast<Result>(
            (*static_cast<Callable*>(callable))(std::forward<Arguments>(arguments)...));
   }

   void* callable_;
   Result (*call_)(void* callable, Arguments... arguments);
};

} // namespace Pello
