#include "query/db_regex.h"

#include "base/mem.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

namespace findwright {

static constexpr u32 MATCH_SLOTS = 10;
// Backtracking steps on one name; a name has some hundred bytes, so that only a runaway expression gets
// there.
static constexpr u32 MATCH_LIMIT = 1000000;

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

void *db_regex_compile(const char *text, u32 length, bool ignore_case) {
    pcre2_general_context *general = _db_regex_context_create();
    pcre2_compile_context *context = pcre2_compile_context_create(general);
    int error;
    PCRE2_SIZE offset;
    u32 options = PCRE2_UTF | PCRE2_MATCH_INVALID_UTF | (ignore_case ? PCRE2_CASELESS : 0u);
    pcre2_code *code =
        pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text), length, options, &error, &offset, context);
    if (code)
        pcre2_jit_compile(code, PCRE2_JIT_COMPLETE); // without it the interpreter runs
    pcre2_compile_context_free(context);
    pcre2_general_context_free(general);
    return code;
}

void db_regex_free(void *regex) {
    pcre2_code_free(static_cast<pcre2_code *>(regex));
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

bool db_regex_match(const void *regex, void *pointer, const char *text, u32 length) {
    _db_regex_match_t *match = static_cast<_db_regex_match_t *>(pointer);
    return pcre2_match(static_cast<const pcre2_code *>(regex), reinterpret_cast<PCRE2_SPTR>(text), length, 0,
                       0, match->data, match->context) >= 0;
}

} // namespace findwright
