#include "postcard/policy/file/Findings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <tuple>
#include <utility>

namespace Postcard::Policy::File {

bool Findings::before(const Numbered& left, const Numbered& right) {
   return std::tie(left.finding.location, left.number) <
          std::tie(right.finding.location, right.number);
}

void Findings::add(Location location, FindingCode code, std::string message) {
   list_.push_back({{location, code, std::move(message)}, count_++});
   // Trimming takes linear time, so it waits until as many findings were added as are kept. The 64
   // does the same for a small `kept_`.
   if (list_.size() > 2 * kept_ + 64) {
      trim();
   }
}

// Removes all findings but the first `kept_` in file order.
void Findings::trim() {
   if (list_.size() > kept_) {
      const auto end = list_.begin() + static_cast<std::ptrdiff_t>(kept_);
      std::nth_element(list_.begin(), end, list_.end(), before);
      list_.erase(end, list_.end());
   }
}

std::vector<Finding> Findings::take() {
   trim();
   std::sort(list_.begin(), list_.end(), before);
   std::vector<Finding> result;
   result.reserve(list_.size());
   for (Numbered& numbered : list_) {
      result.push_back(std::move(numbered.finding));
   }
   list_.clear();
   return result;
}

std::string joined(std::span<const std::string_view> words) {
   return fmt::format("{}", fmt::join(words, ", "));
}

std::string unknownWord(std::string_view noun, std::string_view text,
                        std::span<const std::string_view> words) {
   return fmt::format("unknown {} {} (expected one of: {}){}", noun, inQuotes(text), joined(words),
                      didYouMean(closest(text, words)));
}

std::string duplicate(std::string_view noun, std::string_view text, Location first) {
   return fmt::format("duplicate {} {} (first at {}:{})", noun, text, first.line, first.column);
}

} // namespace Postcard::Policy::File
