// `kindOf`: the kind of outcome that a message of the helper stands for. The helper lies in a
// module and returns texts. This header is the only place outside the module that knows their
// wording. Relies on nothing.
#pragma once

#include <cstdint>
#include <string_view>

namespace Postcard::Host {

enum class HelperMessageKind : std::uint8_t {
   success,     // the empty message
   unsupported, // the policy has a match or an action that rules cannot express
   refusal,     // any other reason
};

// The kind of `message`, which `createPolicy` or `recreatePolicy` returned. The helper begins every
// message about an unsupported match or action with the word "Unsupported".
constexpr HelperMessageKind kindOf(std::string_view message) noexcept {
   if (message.empty()) {
      return HelperMessageKind::success;
   }
   return message.starts_with("Unsupported") ? HelperMessageKind::unsupported
                                             : HelperMessageKind::refusal;
}

// The helper's words for a policy without rules. The helper only traces them and returns success,
// so a program that shows the state of a policy must add them itself.
inline constexpr std::string_view noRulesMessage = "No rules configured in policy";

} // namespace Postcard::Host
