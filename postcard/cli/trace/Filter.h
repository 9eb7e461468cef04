// `Filter`: which records `postcard trace` prints. Relies on the text trace for levels and source
// patterns, so that they are written as in FMTRACE, and on the regular expressions of the C
// library: those of the C++ library recurse once per character and overflow the stack on long
// texts.
#pragma once

#include "Pello/Types.h"
#include "Ringlog/Decoder.h"
#include "postcard/cli/trace/Time.h"

#include <memory>
#include <optional>
#include <regex.h>
#include <string>

namespace Postcard::Cli::Trace {

// Without a setting it wants every record; with several, those that all of them want. A setting
// whose text cannot be read throws std::invalid_argument, which says what was expected. Copies
// share the compiled expression.
class Filter {
 public:
   // Only these levels, such as "0-5,9".
   void levelsIs(const std::string& text);
   // Only records from this time on. `timeOf` says how a time is written.
   void sinceIs(const std::string& text);
   // Only records whose text or `class::function` has a match of this extended regular expression
   // (POSIX).
   void expressionIs(const std::string& text);
   // Only records of sources whose name fits this pattern, in which `*` stands for any characters.
   void sourceIs(const std::string& pattern) { source_ = pattern; }

   bool wants(const Ringlog::Record& record) const;

 private:
   bool contains(const std::string& text) const;

   std::optional<U32> levels_;
   std::optional<Microseconds> since_;
   std::shared_ptr<const regex_t> expression_; // null: none
   std::optional<std::string> source_;
};

// `class::function`, or the name alone of a free function.
std::string functionOf(const Ringlog::Descriptor& site);

} // namespace Postcard::Cli::Trace
