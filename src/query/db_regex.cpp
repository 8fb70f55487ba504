#include "query/db_regex.h"

#include "base/mem.h"
#include "base/utf8.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

namespace findwright {

static constexpr u32 MATCH_SLOTS = 10;
// Backtracking steps on one name; a name has some hundred bytes, so that only a runaway expression gets
// there.
static constexpr u32 MATCH_LIMIT = 1000000;

// An expression in two forms: for texts of any bytes, and for ASCII, which most names are, with no more ado
// than the machine code's call. The second one is 0 where there is no machine code.
struct _db_regex_t {
    pcre2_code *any;
    pcre2_code *ascii;
};

struct _db_regex_match_t {
    pcre2_match_data *data;
    pcre2_match_context *context;
};

static void *_db_regex_alloc(PCRE2_SIZE size, void *) {
    return mem_alloc(size);
}
static void _db_regex_free_block(void *block, void *) {
    if (block)
        mem_free(block);
}

// The memory functions of all that is compiled here.
static pcre2_general_context *_db_regex_context_create() {
    return pcre2_general_context_create(_db_regex_alloc, _db_regex_free_block, nullptr);
}

static pcre2_code *_db_regex_compile_form(const char *text, u32 length, u32 options,
                                          pcre2_compile_context *context, bool *is_fast) {
    int error;
    PCRE2_SIZE offset;
    pcre2_code *code =
        pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text), length, options, &error, &offset, context);
    *is_fast = code && pcre2_jit_compile(code, PCRE2_JIT_COMPLETE) == 0; // without it the interpreter runs
    return code;
}

void *db_regex_compile(const char *text, u32 length, bool ignore_case) {
    pcre2_general_context *general = _db_regex_context_create();
    pcre2_compile_context *context = pcre2_compile_context_create(general);
    u32 options = PCRE2_UTF | (ignore_case ? PCRE2_CASELESS : 0u);
    bool is_fast;
    _db_regex_t *regex = nullptr;
    pcre2_code *any =
        _db_regex_compile_form(text, length, options | PCRE2_MATCH_INVALID_UTF, context, &is_fast);
    if (any) {
        regex = static_cast<_db_regex_t *>(mem_alloc(sizeof *regex));
        *regex = {any, nullptr};
        if (is_fast) {
            regex->ascii = _db_regex_compile_form(text, length, options, context, &is_fast);
            if (!is_fast) {
                pcre2_code_free(regex->ascii);
                regex->ascii = nullptr;
            }
        }
    }
    pcre2_compile_context_free(context);
    pcre2_general_context_free(general);
    return regex;
}

void db_regex_free(void *pointer) {
    if (!pointer)
        return;
    _db_regex_t *regex = static_cast<_db_regex_t *>(pointer);
    pcre2_code_free(regex->any);
    pcre2_code_free(regex->ascii);
    mem_free(regex);
}

void *db_regex_match_create() {
    pcre2_general_context *general = _db_regex_context_create();
    _db_regex_match_t *match = static_cast<_db_regex_match_t *>(mem_alloc(sizeof *match));
    match->data = pcre2_match_data_create(MATCH_SLOTS, general);
    match->context = pcre2_match_context_create(general);
    pcre2_set_match_limit(match->context, MATCH_LIMIT);
    pcre2_general_context_free(general);
    return match;
}

void db_regex_match_free(void *pointer) {
    _db_regex_match_t *match = static_cast<_db_regex_match_t *>(pointer);
    pcre2_match_data_free(match->data);
    pcre2_match_context_free(match->context);
    mem_free(match);
}

// What the match answers: below 0 there is none from that byte on.
static int _db_regex_run(const void *pointer, void *match_pointer, const char *text, u32 length, u32 from) {
    const _db_regex_t *regex = static_cast<const _db_regex_t *>(pointer);
    _db_regex_match_t *match = static_cast<_db_regex_match_t *>(match_pointer);
    PCRE2_SPTR subject = reinterpret_cast<PCRE2_SPTR>(text);
    if (regex->ascii && utf8_is_ascii(text, length))
        return pcre2_jit_match(regex->ascii, subject, length, from, 0, match->data, match->context);
    return pcre2_match(regex->any, subject, length, from, 0, match->data, match->context);
}

bool db_regex_match(const void *regex, void *match, const char *text, u32 length) {
    return _db_regex_run(regex, match, text, length, 0) >= 0;
}

bool db_regex_find(const void *regex, void *match, const char *text, u32 length, u32 from, u32 *start,
                   u32 *end) {
    if (_db_regex_run(regex, match, text, length, from) < 0)
        return false;
    const PCRE2_SIZE *places = pcre2_get_ovector_pointer(static_cast<const _db_regex_match_t *>(match)->data);
    *start = static_cast<u32>(places[0]);
    *end = static_cast<u32>(places[1]);
    return true;
}

} // namespace findwright
