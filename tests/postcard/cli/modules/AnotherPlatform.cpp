// A module for another platform: its factory must not be called.
#include "Kiv/PlatformVersion.h"

#include <cstdlib>

extern "C" {

extern const U32 oruPostcardPlatformVersion;
const U32 oruPostcardPlatformVersion = Kiv::platformVersion + 1;

void* oruPostcardPolicyAclHelperFactory(void* clientConfig, const void* hwCapability);

void* oruPostcardPolicyAclHelperFactory(void*, const void*) {
   std::abort();
}

} // extern "C"
