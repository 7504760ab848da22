// The program's basic integer types.
//
// A "word" is an unsigned 64-bit integer; big numbers are little-endian word
// arrays in radix 2^64 and every length and exponent counts words.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelvane {

using u8 = std::uint8_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using s32 = std::int32_t;
using s64 = std::int64_t;
__extension__ typedef unsigned __int128 u128;
__extension__ typedef __int128 s128;

} // namespace kelvane
