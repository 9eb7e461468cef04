#include "L3/VrfName.h"

#include "Kiv/Reflection.h"

KIV_DEFINE_VALUE(L3::VrfName)
