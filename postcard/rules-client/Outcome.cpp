#include "postcard/rules-client/Outcome.h"

namespace Postcard::RulesClient {

namespace {

constexpr std::string_view fullPrefix = "full:";
constexpr std::string_view invalidPrefix = "invalid:";

// The part of `text` after the prefix and one blank, which other rules clients may leave out.
std::string behind(std::string_view prefix, std::string_view text) {
   text.remove_prefix(prefix.size());
   return std::string{text.substr(text.starts_with(' ') ? 1 : 0)};
}

} // namespace

std::string textOf(const Outcome& outcome) {
   switch (outcome.kind) {
   case Outcome::full:
      return std::string{fullPrefix} + " " + outcome.text;
   case Outcome::invalid:
      return std::string{invalidPrefix} + " " + outcome.text;
   case Outcome::done:
   case Outcome::failed:
      break;
   }
   return outcome.text;
}

Outcome outcomeOf(bool succeeded, std::string_view text) {
   if (succeeded) {
      return {Outcome::done, std::string{text}};
   }
   if (text.starts_with(fullPrefix)) {
      return {Outcome::full, behind(fullPrefix, text)};
   }
   if (text.starts_with(invalidPrefix)) {
      return {Outcome::invalid, behind(invalidPrefix, text)};
   }
   return {Outcome::failed, std::string{text}};
}

} // namespace Postcard::RulesClient
