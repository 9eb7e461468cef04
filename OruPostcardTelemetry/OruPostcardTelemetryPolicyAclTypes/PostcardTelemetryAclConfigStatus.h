// `PostcardTelemetryAclConfigStatus`: the history of an ACL configuration: the rules client's
// answers about it, oldest first. Relies on the type framework.
#pragma once

#include "Kiv/Entity.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/String.h"

namespace OruPostcardTelemetry {

class PostcardTelemetryAclConfigStatus : public Kiv::Entity {
   KIV_ENTITY(PostcardTelemetryAclConfigStatus, Kiv::Entity,
              "OruPostcardTelemetry::PostcardTelemetryAclConfigStatus");
   // The answers' texts in ascending order of their keys. An empty text is an entry like any other;
   // `statusInOrder(key)` and `statusInOrderDel(key)` return the empty text for an absent key.
   KIV_RULED_COLLECTION(130, statusInOrder, Kiv::RbTreeMap<U32, Pello::String>);
   // The key under which the next text is stored. Whoever stores a text raises it; removing texts
   // does not change it.
   KIV_ATTRIBUTE(131, U32, currentIndex);

 public:
   using KivStatusInOrder = Kiv::RbTreeMap<U32, Pello::String>::Node;

   // Makes an empty history with `currentIndex` 0.
   PostcardTelemetryAclConfigStatus() = default;

   // Stores `text` under `key`, in place of the text that is there. The only function of that name
   // and no template, so that its address can be taken.
   void statusInOrderIs(U32 key, const Pello::String& text) {
      statusInOrder_.is(Kiv::collectionReport<statusInOrderId>(*this), key, text);
   }
};

// Both return a new history; neither looks anything up.
Pello::Ptr<PostcardTelemetryAclConfigStatus> postcardTelemetryAclConfigStatusFactory();
inline Pello::Ptr<PostcardTelemetryAclConfigStatus> PostcardTelemetryAclConfigStatusIs() {
   return postcardTelemetryAclConfigStatusFactory();
}

} // namespace OruPostcardTelemetry
