#include "Pello/Ptr.h"

namespace Pello {

// Defined here, so that the class's virtual table stands in one library.
Counted::~Counted() = default;

void Counted::lastUserGone() const {
   delete this;
}

} // namespace Pello
