#include "Ringlog/detail/RecordText.h"

#include "Kiv/TextParser.h"
#include "Kiv/TypeData.h"
#include "Kiv/TypeRegistry.h"
#include "Ringlog/detail/Cursor.h"
#include "Ringlog/detail/RecordedText.h"

#include <fmt/args.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace Ringlog {

namespace {

// Limits that no real trace reaches. A damaged format such as "{:999999999}" would fill the memory.
constexpr U64 widestField = 1024; // the width or precision of a replacement field
constexpr std::size_t longestRecord = std::size_t{16} * 1024 * 1024; // the characters of a text
// The nesting of composite values. Damaged kinds could nest as deep as there are kinds, and
// printing them is recursive.
constexpr unsigned deepestValue = 16;

// Which of the two texts of a registered type is wanted: its `displayText` or its `valueText`.
using Print = std::string (*Kiv::TypeData::*)(const void*);

std::string plainText(Cursor& cursor, const std::string& typeName, Print print) {
   const Kiv::TypeData* type = Kiv::findType(typeName);
   if (type == nullptr) {
      throw DamagedRing{"unknown type " + typeName};
   }
   alignas(std::max_align_t) std::byte value[64];
   // The type comes from the ring. For any other type than those of plain bytes, unchecked bytes
   // would be undefined behaviour, such as a string that is a stray pointer.
   if (!type->anyBytes || type->size > sizeof value) {
      throw DamagedRing{"type " + typeName + " is not one of plain bytes"};
   }
   std::memcpy(value, cursor.take(padded(type->size)).data(), type->size);
   return (type->*print)(value);
}

// The arguments of one record, decoded kind by kind into what fmt formats. The constructor throws
// DamagedRing. `spent` counts the characters that were produced; it is a reference, because the
// work for a record counts against the limit also when the constructor throws.
class ArgumentReader {
 public:
   ArgumentReader(const Descriptor& site, const RecordText::Place& record, std::size_t& spent)
      : kinds_{site.kinds},
        cursor_{record.arguments(), "the record"},
        earlier_{record.earlier()},
        spent_{spent} {
      while (!kinds_.empty()) {
         read();
      }
   }

   fmt::format_args arguments() const { return arguments_; }
   // The largest whole number among the arguments, which a format may use as a width.
   U64 largest() const noexcept { return largest_; }

 private:
   const Descriptor::Kind& take() {
      if (kinds_.empty()) {
         throw DamagedRing{"a value without an end"};
      }
      const Descriptor::Kind& kind = kinds_.front();
      kinds_ = kinds_.subspan(1);
      return kind;
   }

   void read() {
      const Descriptor::Kind& kind = take();
      switch (kind.code) {
      case 'u':
         return number(cursor_.plain<U64>());
      case 'i':
         return number(cursor_.plain<std::int64_t>());
      case 'c':
         return arguments_.push_back(static_cast<char>(cursor_.plain<U64>()));
      case 'b':
         return arguments_.push_back(cursor_.plain<U64>() != 0);
      case 'f':
         return arguments_.push_back(static_cast<float>(cursor_.plain<double>()));
      case 'd':
         return arguments_.push_back(cursor_.plain<double>());
      case 's':
         return text(Detail::recordedText(cursor_, earlier_));
      case 'v':
         return text(plainText(cursor_, kind.type, &Kiv::TypeData::displayText));
      case '(':
         return text(compositeText(kind, 0));
      default:
         throw DamagedRing{"an argument of an unknown kind"};
      }
   }

   template <class T>
   void number(T value) {
      largest_ = std::max(largest_, value < 0 ? U64{0} : static_cast<U64>(value));
      arguments_.push_back(value);
   }

   void text(const std::string& text) {
      spent_ += text.size();
      arguments_.push_back(text);
   }

   // `Name::Space::Type(first=…, second=…)`, the generic text of Kiv, from the kinds behind
   // `opening`.
   std::string compositeText(const Descriptor::Kind& opening, unsigned depth) {
      if (depth == deepestValue) {
         throw DamagedRing{"values nested too deeply"};
      }
      std::string out = opening.type;
      spent_ += out.size();
      char separator = '(';
      for (const Descriptor::Kind* kind = &take(); kind->code != ')'; kind = &take()) {
         out += separator;
         out += separator == ',' ? " " : "";
         separator = ',';
         const std::size_t before = out.size();
         out += kind->name + "=" + genericText(*kind, depth);
         spent_ += out.size() - before;
      }
      return out + ")";
   }

   // The generic text of an attribute. It differs from that of an argument: strings are quoted, and
   // plain values give their `valueText`. Kiv has no attributes of the kinds 'i', 'c' and 'f'.
   std::string genericText(const Descriptor::Kind& kind, unsigned depth) {
      std::string out;
      switch (kind.code) {
      case 'u':
         return std::to_string(cursor_.plain<U64>());
      case 'b':
         return cursor_.plain<U64>() != 0 ? "true" : "false";
      case 'd':
         Kiv::printReal(out, cursor_.plain<double>());
         return out;
      case 's':
         Kiv::printQuoted(out, Detail::recordedText(cursor_, earlier_));
         return out;
      case 'v':
         return plainText(cursor_, kind.type, &Kiv::TypeData::valueText);
      case '(':
         return compositeText(kind, depth + 1);
      default:
         throw DamagedRing{"an attribute of an unknown kind"};
      }
   }

   std::span<const Descriptor::Kind> kinds_;
   Cursor cursor_;
   std::span<const std::byte> earlier_; // the records before this one in the block
   fmt::dynamic_format_arg_store<fmt::format_context> arguments_;
   U64 largest_ = 0;
   std::size_t& spent_;
};

// What a format may cost. Found by counting braces and digits and not by parsing: the limits need
// upper bounds only, and fmt reports a format that is malformed.
struct Fields {
   std::size_t count = 0; // replacement fields, including those inside others
   U64 largest = 0;       // the largest number in a field: a width, a precision or an index
   bool dynamic = false;  // a field takes its width or precision from an argument
};

Fields fieldsOf(std::string_view format) {
   Fields fields;
   unsigned depth = 0;
   U64 number = 0;
   for (std::size_t i = 0; i < format.size(); ++i) {
      const char c = format[i];
      if (depth == 0 && format.substr(i).starts_with("{{")) {
         ++i; // "{{" stands for a brace in the text
         continue;
      }
      fields.count += c == '{' ? 1 : 0;
      depth += c == '{' ? 1 : 0;
      depth -= c == '}' && depth > 0 ? 1 : 0;
      fields.dynamic = fields.dynamic || depth > 1;
      const bool digit = depth > 0 && c >= '0' && c <= '9';
      // Kept below 2^32, so that a long row of digits does not overflow to a small number.
      number = digit ? std::min(number * 10 + static_cast<U64>(c - '0'), U64{1} << 32) : 0;
      fields.largest = std::max(fields.largest, number);
   }
   return fields;
}

std::string formatted(const Descriptor& site, const ArgumentReader& reader, std::size_t size) {
   const Fields fields = fieldsOf(site.format);
   if (fields.largest > widestField || (fields.dynamic && reader.largest() > widestField)) {
      throw DamagedRing{"a field wider than any trace asks for"};
   }
   // Each field may print the longest argument, which is at most all of them, padded to the width.
   if (fields.count * (size + widestField) > longestRecord) {
      throw DamagedRing{"longer than any trace"};
   }
   return fmt::vformat(site.format, reader.arguments());
}

} // namespace

DamagedRing::~DamagedRing() = default;

std::string RecordText::format(const Descriptor& site, const Place& record) {
   if (left_ == 0) {
      return "<left out: too much text>";
   }
   std::string text;
   std::size_t spent = 0;
   try {
      const ArgumentReader reader{site, record, spent};
      text = formatted(site, reader, spent);
   } catch (const std::exception& error) {
      text = fmt::format("<{}: {}>", site.format, error.what());
   }
   left_ -= std::min(left_, spent + text.size());
   return text;
}

} // namespace Ringlog
