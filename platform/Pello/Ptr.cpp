#include "Pello/Ptr.h"

namespace Pello {

Counted::~Counted() = default;

void Counted::lastUserGone() const {
   delete this;
}

} // namespace Pello
