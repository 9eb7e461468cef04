#include "postcard/cli/trace/Filter.h"

#include "Pello/TextTrace.h"

#include <fmt/format.h>

#include <chrono>
#include <stdexcept>

namespace Postcard::Cli::Trace {

namespace {

Microseconds now() {
   const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
   return std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
}

// Why `expression` could not be compiled, in the words of the C library.
std::string reasonOf(int error, const regex_t& expression) {
   char reason[256];
   ::regerror(error, &expression, reason, sizeof reason);
   return reason;
}

} // namespace

void Filter::levelsIs(const std::string& text) {
   levels_ = Pello::traceLevelBits(text);
   if (!levels_) {
      throw std::invalid_argument{fmt::format("'{}': expected levels from 0 to {}, such as 0-5,9",
                                              text, Pello::traceLevelMost)};
   }
}

void Filter::sinceIs(const std::string& text) {
   since_ = timeOf(text, now());
   if (!since_) {
      throw std::invalid_argument{fmt::format(
            "'{}': expected a time such as 2025-11-21T11:36:51Z, or an age such as 10s, 5m, 2h, 1d",
            text)};
   }
}

void Filter::expressionIs(const std::string& text) {
   auto made = std::make_unique<regex_t>();
   if (const int error = ::regcomp(made.get(), text.c_str(), REG_EXTENDED | REG_NOSUB)) {
      throw std::invalid_argument{
            fmt::format("'{}': not a regular expression: {}", text, reasonOf(error, *made))};
   }
   // Only a compiled expression may be freed with `regfree`, so the deleter changes here.
   expression_ = {made.release(), [](regex_t* expression) {
                     ::regfree(expression);
                     delete expression;
                  }};
}

bool Filter::wants(const Ringlog::Record& record) const {
   const Ringlog::Descriptor& site = *record.site;
   // A damaged ring may name a level that does not exist, and shifting that far is undefined.
   if (levels_ && (site.level > Pello::traceLevelMost || (*levels_ >> site.level & 1U) == 0)) {
      return false;
   }
   if (since_ && microsecondsOf(record.time) < *since_) {
      return false;
   }
   if (source_ && !Pello::traceSourceFits(*source_, site.source)) {
      return false;
   }
   return expression_ == nullptr || contains(record.text) || contains(functionOf(site));
}

bool Filter::contains(const std::string& text) const {
   // The text may hold null bytes. With REG_STARTEND its end comes from `range`.
   regmatch_t range{0, static_cast<regoff_t>(text.size())};
   return ::regexec(expression_.get(), text.c_str(), 1, &range, REG_STARTEND) == 0;
}

std::string functionOf(const Ringlog::Descriptor& site) {
   return site.className.empty() ? site.functionName : site.className + "::" + site.functionName;
}

} // namespace Postcard::Cli::Trace
