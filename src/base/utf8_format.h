// The program's formatter: printf with conversions of its own, none of them dependent on the locale.
//
//   %d %u %x %X              i32 and u32; %x lower, %X upper case
//   %I64d %I64u %I64x %I64X  64-bit values
//   %p %P                    a pointer: at least 8 hexadecimal digits, no prefix; %P in upper case
//   %f                       u32 of microseconds, as seconds with 6 decimals
//   %s %S                    terminated UTF-8 or UTF-16 text; 0 is empty
//   %t %T                    pointer and u32 length: UTF-8 bytes, or UTF-16 units
//   %c %%                    one byte, and a percent sign
//
// Between the % and the letters of a number may stand a 0 (fill with zeros, not blanks) and a decimal width.
// A
// `-` stands in front of zeros and behind blanks. Any other character after the % is copied by itself.
//
// Any thread may call.
#pragma once

#include "base/types.h"

#include <cstdarg>

namespace findwright {

// Writes the text and a terminator to `out`, or with `out` 0 only counts. Returns the bytes of the text,
// without the terminator. `args` stays where it is, so that one list can be counted and then written.
u32 utf8_format(char *out, const char *format, va_list args);
// True when both formats take the same arguments, in the same order: one may stand in for the other. Widths
// and kinds of digits do not count.
bool utf8_format_takes_same(const char *a, const char *b);
// A formatted copy on the heap, freed with mem_free.
char *utf8_alloc_format(const char *format, ...);
char *utf8_alloc_vformat(const char *format, va_list args);

} // namespace findwright
