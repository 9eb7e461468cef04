// `PostcardTelemetryAclConfigStatus`: what the rules client has answered about an ACL, oldest
// first.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/String.h"

namespace OruPostcardTelemetry {

class PostcardTelemetryAclConfigStatus : public Kiv::Entity {
   KIV_ENTITY(PostcardTelemetryAclConfigStatus, Kiv::Entity,
              "OruPostcardTelemetry::PostcardTelemetryAclConfigStatus");
   // An empty text is an entry like any other; an absent one reads as the empty text.
   KIV_COLLECTION(130, statusInOrder, Kiv::RbTreeMap<U32, Pello::String>);
   KIV_ATTRIBUTE(131, U32, currentIndex); // the key that the next text takes

 public:
   using KivStatusInOrder = Kiv::RbTreeMap<U32, Pello::String>::Node;

   PostcardTelemetryAclConfigStatus() = default;

   // Enters `text` under `key` in place of another one.
   void statusInOrderIs(U32 key, const Pello::String& text) { statusInOrderIs<>(key, text); }
};

// Makes a new history without texts.
Pello::Ptr<PostcardTelemetryAclConfigStatus> postcardTelemetryAclConfigStatusFactory();
inline Pello::Ptr<PostcardTelemetryAclConfigStatus> PostcardTelemetryAclConfigStatusIs() {
   return postcardTelemetryAclConfigStatusFactory();
}

} // namespace OruPostcardTelemetry
