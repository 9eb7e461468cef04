#include "Ringlog/Trace.h"

#include "Pello/Format.h"

#include <fmt/args.h>

#include <bit>
#include <cstdint>

namespace Ringlog::Detail {

void writeText(const CallSite& site, std::span<const ErasedArgument> arguments) {
   fmt::dynamic_format_arg_store<fmt::format_context> store;
   for (const ErasedArgument& argument : arguments) {
      switch (argument.code) {
      case 'u':
         store.push_back(argument.bits);
         break;
      case 'i':
         store.push_back(static_cast<std::int64_t>(argument.bits));
         break;
      case 'c':
         store.push_back(static_cast<char>(argument.bits));
         break;
      case 'b':
         store.push_back(argument.bits != 0);
         break;
      // Through double and back: fmt prints a float with the digits of a float, 0.1 and not
      // 0.10000000149011612.
      case 'f':
         store.push_back(static_cast<float>(std::bit_cast<double>(argument.bits)));
         break;
      case 'd':
         store.push_back(std::bit_cast<double>(argument.bits));
         break;
      case 's':
         store.push_back(fmt::string_view{argument.text.data(), argument.text.size()});
         break;
      default:
         store.push_back(argument.print(argument.value));
      }
   }
   Pello::fmtrace(site.point, site.point.format, store);
}

} // namespace Ringlog::Detail
