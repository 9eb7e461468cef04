// `kindOf`: what a message of the helper means for whoever drives it. The helper lies in a module
// and speaks in texts; this header is the only place outside the module that knows their wording.
#pragma once

#include <cstdint>
#include <string_view>

namespace Postcard::Host {

enum class HelperMessageKind : std::uint8_t {
   success,     // the empty message
   unsupported, // the policy asks for what rules cannot express
   refusal,     // any other reason
};

// `message` is what creating or re-creating a policy returned. The helper begins every message
// about an unsupported match or action with the word "Unsupported".
constexpr HelperMessageKind kindOf(std::string_view message) noexcept {
   if (message.empty()) {
      return HelperMessageKind::success;
   }
   return message.starts_with("Unsupported") ? HelperMessageKind::unsupported
                                             : HelperMessageKind::refusal;
}

// What the helper calls a policy without rules. It traces this text and returns success, so that
// who shows the policy has to say it.
inline constexpr std::string_view noRulesMessage = "No rules configured in policy";

} // namespace Postcard::Host
