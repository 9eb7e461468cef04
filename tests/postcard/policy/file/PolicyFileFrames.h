// `framed`: a whole policy file around a few lines, so that a row of a table shows only what it is
// about.

#pragma once

#include "postcard/policy/file/PolicyFile.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace Postcard::Policy::File {

// Where the lines of a row stand. All but `file` follow a policy `p` on the interface `e1`.
enum class Frame {
   file,   // they are the file
   policy, // from line 4 on: keys of the policy, indented by two
   klass,  // from line 6 on: keys of a class `c`, indented by four
   ipv4,   // from line 7 on: keys of its IPv4 filter, indented by six
   ipv6,   // the same of its IPv6 filter
};

inline std::string framed(Frame frame, std::string_view text) {
   std::string whole;
   if (frame != Frame::file) {
      whole += "policies:\n- name: p\n  interfaces: {ipv4: [e1], ipv6: [e1]}\n";
   }
   if (frame == Frame::klass || frame == Frame::ipv4 || frame == Frame::ipv6) {
      whole += "  classes:\n  - name: c\n";
   }
   if (frame == Frame::ipv4) {
      whole += "    ipv4:\n";
   }
   if (frame == Frame::ipv6) {
      whole += "    ipv6:\n";
   }
   return whole.append(text);
}

// A literal that may hold NUL bytes.
struct Literal {
   template <std::size_t N>
   constexpr Literal(const char (&text)[N]) : view(text, N - 1) {}

   std::string_view view;
};

// The findings without the file's name, one per line.
inline std::string findingsOf(const LoadResult& result) {
   std::string text;
   for (const Finding& finding : result.findings) {
      text += format("", finding).substr(1) + "\n";
   }
   return text;
}

// Whether a location is that of a character of the text or of its end.
inline bool isWithin(Location location, std::string_view text) {
   std::size_t line = 1;
   while (line < location.line && !text.empty()) {
      const std::size_t end = text.find_first_of("\r\n");
      const bool pair = end != std::string_view::npos && text.substr(end).starts_with("\r\n");
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + (pair ? 2 : 1));
      ++line;
   }
   std::size_t characters = 0;
   for (const char byte : text.substr(0, text.find_first_of("\r\n"))) {
      characters += (static_cast<unsigned char>(byte) & 0xc0U) != 0x80U ? 1U : 0U;
   }
   return line == location.line && location.column >= 1 && location.column <= characters + 1;
}

} // namespace Postcard::Policy::File
