#include "postcard/policy/Finding.h"

#include <array>
#include <cstddef>

namespace Postcard::Policy {

namespace {

struct CodeRow {
   FindingCode code;
   std::string_view name;
};

// In the order of `FindingCode`.
constexpr auto codeRows = std::to_array<CodeRow>({
      {FindingCode::unreadable, "unreadable"},
      {FindingCode::tooLarge, "too-large"},
      {FindingCode::encoding, "encoding"},
      {FindingCode::character, "character"},
      {FindingCode::syntax, "syntax"},
      {FindingCode::construct, "construct"},
      {FindingCode::alias, "alias"},
      {FindingCode::duplicateKey, "duplicate-key"},
      {FindingCode::unknownKey, "unknown-key"},
      {FindingCode::missingKey, "missing-key"},
      {FindingCode::wrongValue, "wrong-value"},
      {FindingCode::unknownWord, "unknown-word"},
      {FindingCode::unknownDefinition, "unknown-definition"},
      {FindingCode::badName, "bad-name"},
      {FindingCode::badPrefix, "bad-prefix"},
      {FindingCode::wrongFamily, "wrong-family"},
      {FindingCode::reversedRange, "reversed-range"},
      {FindingCode::duplicate, "duplicate"},
      {FindingCode::duplicatePriority, "duplicate-priority"},
      {FindingCode::outsideMask, "outside-mask"},
      {FindingCode::emptyMask, "empty-mask"},
      {FindingCode::badRate, "bad-rate"},
      {FindingCode::conflict, "conflict"},
      {FindingCode::noInterfaces, "no-interfaces"},
      {FindingCode::portEntries, "port-entries"},
      {FindingCode::tooManyRules, "too-many-rules"},
      {FindingCode::unexpected, "unexpected"},
});
// A code without a row would make `codeName` read past the table.
static_assert(codeRows.size() == static_cast<std::size_t>(FindingCode::unexpected) + 1);

constexpr auto codes = [] {
   std::array<FindingCode, codeRows.size()> list{};
   for (std::size_t i = 0; i < list.size(); ++i) {
      list[i] = codeRows[i].code;
   }
   return list;
}();

constexpr bool inOrder() {
   for (std::size_t i = 0; i < codes.size(); ++i) {
      if (static_cast<std::size_t>(codes[i]) != i) {
         return false;
      }
   }
   return true;
}
static_assert(inOrder());

} // namespace

std::string_view codeName(FindingCode code) {
   return codeRows[static_cast<std::size_t>(code)].name;
}

std::span<const FindingCode> allFindingCodes() {
   return codes;
}

} // namespace Postcard::Policy
