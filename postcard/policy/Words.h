// Words of users in messages: `inQuotes` writes one, `closest` finds the one that was probably
// meant, `didYouMean` asks for it. Relies on `Pello::escaped`.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Postcard::Policy {

// `text` in single quotes for a message: as `Pello::escaped` writes it, and cut with an ellipsis
// after 60 characters.
std::string inQuotes(std::string_view text);

// The word that `text` most likely misspells, or the empty text. Misspelt means that at most two
// bytes, and fewer than half of those of the word, were inserted, removed or replaced. Of several
// such words, the closest and among those the first. Texts and words of more than 32 bytes are
// never compared. The result is one of `words`, not a copy of it.
std::string_view closest(std::string_view text, std::span<const std::string_view> words);

// "; did you mean 'GUESS'?", or the empty text for an empty guess: the end of a message about a
// word that is wrong.
std::string didYouMean(std::string_view guess);

} // namespace Postcard::Policy
