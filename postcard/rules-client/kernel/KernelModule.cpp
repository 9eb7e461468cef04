// The symbols by which the library is opened as a rules client: see `ClientModule.h`.
#include "Kiv/PlatformVersion.h"
#include "postcard/rules-client/kernel/KernelClient.h"

extern "C" {
extern const U32 postcardClientPlatformVersion;
const U32 postcardClientPlatformVersion = Kiv::platformVersion;

Postcard::RulesClient::ModuleClient*
postcardClientFactory(const Postcard::RulesClient::ClientOptions& options);
Postcard::RulesClient::ModuleClient*
postcardClientFactory(const Postcard::RulesClient::ClientOptions& options) {
   return new Postcard::RulesClient::KernelClient{options};
}
}
