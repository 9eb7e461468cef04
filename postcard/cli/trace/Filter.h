// `Filter`: which records `postcard trace` prints. Relies on the text trace for levels and source
// patterns, so that they are written as in FMTRACE, and on RE2 for regular expressions: its time
// grows linearly with the text, its memory is bounded and it does not recurse, whatever the
// expression. The expressions of the C library crash or take gigabytes on some.
#pragma once

#include "Pello/Types.h"
#include "Ringlog/Decoder.h"
#include "postcard/cli/trace/Time.h"

#include <memory>
#include <optional>
#include <string>

namespace re2 {
class RE2;
}

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
   // Only records whose text or `class::function` has a match of this regular expression, in the
   // syntax of RE2. `.` matches a line break as well. Bytes that are no UTF-8 match nothing.
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
   std::shared_ptr<const re2::RE2> expression_;
   std::optional<std::string> source_;
};

// `class::function` of a call site; for a free function only its name.
std::string functionOf(const Ringlog::Descriptor& site);

} // namespace Postcard::Cli::Trace
