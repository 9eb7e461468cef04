// What the framework throws when a caller's input is refused: everything derives from `Exception`.
// A broken contract of our own is an assertion instead (Pello/Assert.h). `what()` is one line for
// people, which names the operands. Relies on the standard library.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace Kiv {

class Exception : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
   ~Exception() override;
};

// A number that its type does not allow, and the number of no enumerator.
class RangeError : public Exception {
 public:
   using Exception::Exception;
   ~RangeError() override;
};

// A value was to be hashed whose type has no hash.
class NotHashable : public Exception {
 public:
   using Exception::Exception;
   ~NotHashable() override;
};

// Reflection was asked for a type, attribute, operation or argument that does not exist, or for one
// that exists but has another type or cannot be used that way. Also thrown when a type is
// registered twice.
class NameError : public Exception {
 public:
   using Exception::Exception;
   ~NameError() override;
};

// A text that is not the text of a value.
class ParseError : public Exception {
 public:
   // `reason` says what was expected; `position` is the place of the failure, in bytes from the
   // beginning of the text. `what()` shows both.
   ParseError(const std::string& reason, std::size_t position);
   ~ParseError() override;

   // What was expected, without the position. Valid as long as this exception.
   const std::string& reason() const noexcept { return reason_; }
   // In bytes from the beginning of the text.
   std::size_t position() const noexcept { return position_; }

 private:
   std::string reason_;
   std::size_t position_;
};

} // namespace Kiv
