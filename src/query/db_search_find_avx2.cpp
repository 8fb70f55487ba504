// The vector scan with AVX2, for processors that have it. Only the functions of this file use its
// instructions: what it takes from headers stays for every processor.
#include "base/utf8_match.h"
#include "query/db_search.h"

#include <immintrin.h>

#define FIND_TARGET __attribute__((target("avx2,bmi,bmi2")))
#define FIND_NO_SANITIZE __attribute__((no_sanitize("address", "undefined")))

namespace findwright {

static constexpr u32 FIND_WIDTH = 32;
using find_vector_t = __m256i;

// The arena may be poisoned right behind a name.
FIND_TARGET FIND_NO_SANITIZE static inline find_vector_t find_load(const char *p) {
    find_vector_t value;
    __asm__("vmovdqu %1, %0" : "=x"(value) : "m"(*reinterpret_cast<const char(*)[32]>(p)));
    return value;
}
FIND_TARGET static inline find_vector_t find_or(find_vector_t a, find_vector_t b) {
    return _mm256_or_si256(a, b);
}
FIND_TARGET static inline find_vector_t find_and(find_vector_t a, find_vector_t b) {
    return _mm256_and_si256(a, b);
}
FIND_TARGET static inline find_vector_t find_equal(find_vector_t a, find_vector_t b) {
    return _mm256_cmpeq_epi8(a, b);
}
FIND_TARGET static inline find_vector_t find_set(u8 byte) {
    return _mm256_set1_epi8(static_cast<char>(byte));
}
FIND_TARGET static inline u32 find_mask(find_vector_t a) {
    return static_cast<u32>(_mm256_movemask_epi8(a));
}

#include "query/db_search_find.inl"

const db_find_scans_t db_find_scans_avx2 = _find_make_scans();

} // namespace findwright
