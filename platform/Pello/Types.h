// `U8`, `U16`, `U32`, `U64`: the unsigned integers of fixed width. They stand in the global
// namespace because the plug-in's interface names them so.
#pragma once

#include <cstdint>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
