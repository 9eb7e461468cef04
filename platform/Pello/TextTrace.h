// The levelled text trace: `TraceSource`, whose levels can be turned on and off, `traceLevelsIs`,
// which does so, and `traceSinkIs`, which says where enabled traces go. `fmtrace` (Format.h) writes
// one. Relies on fmt, in its source only.
//
// A setting is a text such as `OruPostcardTelemetry*/0-5,9`: a pattern of source names, in which
// `*` stands for any characters or none, a slash, and the enabled levels, as numbers and ranges
// with commas between them. A setting may have several such entries, separated by blanks, tabs or
// semicolons. For each source the last entry whose pattern fits counts; a source that none fits has
// all levels off. The environment variable FMTRACE holds the first setting of a process.
//
// All functions may be called from several threads, whatever the thread-safety switch says.
#pragma once

#include "Pello/Types.h"

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Pello {

// The highest level. In use are 0 for errors, 5 for decisions and results, 8 for the entry into an
// operation, and 9 for details.
inline constexpr U8 traceLevelMost = 9;

// A named group of trace points, usually one per library. It keeps its enabled levels in one word,
// so that a disabled trace point costs one test.
class TraceSource {
 public:
   // Takes its levels from the setting in force, and follows later settings until it is destroyed.
   // `name` is not copied and must live as long as the source. The first source of a process reads
   // FMTRACE; when that cannot be read, standard error says so and no level is on.
   explicit TraceSource(const char* name);
   ~TraceSource();
   TraceSource(const TraceSource&) = delete;
   TraceSource& operator=(const TraceSource&) = delete;

   const char* name() const noexcept { return name_; }
   // Whether traces of `level`, which is at most `traceLevelMost`, are to be written.
   bool enabled(U8 level) const noexcept {
      return (levels_.load(std::memory_order_relaxed) >> level & 1U) != 0;
   }

 private:
   friend void traceLevelsIs(std::string_view setting);
   const char* name_;
   std::atomic<U32> levels_{0}; // bit n: level n is on
};

// A place in a source file that traces: what is the same for all of its traces. Owns nothing; no
// pointer is null.
struct TracePoint {
   const TraceSource* source;
   U32 line;              // in its source file
   const char* className; // empty for a free function
   const char* functionName;
   const char* format; // with "{}" placeholders
   U8 level;           // at most `traceLevelMost`
};

// One formatted trace. Valid during the call of the sink only.
struct TraceRecord {
   const TracePoint* point;
   std::string_view text;
};

// Replaces the setting, for every present and future source. The empty text turns everything off.
// Throws `std::invalid_argument` that quotes the offending entry when `setting` cannot be read;
// nothing changes then.
void traceLevelsIs(std::string_view setting);

// The setting in force, as it was given; empty when there is none.
std::string traceLevels();

// The levels of a text such as "0-5,9", bit n for level n; nothing when it cannot be read, as the
// empty text.
std::optional<U32> traceLevelBits(std::string_view text);

// Whether `pattern`, in which `*` stands for any characters or none, fits the whole of `name`.
bool traceSourceFits(std::string_view pattern, std::string_view name);

// Receives enabled traces. Several threads may call it at the same time. It may trace, and may set
// another sink; what it throws reaches the trace point.
using TraceSink = std::function<void(const TraceRecord&)>;

// Sets the sink of the process. An empty function chooses the default, which writes one line to
// standard error: `source level class::function: text`. A trace under way in another thread may
// still reach the old sink after this function has returned.
void traceSinkIs(TraceSink sink);

} // namespace Pello
