// The vector scan for a plain substring, included once per instruction set with
//   FIND_TARGET   the function attribute that allows its instructions
//   find_vector_t, find_load, find_or, find_equal, find_and, find_set, find_mask (one bit a byte)
// Bytes are compared FIND_WIDTH positions at a time: a position is a candidate when the byte there equals the
// term's first one and the byte at the term's other end the last one, each with the case bit set first where
// case does not matter. Reading past a name's end is harmless: what follows in the arena is masked away.
//
// A name with a byte above 127 in which no candidate holds goes the general way, unless the mode compares
// bytes.

// What a look at a name's bytes tells.
enum _find_result_t : u32 { FIND_NO, FIND_YES, FIND_GENERAL };

static constexpr bool _find_is_bytewise(utf8_mode_t mode) {
    return utf8_mode_is_bytewise(mode);
}

// Names up to this long are looked at with one mask of all their positions, without a loop whose end the
// processor would have to guess.
static constexpr u32 FIND_SHORT_NAME = 64;

FIND_TARGET static inline u64 _find_low_bits(u64 mask, u32 count) {
    return count >= 64 ? mask : mask & ((static_cast<u64>(1) << count) - 1);
}

// What is looked for, as vectors.
struct _find_needle_t {
    find_vector_t first, first_case, last, last_case;
    u32 distance; // from the first byte to the last
};

// The candidates among the 64 positions from `text` on, and the bytes above 127 there.
template<utf8_mode_t mode>
FIND_TARGET FIND_NO_SANITIZE static inline u64 _find_candidates(const char *text,
                                                                const _find_needle_t &needle, u64 *high) {
    u64 hits = 0;
    for (u32 i = 0; i < 64; i += FIND_WIDTH) {
        find_vector_t x = find_load(text + i), y = find_load(text + i + needle.distance);
        find_vector_t equal = find_and(find_equal(find_or(x, needle.first_case), needle.first),
                                       find_equal(find_or(y, needle.last_case), needle.last));
        hits |= static_cast<u64>(find_mask(equal)) << i;
        if (!_find_is_bytewise(mode))
            *high |= static_cast<u64>(find_mask(x)) << i;
    }
    return hits;
}

// True when the bytes between the first and the last one fit, too, at one of the candidates.
template<utf8_mode_t mode>
FIND_TARGET static bool _find_verify(const char *text, u64 hits, const db_exec_term_t *term) {
    for (; hits != 0; hits &= hits - 1) {
        const char *hit = text + __builtin_ctzll(hits);
        u32 i = 1;
        while (i + 1 < term->needle.length && utf8_mode_byte<mode>(hit[i]) == static_cast<u8>(term->text[i]))
            i++;
        if (i + 1 >= term->needle.length)
            return true;
    }
    return false;
}

// A name of any length, 64 positions at a time.
template<utf8_mode_t mode>
FIND_TARGET static u32 _find_in_long_name(const char *text, u32 length, const db_exec_term_t *term,
                                          const _find_needle_t &needle) {
    u64 high = 0;
    for (u32 start = 0; start < length; start += 64) {
        u64 high_here = 0;
        u32 positions = length - start > needle.distance ? length - start - needle.distance : 0;
        u64 hits = 0;
        if (positions != 0)
            hits = _find_low_bits(_find_candidates<mode>(text + start, needle, &high_here), positions);
        else
            _find_candidates<mode>(text + start,
                                   {needle.first, needle.first_case, needle.last, needle.last_case, 0},
                                   &high_here);
        if (_find_verify<mode>(text + start, hits, term))
            return FIND_YES;
        high |= _find_low_bits(high_here, length - start);
    }
    return high != 0 ? FIND_GENERAL : FIND_NO;
}

// A term that is not ASCII, in a mode that folds: only names that are not ASCII either can hold it.
FIND_TARGET FIND_NO_SANITIZE static u32 _find_high_byte(const char *text, u32 length) {
    u64 high = 0;
    for (u32 start = 0; start < length; start += FIND_WIDTH)
        high |= _find_low_bits(find_mask(find_load(text + start)), length - start);
    return high != 0 ? FIND_GENERAL : FIND_NO;
}

template<utf8_mode_t mode, bool whole_word>
static bool _find_general(const char *text, u32 length, const db_exec_term_t *term) {
    if constexpr (whole_word)
        return utf8_find_word<mode>(text, length, term->text, term->text_length);
    else
        return utf8_find<mode>(text, length, term->text, term->text_length);
}

// `pair`: the term has no byte between its first and its last one, so that a candidate is a hit.
template<utf8_mode_t mode, bool whole_word, bool pair>
FIND_TARGET FIND_NO_SANITIZE static u32 _find_scan_needle(const db_exec_term_t *term, const u32 *values,
                                                          u32 count, u32 *out) {
    const char *base = mem_arena_base;
    const _find_needle_t needle = {find_set(term->needle.first), find_set(term->needle.first_case),
                                   find_set(term->needle.last), find_set(term->needle.last_case),
                                   term->needle.length - 1};
    u32 found = 0;
    for (u32 i = 0; i < count; i++) {
        __builtin_prefetch(base + (static_cast<size_t>(values[i + DB_SCAN_AHEAD]) << MEM_REF_SHIFT) + 32);
        const char *record = base + (static_cast<size_t>(values[i]) << MEM_REF_SHIFT);
        const char *text = record + DB_ITEM_HEAD;
        u32 length = static_cast<u8>(record[4]);
        u64 high = 0;
        u64 hits = _find_candidates<mode>(text, needle, &high);
        hits = _find_low_bits(hits, length > needle.distance ? length - needle.distance : 0);
        u32 result = hits != 0;
        out[found] = values[i];
        if (length > FIND_SHORT_NAME) [[unlikely]] {
            if (length == DB_ITEM_LONG_NAME)
                length = db_load_u32(record - 4);
            result = _find_in_long_name<mode>(text, length, term, needle);
        } else {
            if (!pair && result)
                result = _find_verify<mode>(text, hits, term);
            if (!_find_is_bytewise(mode) && !result && _find_low_bits(high, length) != 0) [[unlikely]]
                result = FIND_GENERAL;
        }
        if (result == FIND_GENERAL || (whole_word && result == FIND_YES)) [[unlikely]]
            result = _find_general<mode, whole_word>(text, length, term);
        found += result;
    }
    return found;
}

// The same for a term that is not ASCII, where the mode folds.
template<utf8_mode_t mode, bool whole_word>
FIND_TARGET FIND_NO_SANITIZE static u32 _find_scan_general(const db_exec_term_t *term, const u32 *values,
                                                           u32 count, u32 *out) {
    u32 found = 0;
    for (u32 i = 0; i < count; i++) {
        __builtin_prefetch(mem_ptr<char>(values[i + DB_SCAN_AHEAD]) + 32);
        const db_item_t *item = db_item(values[i]);
        u32 length;
        const char *text = db_item_get_name(item, &length);
        u32 result = _find_high_byte(text, length);
        if (result == FIND_GENERAL) [[unlikely]]
            result = _find_general<mode, whole_word>(text, length, term);
        out[found] = values[i];
        found += result;
    }
    return found;
}

// A term that is longer than nearly all names.
template<utf8_mode_t mode, bool whole_word>
static u32 _find_scan_long(const db_exec_term_t *term, const u32 *values, u32 count, u32 *out) {
    u32 found = 0;
    for (u32 i = 0; i < count; i++) {
        u32 length;
        const char *text = db_item_get_name(db_item(values[i]), &length);
        out[found] = values[i];
        found += _find_general<mode, whole_word>(text, length, term);
    }
    return found;
}

template<utf8_mode_t mode, bool whole_word>
static u32 _find_scan(db_scan_t *, const db_exec_term_t *term, const u32 *values, u32 count, u32 *out) {
    if (term->needle.length >
        DB_FIND_MAX) // it would be looked for beyond the memory that is there to be read
        return _find_scan_long<mode, whole_word>(term, values, count, out);
    if (!_find_is_bytewise(mode) && !term->needle.ascii)
        return _find_scan_general<mode, whole_word>(term, values, count, out);
    return term->needle.length <= 2 ? _find_scan_needle<mode, whole_word, true>(term, values, count, out)
                                    : _find_scan_needle<mode, whole_word, false>(term, values, count, out);
}

template<utf8_mode_t mode>
static constexpr void _find_set_mode(db_find_scans_t *scans) {
    scans->scans[mode][0] = _find_scan<mode, false>;
    scans->scans[mode][1] = _find_scan<mode, true>;
}

static constexpr db_find_scans_t _find_make_scans() {
    db_find_scans_t scans = {};
    _find_set_mode<UTF8_MODE_FOLD>(&scans);
    _find_set_mode<UTF8_MODE_KEEP_CASE>(&scans);
    _find_set_mode<UTF8_MODE_LOWER>(&scans);
    _find_set_mode<UTF8_MODE_EXACT>(&scans);
    _find_set_mode<UTF8_MODE_ASCII>(&scans);
    return scans;
}
