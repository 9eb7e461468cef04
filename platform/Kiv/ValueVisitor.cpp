#include "Kiv/ValueVisitor.h"

namespace Kiv {

ValueVisitor::~ValueVisitor() = default;

} // namespace Kiv
