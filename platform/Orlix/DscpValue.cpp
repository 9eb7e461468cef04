#include "Orlix/DscpValue.h"

#include "Kiv/Reflection.h"

KIV_DEFINE_VALUE(Orlix::DscpValue)
