#include "postcard/cli/trace/Filter.h"

#include "Pello/TextTrace.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace Postcard::Cli::Trace {

namespace {

Microseconds now() {
   const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
   return std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
}

// The bytes that RE2 may use for one expression, compiled and while it is matched.
constexpr std::int64_t mostMemory = std::int64_t{8} << 20;

RE2::Options optionsOfExpressions() {
   RE2::Options options;
   options.set_max_mem(mostMemory);
   options.set_log_errors(false); // the caller is told, and nobody else
   options.set_dot_nl(true);
   options.set_never_capture(true);
   return options;
}

// `text`, or its beginning when it is long: a message should show what was wrong, not pages of it.
std::string quoted(const std::string& text) {
   constexpr std::size_t most = 60;
   return text.size() <= most ? text : text.substr(0, most) + "...";
}

// Why `expression` was refused, and what to do where the words of RE2 do not tell.
std::string reasonOf(const RE2& expression) {
   switch (expression.error_code()) {
   case RE2::ErrorPatternTooLarge:
      return "it takes too much memory; use smaller repetitions or a shorter expression";
   case RE2::ErrorRepeatSize:
      return "a repetition of more than 1000, nested ones multiplied, or one whose end is before "
             "its beginning: " +
             quoted(expression.error_arg());
   case RE2::ErrorBadUTF8:
      return "it is not UTF-8";
   default:
      return quoted(expression.error());
   }
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
   auto made = std::make_shared<const RE2>(text, optionsOfExpressions());
   if (!made->ok()) {
      throw std::invalid_argument{
            fmt::format("'{}': not a regular expression: {}", quoted(text), reasonOf(*made))};
   }
   expression_ = std::move(made);
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
   return RE2::PartialMatch(text, *expression_);
}

std::string functionOf(const Ringlog::Descriptor& site) {
   return site.className.empty() ? site.functionName : site.className + "::" + site.functionName;
}

} // namespace Postcard::Cli::Trace
