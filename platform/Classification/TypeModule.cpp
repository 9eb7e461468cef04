#include "Classification/TypeModule.h"

#include "Classification/StructuredFilter.h"
#include "Kiv/HashMap2018.h"
#include "Kiv/Reflection.h"

KIV_DEFINE_VALUE(Classification::NumericalRange)
KIV_DEFINE_VALUE(Classification::TcpFlags)
KIV_DEFINE_VALUE(Classification::TcpFlagAndMask)
KIV_DEFINE_ENTITY(Classification::TcpUdpCheckSumOrIpId)
KIV_DEFINE_ENTITY(Classification::PortField)
KIV_DEFINE_ENTITY(Classification::ProtoField)
KIV_DEFINE_ENTITY(Classification::FragmentsMatch)
KIV_DEFINE_ENTITY(Classification::StructuredFilter)

namespace Classification {

const Kiv::TypeModule& typeModule() {
   static const Kiv::TypeModule module{"Classification",
                                       {
                                             &NumericalRange::kivTypeData(),
                                             &TcpFlags::kivTypeData(),
                                             &TcpFlagAndMask::kivTypeData(),
                                             &TcpUdpCheckSumOrIpId::kivTypeData(),
                                             &PortField::kivTypeData(),
                                             &ProtoField::kivTypeData(),
                                             &FragmentsMatch::kivTypeData(),
                                             &StructuredFilter::kivTypeData(),
                                       }};
   return module;
}

KIV_REGISTER_WHEN_LOADED(typeModule())

} // namespace Classification
