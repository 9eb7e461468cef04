// `TraceFilter`: which records `postcard trace` prints. Relies on the text trace for levels and
// source patterns, so that they read as in FMTRACE, and on the system's regular expressions, which
// need no deep stack for long texts.
#pragma once

#include "Pello/Types.h"
#include "Ringlog/Decoder.h"
#include "postcard/cli/trace/TraceTime.h"

#include <memory>
#include <optional>
#include <regex.h>
#include <string>

namespace Postcard::Cli {

// Without a setting it wants every record. Each setting throws `std::invalid_argument` that says
// what was expected when it cannot be read.
class TraceFilter {
 public:
   // Such as "0-5,9".
   void levelsIs(const std::string& text);
   // See `timeOf`.
   void sinceIs(const std::string& text);
   // An extended regular expression (POSIX) that the text or `class::function` must contain.
   void expressionIs(const std::string& text);
   // A pattern of source names, in which `*` stands for any characters.
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

} // namespace Postcard::Cli
