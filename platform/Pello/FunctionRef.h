// `FunctionRef<Result(Arguments...)>`: a callable that somebody else owns, for parameters that are
// called before the function returns. Relies on nothing.
#pragma once

#include <concepts>
#include <type_traits>
#include <utility>

namespace Pello {

template <class Signature>
class FunctionRef;

// Made of any object that can be called while it is const, which must exist as long as this
// reference is called. Two words; copying
// copies the reference.
template <class Result, class... Arguments>
class FunctionRef<Result(Arguments...)> {
 public:
   template <class Callable>
      requires(!std::same_as<Callable, FunctionRef> &&
               std::is_invocable_r_v<Result, const Callable&, Arguments...>)
   FunctionRef(const Callable& callable) noexcept
      : callable_{&callable}, call_{&callIt<Callable>} {}

   Result operator()(Arguments... arguments) const {
      return call_(callable_, std::forward<Arguments>(arguments)...);
   }

 private:
   template <class Callable>
   static Result callIt(const void* callable, Arguments... arguments) {
      return static_cast<Result>(
            (*static_cast<const Callable*>(callable))(std::forward<Arguments>(arguments)...));
   }

   const void* callable_;
   Result (*call_)(const void* callable, Arguments... arguments);
};

} // namespace Pello
