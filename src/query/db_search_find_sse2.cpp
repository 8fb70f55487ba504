// The vector scan with SSE2, which every x86-64 processor has.
#include "base/utf8_match.h"
#include "query/db_search.h"

#include <emmintrin.h>

#define FIND_TARGET
#define FIND_NO_SANITIZE __attribute__((no_sanitize("address", "undefined")))

namespace findwright {

static constexpr u32 FIND_WIDTH = 16;
using find_vector_t = __m128i;

// The arena may be poisoned right behind a name.
FIND_NO_SANITIZE static inline find_vector_t find_load(const char *p) {
    find_vector_t value;
    __asm__("movdqu %1, %0" : "=x"(value) : "m"(*reinterpret_cast<const char(*)[16]>(p)));
    return value;
}
static inline find_vector_t find_or(find_vector_t a, find_vector_t b) {
    return _mm_or_si128(a, b);
}
static inline find_vector_t find_and(find_vector_t a, find_vector_t b) {
    return _mm_and_si128(a, b);
}
static inline find_vector_t find_equal(find_vector_t a, find_vector_t b) {
    return _mm_cmpeq_epi8(a, b);
}
static inline find_vector_t find_set(u8 byte) {
    return _mm_set1_epi8(static_cast<char>(byte));
}
static inline u32 find_mask(find_vector_t a) {
    return static_cast<u32>(_mm_movemask_epi8(a));
}

#include "query/db_search_find.inl"

const db_find_scans_t db_find_scans_sse2 = _find_make_scans();

} // namespace findwright
