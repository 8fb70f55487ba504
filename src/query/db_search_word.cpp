#include "query/db_search_word.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_word.h"
#include "query/db_query_internal.h"
#include "query/db_search.h"

#include <bit>
#include <cstring>
#include <immintrin.h>

namespace findwright {

// --- Words of terms ----------------------------------------------------------------------------------------

// The pieces between wildcards.
static u64 _db_word_of_wildcards(const char *text, u32 length) {
    u64 word = 0;
    u32 start = 0;
    for (u32 i = 0; i <= length; i++) {
        if (i != length && text[i] != '*' && text[i] != '?')
            continue;
        word |= db_word_of_text(text + start, i - start);
        start = i + 1;
    }
    return word;
}

static u64 _db_word_of_op(u32 op, const char *text, u32 length) {
    db_op_parts_t parts = db_op_decode(op);
    if (parts.path || parts.negated)
        return 0;
    switch (parts.family) {
    case DB_OP_FIND:
    case DB_OP_EQUAL:
    case DB_OP_STARTS_WITH:
    case DB_OP_ENDS_WITH: return db_word_of_text(text, length);
    case DB_OP_WILDCARD:
    case DB_OP_WILDCARD_FIND: return _db_word_of_wildcards(text, length);
    case DB_OP_REGEX: return db_regex_get_word(text, length);
    default: return 0;
    }
}

u64 db_term_get_word(const db_exec_term_t *term) {
    return _db_word_of_op(term->op, term->text, term->text_length);
}

u64 db_term_get_matcher_word(const db_exec_term_t *term) {
    return _db_word_of_op(term->matcher_op, term->text, term->text_length);
}

// --- Filters -----------------------------------------------------------------------------------------------

// A chain of more terms is run without a filter.
static constexpr u32 FILTER_TERMS_MAX = 512;

// Adds an alternative. Where there is no room, the two that have the most in common become one.
static void _db_word_filter_add(db_word_filter_t *filter, u64 word) {
    for (u32 i = 0; i < filter->count; i++) {
        if ((filter->words[i] & word) == filter->words[i])
            return; // a looser one is there
    }
    if (filter->count < DB_WORD_FILTER_MAX) {
        filter->words[filter->count++] = word;
        return;
    }
    u64 all[DB_WORD_FILTER_MAX + 1];
    std::memcpy(all, filter->words, sizeof filter->words);
    all[DB_WORD_FILTER_MAX] = word;
    u32 best_a = 0, best_b = 1;
    int best = -1;
    for (u32 a = 0; a < DB_WORD_FILTER_MAX; a++) {
        for (u32 b = a + 1; b <= DB_WORD_FILTER_MAX; b++) {
            int common = std::popcount(all[a] & all[b]);
            if (common > best) {
                best = common;
                best_a = a;
                best_b = b;
            }
        }
    }
    u64 merged = all[best_a] & all[best_b];
    filter->count = 0;
    for (u32 i = 0; i <= DB_WORD_FILTER_MAX; i++) {
        if (i != best_a && i != best_b)
            filter->words[filter->count++] = all[i];
    }
    _db_word_filter_add(filter, merged);
}

// What a term asks of a name that it matches.
static void _db_word_filter_of_term(db_word_filter_t *filter, const db_exec_term_t *term) {
    filter->count = 0;
    db_op_parts_t parts = db_op_decode(term->op);
    if (parts.family == DB_OP_FALSE)
        return;
    if (parts.family == DB_OP_EXTENSION && !parts.negated && term->data) {
        const db_extensions_t *extensions = static_cast<const db_extensions_t *>(term->data);
        for (u32 i = 0; i < extensions->count; i++)
            _db_word_filter_add(filter,
                                db_word_of_text(extensions->items[i].text, extensions->items[i].length));
        return;
    }
    _db_word_filter_add(filter, term->word);
}

void db_word_filter_make(db_word_filter_t *filter, const db_exec_term_t *first_term) {
    filter->count = 1;
    filter->words[0] = 0;
    const db_exec_term_t *terms[FILTER_TERMS_MAX];
    u32 count = 0;
    for (const db_exec_term_t *term = first_term; term; term = term->link) {
        if (count == FILTER_TERMS_MAX)
            return;
        terms[count++] = term;
    }
    // From the last term back: what is still asked from a term on. Ways lead to later terms only.
    db_word_filter_t *rest = static_cast<db_word_filter_t *>(mem_alloc((count + 1) * sizeof *rest));
    for (u32 i = count; i-- != 0;) {
        const db_exec_term_t *term = terms[i];
        db_word_filter_t own;
        _db_word_filter_of_term(&own, term);
        db_word_filter_t *all = &rest[i];
        all->count = 0;
        const db_word_filter_t accept = {1, {0}};
        const db_word_filter_t *next = term->next ? &rest[term->next->number] : &accept;
        for (u32 a = 0; a < own.count; a++) {
            for (u32 b = 0; b < next->count; b++)
                _db_word_filter_add(all, own.words[a] | next->words[b]);
        }
        if (term->notnext && term->op != DB_OP_TRUE) {
            const db_word_filter_t *notnext = &rest[term->notnext->number];
            for (u32 b = 0; b < notnext->count; b++)
                _db_word_filter_add(all, notnext->words[b]);
        }
    }
    *filter = rest[0];
    mem_free(rest);
}

// --- The run -----------------------------------------------------------------------------------------------

static inline bool _db_word_passes(const db_word_filter_t *filter, u64 word) {
    for (u32 i = 0; i < filter->count; i++) {
        if ((word & filter->words[i]) == filter->words[i])
            return true;
    }
    return false;
}

static u32 _db_word_filter_run_plain(const db_word_filter_t *filter, const u64 *words, const u32 *values,
                                     u32 count, u32 *out) {
    u32 found = 0;
    for (u32 i = 0; i < count; i++) {
        bool passes = _db_word_passes(filter, words[i]);
        out[found] = values[i];
        found += passes;
    }
    return found;
}

// Which of sixteen words pass, one bit each.
__attribute__((target("avx2"))) static inline u32 _db_word_mask(const u64 *words, u64 wanted) {
    __m256i want = _mm256_set1_epi64x(static_cast<long long>(wanted));
    u32 mask = 0;
    for (u32 i = 0; i < 16; i += 4) {
        __m256i word = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(words + i));
        __m256i equal = _mm256_cmpeq_epi64(_mm256_and_si256(word, want), want);
        mask |= static_cast<u32>(_mm256_movemask_pd(_mm256_castsi256_pd(equal))) << i;
    }
    return mask;
}

__attribute__((target("avx2,bmi"))) static u32 _db_word_filter_run_avx2(const db_word_filter_t *filter,
                                                                        const u64 *words, const u32 *values,
                                                                        u32 count, u32 *out) {
    u32 found = 0;
    u32 i = 0;
    for (; i + 16 <= count; i += 16) {
        u32 mask = 0;
        for (u32 n = 0; n < filter->count; n++)
            mask |= _db_word_mask(words + i, filter->words[n]);
        for (; mask != 0; mask &= mask - 1)
            out[found++] = values[i + static_cast<u32>(__builtin_ctz(mask))];
    }
    return found + _db_word_filter_run_plain(filter, words + i, values + i, count - i, out + found);
}

u32 db_word_filter_run(const db_word_filter_t *filter, const u64 *words, const u32 *values, u32 count,
                       u32 *out) {
    // The tests choose the instructions of all scans by one switch.
    return db_find_scans_get() == &db_find_scans_avx2
               ? _db_word_filter_run_avx2(filter, words, values, count, out)
               : _db_word_filter_run_plain(filter, words, values, count, out);
}

} // namespace findwright
