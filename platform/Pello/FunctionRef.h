// `FunctionRef<Result(Arguments...)>`: a reference to a callable object, for parameters of
// functions that call it before they return. Unlike `std::function` it copies and allocates
// nothing. Relies on nothing.
#pragma once

#include <concepts>
#include <type_traits>
#include <utility>

namespace Pello {

template <class Signature>
class FunctionRef;

// Two words; a copy refers to the same callable. There is no null.
template <class Result, class... Arguments>
class FunctionRef<Result(Arguments...)> {
 public:
   // Refers to `callable`, which must exist during every call. A lambda written as an argument
   // does: it lives until the called function has returned. `callable` is called as a const object,
   // so a mutable lambda is refused. Implicit, so that a lambda can be passed.
   template <class Callable>
      requires(!std::same_as<Callable, FunctionRef> &&
               std::is_invocable_r_v<Result, const Callable&, Arguments...>)
   FunctionRef(const Callable& callable) noexcept
      : callable_{&callable}, call_{&callIt<Callable>} {}

   // Calls the callable and lets its exceptions pass.
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
