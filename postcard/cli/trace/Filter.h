// `Filter`: which records `postcard trace` prints. Relies on the text trace for the form of levels
// and source patterns, so that users write them as in FMTRACE. Relies on the regular expressions of
// the C library, because those of the C++ library recurse once per character and overflow the stack
// on long texts.
#pragma once

#include "Pello/Types.h"
#include "Ringlog/Decoder.h"
#include "postcard/cli/trace/Time.h"

#include <memory>
#include <optional>
#include <regex.h>
#include <string>

namespace Postcard::Cli::Trace {

// A new filter wants every record. Each setting narrows that down: a record must fit all settings.
// Setting the same thing again replaces it. A setter whose text cannot be read throws
// std::invalid_argument, which says what was expected. Copies share the compiled expression, which
// nobody changes.
class Filter {
 public:
   // Only records of these levels, such as "0-5,9".
   void levelsIs(const std::string& text);
   // Only records from this time on. `timeOf` says how a time is written; an age counts from now.
   void sinceIs(const std::string& text);
   // Only records whose text or `class::function` contains a match of this extended regular
   // expression (POSIX, regex(7)).
   void expressionIs(const std::string& text);
   // Only records of sources whose whole name fits this pattern, in which `*` stands for any
   // characters. Any text is a pattern.
   void sourceIs(const std::string& pattern) { source_ = pattern; }

   // Whether the record fits all settings. Its call site must not be null.
   bool wants(const Ringlog::Record& record) const;

 private:
   bool contains(const std::string& text) const;

   // Absent or null: there is no such setting.
   std::optional<U32> levels_; // bit n for level n
   std::optional<Microseconds> since_;
   std::shared_ptr<const regex_t> expression_;
   std::optional<std::string> source_;
};

// `class::function` of a call site; for a free function only its name.
std::string functionOf(const Ringlog::Descriptor& site);

} // namespace Postcard::Cli::Trace
