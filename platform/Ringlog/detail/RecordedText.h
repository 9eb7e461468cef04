// `recordedText`: reads a text argument of a record, and puts it together where it refers to texts
// of earlier records. Relies on the layout. The bytes may be untrusted.
#pragma once

#include "Ringlog/detail/Cursor.h"

#include <cstddef>
#include <span>
#include <string>

namespace Ringlog::Detail {

// Reads the text at which `cursor` stands, and its padding. `earlier` has the block's records
// before the one that `cursor` reads. Throws DamagedRing when there is no such text: too few bytes,
// a text longer than `longestText`, a reference that does not point backwards to a text long
// enough, or more than `mostReferences`.
std::string recordedText(Cursor& cursor, std::span<const std::byte> earlier);

} // namespace Ringlog::Detail
