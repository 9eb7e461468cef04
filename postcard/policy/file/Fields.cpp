#include "postcard/policy/file/Fields.h"

#include "postcard/policy/Words.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <vector>

namespace Postcard::Policy::File {

Fields::Fields(const Node& mapping, Shape shape, const Values& values)
   : shape_{&shapeOf(shape)}, fields_{} {
   assert(shape_->keys.size() <= mostKeys);
   if (mapping.kind != NodeKind::mapping) {
      values.mismatch(mapping, "a mapping", shape_->noun);
      return;
   }
   forEachField(mapping, [&](const Node& key, const Node& value) { take(key, value, values); });
   reportMissing(mapping, values);
}

std::size_t Fields::indexOf(std::string_view key) const {
   const auto row = std::find_if(shape_->keys.begin(), shape_->keys.end(),
                                 [key](const KeyRow& candidate) { return candidate.name == key; });
   assert(row != shape_->keys.end());
   return static_cast<std::size_t>(row - shape_->keys.begin());
}

bool Fields::lacks(std::string_view key) const {
   const Field& field = fields_[indexOf(key)];
   return field.key == nullptr && !field.meant;
}

void Fields::take(const Node& key, const Node& value, const Values& values) {
   for (std::size_t i = 0; i < shape_->keys.size(); ++i) {
      if (shape_->keys[i].name == key.text) {
         if (fields_[i].key == nullptr) { // else a repetition, which the document has reported
            fields_[i].key = &key;
            fields_[i].value = &value;
         }
         return;
      }
   }
   reportUnknown(key, values);
}

void Fields::reportUnknown(const Node& key, const Values& values) {
   std::vector<std::string_view> words;
   words.reserve(shape_->keys.size());
   for (const KeyRow& row : shape_->keys) {
      words.push_back(row.name);
   }
   values.findings().add(key.location, FindingCode::unknownKey,
                         unknownWord("key", key.text, words));
   if (const std::string_view guess = closest(key.text, words); !guess.empty()) {
      fields_[indexOf(guess)].meant = true;
   }
}

// A key that is missing because it is misspelt has the finding about the unknown key already.
void Fields::reportMissing(const Node& mapping, const Values& values) const {
   for (std::size_t i = 0; i < shape_->keys.size(); ++i) {
      const KeyRow& row = shape_->keys[i];
      if (row.required && lacks(row.name)) {
         values.findings().add(mapping.location, FindingCode::missingKey,
                               fmt::format("missing key '{}' in {}", row.name, shape_->noun));
      }
   }
}

} // namespace Postcard::Policy::File
