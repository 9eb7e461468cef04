// `TraceCapture`: collects every text trace while it lives, all levels of all sources, as lines
// "level text". Relies on the text trace only.
#pragma once

#include "Pello/TextTrace.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

// One trace, with what its call site says of itself.
struct CapturedTrace {
   unsigned level;
   std::string text;
   std::string source;
   std::string className;
   std::string functionName;
};

class TraceCapture {
 public:
   TraceCapture() : before_{Pello::traceLevels()} {
      Pello::traceLevelsIs("*/0-9");
      Pello::traceSinkIs([this](const Pello::TraceRecord& record) {
         const Pello::TracePoint& point = *record.point;
         traces_.push_back({point.level, std::string{record.text}, point.source->name(),
                            point.className, point.functionName});
      });
   }
   TraceCapture(const TraceCapture&) = delete;
   TraceCapture& operator=(const TraceCapture&) = delete;
   ~TraceCapture() {
      Pello::traceSinkIs({});
      Pello::traceLevelsIs(before_);
   }

   const std::vector<CapturedTrace>& traces() const { return traces_; }
   void clear() { traces_.clear(); }

   // "level text" of every trace, in order.
   std::vector<std::string> lines() const {
      std::vector<std::string> lines;
      for (const CapturedTrace& trace : traces_) {
         lines.push_back(std::to_string(trace.level) + " " + trace.text);
      }
      return lines;
   }

   // The same, without the traces of entry into an operation, which have no text.
   std::vector<std::string> linesWithText() const {
      std::vector<std::string> lines = this->lines();
      std::erase_if(lines, [](const std::string& line) { return line == "8 "; });
      return lines;
   }

   // How many traces read exactly so.
   std::size_t count(std::string_view line) const {
      const auto all = lines();
      return static_cast<std::size_t>(std::ranges::count(all, line));
   }

 private:
   std::string before_;
   std::vector<CapturedTrace> traces_;
};

} // namespace TestSupport
