// The levelled text trace, `fmtrace`: trace sources with levels that can be turned on and off, and
// the line that an enabled trace point writes. Relies on fmt for formatting.
//
// Which levels are on is said by a text such as `OruPostcardTelemetry*/0-5,9`: a pattern of source
// names (`*` stands for any characters), a slash, levels and ranges of levels separated by commas;
// several such entries are separated by blanks or semicolons, the last one that fits a source
// counts. The environment variable FMTRACE gives it at start, `traceLevelsIs` at any time.
#pragma once

#include "Pello/Types.h"

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Pello {

// 0 errors, 5 decisions and results, 8 entry into an operation, 9 details.
inline constexpr U8 traceLevelMost = 9;

// A named group of trace points, usually one per library. Its enabled levels are one cached word,
// so that a disabled trace point costs one test.
class TraceSource {
 public:
   // `name` must live as long as the source. The source takes the levels that are set now, and
   // follows later changes until it is destroyed.
   explicit TraceSource(const char* name);
   ~TraceSource();
   TraceSource(const TraceSource&) = delete;
   TraceSource& operator=(const TraceSource&) = delete;

   const char* name() const noexcept { return name_; }
   // Whether trace points of `level`, at most `traceLevelMost`, are written.
   bool enabled(U8 level) const noexcept {
      return (levels_.load(std::memory_order_relaxed) >> level & 1U) != 0;
   }

 private:
   friend void traceLevelsIs(std::string_view setting);
   const char* name_;
   std::atomic<U32> levels_{0}; // bit n: level n is on
};

// Where a trace is written: what never changes about it.
struct TracePoint {
   const TraceSource* source;
   U32 line;
   const char* className; // empty for a free function
   const char* functionName;
   const char* format; // with "{}" placeholders
   U8 level;
};

// One formatted trace.
struct TraceRecord {
   const TracePoint* point;
   std::string_view text;
};

// Sets the enabled levels of every source, present and future. Throws `std::invalid_argument`
// with the offending entry when `setting` cannot be read; nothing changes then.
void traceLevelsIs(std::string_view setting);

// The setting in force.
std::string traceLevels();

// The levels of a text such as "0-5,9", bit n for level n; nothing when it cannot be read.
std::optional<U32> traceLevelBits(std::string_view text);

// Whether `pattern`, in which `*` stands for any characters, fits the name of a source.
bool traceSourceFits(std::string_view pattern, std::string_view name);

// Where enabled traces go. The default (also chosen by an empty function) writes one line to
// standard error: `source level class::function: text`. A sink may trace and may set another sink;
// what it throws reaches the trace point.
using TraceSink = std::function<void(const TraceRecord&)>;
void traceSinkIs(TraceSink sink);

} // namespace Pello
