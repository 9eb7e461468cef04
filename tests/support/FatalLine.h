// `fatalLine`: what standard error must show when the helper's contract is broken, as a pattern for
// death tests. The line is compared as a whole; only its line number is free. Relies on nothing.
#pragma once

#include "Pello/TextTrace.h"

#include <string>
#include <string_view>

namespace TestSupport {

// The pattern that matches exactly `text`.
inline std::string literally(std::string_view text) {
   std::string pattern;
   for (const char c : text) {
      if (std::string_view{R"(.[]{}()*+?^$|\)"}.find(c) != std::string_view::npos) {
         pattern += '\\';
      }
      pattern += c;
   }
   return pattern;
}

// The line of an assertion of the helper. `function` and `expression` as they read; the message may
// be empty.
inline std::string fatalLine(std::string_view function, std::string_view expression,
                             std::string_view message = {}) {
   std::string rest{function};
   rest.append(": Assertion '").append(expression).append("' failed");
   if (!message.empty()) {
      rest.append(": ").append(message);
   }
   return "(^|\n)" + literally("OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper:") +
          "[0-9]+: " + literally(rest) + "\n";
}

// The same, with the trace of level 0 that states the error in the line before.
inline std::string errorThenFatalLine(std::string_view operation, std::string_view error,
                                      std::string_view function, std::string_view expression) {
   return "(^|\n)" +
          literally("OruPostcardTelemetryPolicyAclHelper 0 OruPostcardPolicyAclHelper::" +
                    std::string{operation} + ": " + std::string{error}) +
          fatalLine(function, expression).substr(5).insert(0, "\n");
}

// Makes errors show on standard error, for the statement of a death test.
inline void showErrors() {
   Pello::traceLevelsIs("OruPostcardTelemetryPolicyAclHelper/0");
}

} // namespace TestSupport
