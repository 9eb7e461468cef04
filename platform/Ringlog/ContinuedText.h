// `ContinuedText`: an argument of a trace, a text that begins as one that was traced before. The
// ring gets a reference to the earlier text and what follows the common beginning; a reader and the
// text trace get the whole text. Relies on the writer of the calling thread.
//
//   Ringlog::TextMark mark;    // kept between the traces
//   RINGLOG_TRACE(5, "{}", (Ringlog::ContinuedText{name, 0, mark, mark}));
//   RINGLOG_TRACE(5, "{}", (Ringlog::ContinuedText{longer, name.size(), mark, mark}));
//
// Meant for names that grow part by part and are traced after each part. For other texts the
// reference costs more than it saves.
#pragma once

#include "Ringlog/detail/TextBytes.h"
#include "Ringlog/detail/Writer.h"

#include <cstring>
#include <string_view>

namespace Ringlog {

// Where a text stands in the ring. A new mark stands nowhere. A mark loses its meaning by itself
// when the thread goes on to another block, or when another thread uses the mark; texts are written
// whole then. Used by one thread at a time.
struct TextMark {
   U64 claim = 0;      // the `Writer::claim` of the block; 0: nowhere
   U16 place = 0;      // as in `TextReference`
   U16 references = 0; // how many references a reader follows to put the text together
};

struct ContinuedText {
   // The whole text. Borrowed during the trace.
   std::string_view text;
   // How many bytes at its beginning are also the first bytes of the text at `earlier`. At most the
   // size of `text`. Has no meaning while `earlier` stands nowhere.
   std::size_t common;
   // The mark of a text that was traced before: not one that another argument of the same trace
   // sets, because readers look for the text in earlier records only.
   const TextMark& earlier;
   // The trace sets it to where a reader finds this text. May be the object `earlier`.
   TextMark& own;

   operator std::string_view() const noexcept { return text; }
};

namespace Detail {

// Whether `text` is written as a reference: the earlier text stands in the thread's present block.
// A text that would be cut is not, because its mark would promise bytes that the ring does not
// have.
inline bool isReferred(const ContinuedText& text) noexcept {
   return text.earlier.claim == writer.claim && text.earlier.references < mostReferences &&
          text.text.size() <= longestText;
}

// The bytes that `writeContinued` takes. The answer holds until the thread's block changes.
inline std::size_t continuedSize(const ContinuedText& text) noexcept {
   return isReferred(text) ? padded(textReferenceSize + text.text.size() - text.common)
                           : textSize(text.text);
}

// Writes the argument and its mark, and returns where the next argument begins. Requires
// `continuedSize(text)` bytes at `to`, in the thread's present block.
inline std::byte* writeContinued(std::byte* to, const ContinuedText& text) noexcept {
   const auto place = static_cast<U16>((to - recordsOf(writer)) / 8);
   if (!isReferred(text)) {
      text.own = text.text.size() <= longestText ? TextMark{writer.claim, place, 0} : TextMark{};
      return writeText(to, text.text);
   }
   const std::size_t rest = text.text.size() - text.common;
   const auto lengths = TextReference::isReference |
                        static_cast<U32>(text.common) << TextReference::lengthBits |
                        static_cast<U32>(rest);
   std::memcpy(to, &lengths, sizeof lengths);
   std::memcpy(to + sizeof lengths, &text.earlier.place, sizeof text.earlier.place);
   copyText(to + textReferenceSize, text.text.data() + text.common, rest);
   // A text that adds nothing needs no place of its own, and so makes no chain longer.
   text.own = rest == 0
                    ? text.earlier
                    : TextMark{writer.claim, place, static_cast<U16>(text.earlier.references + 1)};
   return to + padded(textReferenceSize + rest);
}

} // namespace Detail

} // namespace Ringlog
