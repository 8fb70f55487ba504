// List elements and title templates.
#include "base/utf8.h"
#include "base/utf8_buf.h"

namespace findwright {

// --- Lists -------------------------------------------------------------------------------------------------

const char *utf8_buf_next_list_item(utf8_buf_t *out, const char *cursor) {
    utf8_buf_empty(out);
    if (!cursor) {
        return 0;
    }
    while (utf8_is_white_space(*cursor)) {
        cursor++;
    }
    if (!*cursor) {
        return 0;
    }
    bool quoted = false;
    u32 kept = 0; // the element up to its last byte that is quoted or no white space
    for (; *cursor; cursor++) {
        char c = *cursor;
        if (c == '"') {
            quoted = !quoted;
            continue;
        }
        if (!quoted && (c == ';' || c == ',')) {
            cursor++;
            break;
        }
        if (quoted && c == '\\' && cursor[1]) {
            c = utf8_escape_value(*++cursor);
        }
        utf8_buf_cat_byte(out, c);
        if (quoted || !utf8_is_white_space(c)) {
            kept = static_cast<u32>(out->length);
        }
    }
    utf8_buf_set_length(out, kept);
    return cursor;
}

void utf8_buf_cat_list_item(utf8_buf_t *buf, const char *text, u32 length) {
    utf8_buf_cat_byte(buf, '"');
    for (u32 i = 0; i < length; i++) {
        if (text[i] == '"' || text[i] == '\\') {
            utf8_buf_cat_byte(buf, '\\');
        }
        utf8_buf_cat_byte(buf, text[i]);
    }
    utf8_buf_cat_byte(buf, '"');
}

// --- Templates ---------------------------------------------------------------------------------------------

// A template that the user wrote may nest no deeper.
static constexpr u32 EXPAND_DEPTH_MAX = 64;

struct utf8_expand_state_t {
    const char *cursor;
    const utf8_expand_t *variables;
    utf8_buf_t *out;
    u32 depth;
};

static bool _utf8_expand_run(utf8_expand_state_t *state, bool is_written);

static const char *_utf8_expand_variable(const utf8_expand_t *variables, char name) {
    switch (name) {
    case 's': return variables->text;
    case 'i': return variables->instance;
    case 'v': return variables->version;
    case 't': return variables->title;
    default: return 0;
    }
}

// Expands what stands behind an opening brace, and steps over the closing one.
static bool _utf8_expand_braces(utf8_expand_state_t *state, bool is_written) {
    if (state->depth == EXPAND_DEPTH_MAX) {
        return false;
    }
    state->depth++;
    const bool ok = _utf8_expand_run(state, is_written) && *state->cursor == '}';
    state->depth--;
    state->cursor += ok;
    return ok;
}

// Expands what stands behind a `$`.
static bool _utf8_expand_dollar(utf8_expand_state_t *state, bool is_written) {
    const char name = *state->cursor;
    if (name && std::strchr("$?{}", name)) {
        state->cursor++;
        if (is_written) {
            utf8_buf_cat_byte(state->out, name);
        }
        return true;
    }
    const char *value = _utf8_expand_variable(state->variables, name);
    if (!value) {
        return false;
    }
    state->cursor++;
    if (state->cursor[0] != '?' || state->cursor[1] != '{') {
        if (is_written) {
            utf8_buf_cat_string(state->out, value);
        }
        return true;
    }
    state->cursor += 2;
    if (!_utf8_expand_braces(state, is_written && *value)) {
        return false;
    }
    if (state->cursor[0] != ':' || state->cursor[1] != '{') {
        return true;
    }
    state->cursor += 2;
    return _utf8_expand_braces(state, is_written && !*value);
}

// Expands up to the end of the template, or to a closing brace that the caller looks at.
static bool _utf8_expand_run(utf8_expand_state_t *state, bool is_written) {
    while (const char c = *state->cursor) {
        if (c == '}') {
            return true;
        }
        if (c == '{') {
            return false;
        }
        state->cursor++;
        if (c == '$') {
            if (!_utf8_expand_dollar(state, is_written)) {
                return false;
            }
        } else if (is_written) {
            utf8_buf_cat_byte(state->out, c);
        }
    }
    return true;
}

bool utf8_buf_expand(utf8_buf_t *out, const char *format, const utf8_expand_t *variables) {
    utf8_buf_empty(out);
    utf8_expand_state_t state = {format, variables, out, 0};
    if (!_utf8_expand_run(&state, true) || *state.cursor) {
        utf8_buf_empty(out);
        return false;
    }
    return true;
}

} // namespace findwright
