// Fixed-width numbers, and what the whole program assumes of its compiler.
#pragma once

#include <cstddef>
#include <cstdint>

namespace findwright {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using i8 = std::int8_t;
using i16 = std::int16_t;
using i32 = std::int32_t;
using i64 = std::int64_t;

// All text is UTF-8 in char, and is compared byte by byte as numbers 0 to 255.
static_assert(static_cast<char>(-1) > 0, "compile with -funsigned-char");

// Sizes and dates that are not known are all ones; unknown attributes are 0.
inline constexpr u64 VALUE_UNKNOWN = ~static_cast<u64>(0);

} // namespace findwright
