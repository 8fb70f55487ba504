// The vector scan for a plain substring, included once per instruction set with
//   FIND_TARGET   the function attribute that allows its instructions
//   find_vector_t, find_load, find_or, find_equal, find_and, find_set, find_mask (one bit a byte)
// Bytes are compared FIND_WIDTH positions at a time: a position is a candidate when the byte there equals the term's
// first one and the byte at the term's other end the last one, each with the case bit set first where case does
// not matter. Reading past a name's end is harmless: what follows in the arena is masked away.
//
// A name with a byte above 127 in which no candidate holds goes the general way, unless the mode compares bytes.

// What a look at a name's bytes tells.
enum _find_result_t : u32 { FIND_NO, FIND_YES, FIND_GENERAL };

static constexpr bool _find_is_bytewise(utf8_mode_t mode) { return utf8_mode_is_bytewise(mode); }

// The bits below `count`, of a mask of FIND_WIDTH bits.
FIND_TARGET static inline u32 _find_low_bits(u32 count) {
    return count >= 32 ? ~0u : (1u << count) - 1;
}

// Compares the bytes between the first and the last one of a candidate.
template<utf8_mode_t mode>
FIND_TARGET static inline bool _find_is_hit(const char *text, const db_exec_term_t *term) {
    for (u32 i = 1; i + 1 < term->needle.length; i++) {
        u8 byte = utf8_mode_byte<mode>(text[i]);
        if (byte != static_cast<u8>(term->text[i]))
            return false;
    }
    return true;
}

template<utf8_mode_t mode>
FIND_TARGET FIND_NO_SANITIZE static inline u32 _find_in_name(const char *text, u32 length, const db_exec_term_t *term,
                                                             find_vector_t first, find_vector_t first_case,
                                                             find_vector_t last, find_vector_t last_case) {
    const u32 distance = term->needle.length - 1;
    u32 high = 0;
    for (u32 start = 0; start < length; start += FIND_WIDTH) {
        find_vector_t x = find_load(text + start);
        if (!_find_is_bytewise(mode))
            high |= find_mask(x) & _find_low_bits(length - start);
        if (start + distance >= length) {
            if (_find_is_bytewise(mode))
                break;
            continue;
        }
        find_vector_t y = find_load(text + start + distance);
        u32 hits = find_mask(find_and(find_equal(find_or(x, first_case), first), find_equal(find_or(y, last_case), last)));
        hits &= _find_low_bits(length - distance - start);
        if (hits == 0)
            continue;
        if (distance < 2)
            return FIND_YES;
        for (; hits != 0; hits &= hits - 1) {
            if (_find_is_hit<mode>(text + start + static_cast<u32>(__builtin_ctz(hits)), term))
                return FIND_YES;
        }
    }
    return high != 0 ? FIND_GENERAL : FIND_NO;
}

// A term that is not ASCII, in a mode that folds: only names that are not ASCII either can hold it.
FIND_TARGET FIND_NO_SANITIZE static inline u32 _find_high_byte(const char *text, u32 length) {
    u32 high = 0;
    for (u32 start = 0; start < length; start += FIND_WIDTH)
        high |= find_mask(find_load(text + start)) & _find_low_bits(length - start);
    return high != 0 ? FIND_GENERAL : FIND_NO;
}

template<utf8_mode_t mode, bool whole_word>
static bool _find_general(const char *text, u32 length, const db_exec_term_t *term) {
    if constexpr (whole_word)
        return utf8_find_word<mode>(text, length, term->text, term->text_length);
    else
        return utf8_find<mode>(text, length, term->text, term->text_length);
}

// The lines that the record `ahead` places on will be read from are asked for now: the scan is bound by memory.
static constexpr u32 FIND_AHEAD = 12;

template<utf8_mode_t mode, bool whole_word>
FIND_TARGET FIND_NO_SANITIZE static u32 _find_scan(db_scan_t *, const db_exec_term_t *term, const u32 *values, u32 count, u32 *out) {
    const char *base = mem_arena_base;
    const find_vector_t first = find_set(term->needle.first), first_case = find_set(term->needle.first_case);
    const find_vector_t last = find_set(term->needle.last), last_case = find_set(term->needle.last_case);
    const bool general_only = !_find_is_bytewise(mode) && !term->needle.ascii;
    u32 found = 0;
    for (u32 i = 0; i < count; i++) {
        u32 ahead = i + FIND_AHEAD < count ? i + FIND_AHEAD : count - 1;
        const char *later = base + (static_cast<size_t>(values[ahead]) << MEM_REF_SHIFT);
        __builtin_prefetch(later);
        __builtin_prefetch(later + 32);
        const char *record = base + (static_cast<size_t>(values[i]) << MEM_REF_SHIFT);
        u32 length = static_cast<u8>(record[4]);
        if (length == DB_ITEM_LONG_NAME) [[unlikely]]
            length = db_load_u32(record - 4);
        const char *text = record + DB_ITEM_HEAD;
        u32 result = general_only ? _find_high_byte(text, length)
                                  : _find_in_name<mode>(text, length, term, first, first_case, last, last_case);
        if (result == FIND_GENERAL || (whole_word && result == FIND_YES)) [[unlikely]]
            result = _find_general<mode, whole_word>(text, length, term);
        out[found] = values[i];
        found += result;
    }
    return found;
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
