#include "postcard/agent/PolicyReport.h"

#include "Pello/VisibleCharacters.h"

#include <fmt/format.h>

#include <utility>

namespace Postcard::Agent {

std::string_view policyStateName(PolicyState state) {
   switch (state) {
   case PolicyState::invalid:
      return "invalid";
   case PolicyState::unsupported:
      return "unsupported";
   case PolicyState::empty:
      return "empty";
   case PolicyState::waiting:
      return "waiting";
   case PolicyState::programmed:
      return "programmed";
   case PolicyState::failed:
      return "failed";
   case PolicyState::removed:
      return "removed";
   }
   return "?"; // not reached: every enumerator has its case
}

std::string ReloadFinding::line() const {
   if (family) {
      return fmt::format("{} {}: {}", policy, familyName(*family), text);
   }
   std::string place = Pello::escaped(file);
   if (location.line != 0) {
      place += fmt::format(":{}:{}", location.line, location.column);
   }
   return place.empty() ? text : place + ": " + text;
}

std::string ReloadFinding::lines(std::string_view indent) const {
   return std::string{indent} + line() + "\n" +
          Report::text(keys, file, std::string{indent} + "   ");
}

std::string ReloadResult::text() const {
   std::string text;
   for (const ReloadFinding& finding : findings) {
      text += (accepted ? "left out: " : "") + finding.lines();
   }
   if (omittedFindings != 0) {
      text += findings.front().file + ": … and " + std::to_string(omittedFindings) + " more\n";
   }
   if (accepted) {
      text += std::to_string(operations) + (operations == 1 ? " operation\n" : " operations\n");
   }
   return text;
}

ReloadResult refusedReload(std::string code, std::string text, std::string file) {
   ReloadResult result;
   result.unusableFile = true;
   result.findings.push_back(
         {std::move(file), {}, {}, std::nullopt, std::move(code), std::move(text)});
   return result;
}

} // namespace Postcard::Agent
