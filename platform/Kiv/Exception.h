// What the framework throws. All of it derives from `Exception`; nothing here is fatal.
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

// A number outside what its type allows.
class RangeError : public Exception {
 public:
   using Exception::Exception;
   ~RangeError() override;
};

// A value of a type without a hash was to be hashed.
class NotHashable : public Exception {
 public:
   using Exception::Exception;
   ~NotHashable() override;
};

// No type, attribute or enumerator of that name or number, or it cannot be used that way.
class NameError : public Exception {
 public:
   using Exception::Exception;
   ~NameError() override;
};

// Text that is not the text of a value.
class ParseError : public Exception {
 public:
   // `position` counts characters from 0 at the beginning of the text.
   ParseError(const std::string& reason, std::size_t position);
   ~ParseError() override;

   // Why, without the position that `what()` adds.
   const std::string& reason() const noexcept { return reason_; }
   std::size_t position() const noexcept { return position_; }

 private:
   std::string reason_;
   std::size_t position_;
};

} // namespace Kiv
