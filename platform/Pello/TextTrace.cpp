#include "Pello/TextTrace.h"

#include "Pello/Format.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace Pello {

namespace {

// One entry of a setting: the sources it is about and their enabled levels.
struct Entry {
   std::string pattern;
   U32 levels;
};

// Matching as in a shell, with `*` only: the pieces between the stars must occur in order. Taking
// each piece where it occurs first leaves the most for the others, so no choice is ever tried again
// and a pattern of many stars stays cheap.
bool matches(std::string_view pattern, std::string_view name) {
   std::size_t star = pattern.find('*');
   if (star == std::string_view::npos) {
      return pattern == name;
   }
   if (!name.starts_with(pattern.substr(0, star))) {
      return false;
   }
   name.remove_prefix(star);
   while (true) {
      pattern.remove_prefix(star + 1);
      star = pattern.find('*');
      if (star == std::string_view::npos) {
         return name.ends_with(pattern);
      }
      const std::size_t found = name.find(pattern.substr(0, star));
      if (found == std::string_view::npos) {
         return false;
      }
      name.remove_prefix(found + star);
   }
}

std::optional<U8> levelOf(std::string_view text) {
   unsigned level = 0;
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), level);
   if (error != std::errc{} || end != text.data() + text.size() || level > traceLevelMost) {
      return std::nullopt;
   }
   return static_cast<U8>(level);
}

// "0-5" or "9", bit n for level n.
std::optional<U32> rangeOf(std::string_view text) {
   const std::size_t dash = text.find('-');
   const auto low = levelOf(text.substr(0, dash));
   const auto high = dash == std::string_view::npos ? low : levelOf(text.substr(dash + 1));
   if (!low || !high || *high < *low) {
      return std::nullopt;
   }
   return ((U32{2} << *high) - 1) & ~((U32{1} << *low) - 1);
}

std::optional<U32> levelsOf(std::string_view text) {
   U32 levels = 0;
   while (true) {
      const std::size_t comma = text.find(',');
      const auto range = rangeOf(text.substr(0, comma));
      if (!range) {
         return std::nullopt;
      }
      levels |= *range;
      if (comma == std::string_view::npos) {
         return levels;
      }
      text.remove_prefix(comma + 1);
   }
}

Entry entryOf(std::string_view text) {
   // The last slash, because the name of a source may contain one and levels cannot.
   const std::size_t slash = text.rfind('/');
   if (slash != std::string_view::npos && slash > 0) {
      if (const auto levels = levelsOf(text.substr(slash + 1))) {
         return {std::string{text.substr(0, slash)}, *levels};
      }
   }
   throw std::invalid_argument{fmt::format("trace setting '{}': expected SOURCE/LEVELS with levels "
                                           "from 0 to {}, such as 'Name*/0-5,9'",
                                           text, traceLevelMost)};
}

std::vector<Entry> entriesOf(std::string_view setting) {
   constexpr std::string_view separators = " ;\t";
   std::vector<Entry> entries;
   while (true) {
      const std::size_t begin = setting.find_first_not_of(separators);
      if (begin == std::string_view::npos) {
         return entries;
      }
      const std::size_t end = std::min(setting.find_first_of(separators, begin), setting.size());
      entries.push_back(entryOf(setting.substr(begin, end - begin)));
      setting.remove_prefix(end);
   }
}

// All that the trace sources of the process share.
struct Registry {
   std::mutex mutex;
   std::vector<TraceSource*> sources;
   std::string setting;
   std::vector<Entry> entries;
   TraceSink sink;

   U32 levelsFor(std::string_view name) const {
      const auto last = std::find_if(entries.rbegin(), entries.rend(), [&](const Entry& entry) {
         return matches(entry.pattern, name);
      });
      return last == entries.rend() ? 0 : last->levels;
   }
};

// A setting that cannot be read is reported and ignored: somebody who wants to see what a process
// does must not stop it by a typing error.
void readEnvironment(Registry& registry) {
   const char* setting = std::getenv("FMTRACE");
   if (setting == nullptr) {
      return;
   }
   try {
      registry.entries = entriesOf(setting);
      registry.setting = setting;
   } catch (const std::invalid_argument& error) {
      std::fprintf(stderr, "FMTRACE ignored: %s\n", error.what());
   }
}

// Never destroyed: trace sources are static objects of other libraries, which may be destroyed
// after this library's.
Registry& registry() {
   static Registry& instance = []() -> Registry& {
      auto* made = new Registry;
      readEnvironment(*made);
      return *made;
   }();
   return instance;
}

void writeToStandardError(const TraceRecord& record) {
   const TracePoint& point = *record.point;
   const char* scope = point.className[0] == '\0' ? "" : "::";
   const std::string line = fmt::format("{} {} {}{}{}: {}\n", point.source->name(), point.level,
                                        point.className, scope, point.functionName, record.text);
   std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace

TraceSource::TraceSource(const char* name) : name_{name} {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   all.sources.push_back(this);
   levels_.store(all.levelsFor(name_), std::memory_order_relaxed);
}

TraceSource::~TraceSource() {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   std::erase(all.sources, this);
}

std::optional<U32> traceLevelBits(std::string_view text) {
   return levelsOf(text);
}

bool traceSourceFits(std::string_view pattern, std::string_view name) {
   return matches(pattern, name);
}

void traceLevelsIs(std::string_view setting) {
   std::vector<Entry> entries = entriesOf(setting);
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   all.entries = std::move(entries);
   all.setting = setting;
   for (TraceSource* source : all.sources) {
      source->levels_.store(all.levelsFor(source->name_), std::memory_order_relaxed);
   }
}

std::string traceLevels() {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   return all.setting;
}

void traceSinkIs(TraceSink sink) {
   Registry& all = registry();
   const std::lock_guard lock{all.mutex};
   // The parameter now holds the old sink and is destroyed after the lock is released: what the old
   // sink holds may trace while it is destroyed.
   std::swap(all.sink, sink);
}

void fmtrace(const TracePoint& point, fmt::string_view format, fmt::format_args args) {
   const std::string text = fmt::vformat(format, args);
   const TraceRecord record{&point, text};
   // A copy, called without the lock: a sink may trace or set another sink.
   TraceSink sink;
   {
      Registry& all = registry();
      const std::lock_guard lock{all.mutex};
      sink = all.sink;
   }
   if (sink) {
      sink(record);
   } else {
      writeToStandardError(record);
   }
}

} // namespace Pello
