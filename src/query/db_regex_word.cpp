// The letters that a regular expression cannot do without: what a scan looks for before it runs the
// expression itself.
#include "base/utf8.h"
#include "db/db_word.h"
#include "query/db_search_word.h"

#include <cstring>

namespace findwright {

// A walk over an expression that is no more precise than it has to be: whatever it does not know ends the
// current run of literal characters, and whatever it cannot tell the extent of makes the answer 0.
struct _db_regex_walk_t {
    const char *text, *end;
    u64 word;
    char run[256]; // literal characters that stand behind one another
    u32 run_length;
};

static void _db_regex_end_run(_db_regex_walk_t *walk) {
    // Only ASCII: what equals another letter regardless of case is then told by folding.
    walk->word |= db_word_of_text(walk->run, walk->run_length);
    walk->run_length = 0;
}

static void _db_regex_add(_db_regex_walk_t *walk, char c) {
    if (static_cast<u8>(c) >= 0x80 || walk->run_length == sizeof walk->run) {
        _db_regex_end_run(walk);
        return;
    }
    walk->run[walk->run_length++] = c;
}

// The bytes of a quantifier at a place, and whether it allows none; 0 bytes for no quantifier.
static u32 _db_regex_get_quantifier(const _db_regex_walk_t *walk, const char *at, bool *optional) {
    *optional = false;
    if (at == walk->end)
        return 0;
    const char *p = at;
    if (*p == '*' || *p == '?' || *p == '+') {
        *optional = *p != '+';
        p++;
    } else if (*p == '{') {
        const char *q = p + 1;
        while (q != walk->end && (utf8_is_digit(*q) || *q == ','))
            q++;
        if (q == walk->end || *q != '}' || q == p + 1)
            return 0;     // a literal brace
        *optional = true; // it may be {0}: a closer look brings nothing
        p = q + 1;
    } else {
        return 0;
    }
    while (p != walk->end && (*p == '?' || *p == '+')) // lazy, possessive
        p++;
    return static_cast<u32>(p - at);
}

// Behind a character class; 0 when it has no end.
static const char *_db_regex_skip_class(const char *p, const char *end) {
    p++;
    if (p != end && *p == '^')
        p++;
    if (p != end && *p == ']')
        p++;
    while (p != end && *p != ']') {
        if (*p == '\\') {
            if (p + 1 == end || p[1] == 'Q' || p[1] == 'E')
                return nullptr;
            p++;
        } else if (*p == '[' && p + 1 != end && (p[1] == ':' || p[1] == '.' || p[1] == '=')) {
            const char *close =
                static_cast<const char *>(memchr(p + 2, ']', static_cast<size_t>(end - p - 2)));
            if (!close)
                return nullptr;
            p = close;
        }
        p++;
    }
    return p != end ? p + 1 : nullptr;
}

// Behind a group with all that is in it; 0 when it has no end, or is of a kind that changes how the rest is
// read.
static const char *_db_regex_skip_group(const char *p, const char *end) {
    u32 depth = 0;
    while (p != end) {
        if (*p == '\\') {
            if (p + 1 == end || p[1] == 'Q' || p[1] == 'E')
                return nullptr;
            p += 2;
        } else if (*p == '[') {
            p = _db_regex_skip_class(p, end);
            if (!p)
                return nullptr;
        } else if (*p == '(') {
            if (p + 1 != end && (p[1] == '*' || (p[1] == '?' && (p + 2 == end || p[2] != ':'))))
                return nullptr;
            depth++;
            p++;
        } else if (*p++ == ')') {
            if (--depth == 0)
                return p;
        }
    }
    return nullptr;
}

// Takes one escape; false when the rest cannot be read for sure.
static bool _db_regex_take_escape(_db_regex_walk_t *walk, bool optional_behind) {
    char c = walk->text[1];
    walk->text += 2;
    bool is_word_char = utf8_is_word_char(c) && c != '_';
    if (!is_word_char) {
        if (!optional_behind)
            _db_regex_add(walk, c);
        return true;
    }
    // Classes and places: no literal, nothing more to read. All others have arguments, or change the rest.
    _db_regex_end_run(walk);
    return std::strchr("dDwWsSvVhHbBAzZRKX", c) != nullptr;
}

// One element of the expression with its quantifier. False: give up.
static bool _db_regex_take(_db_regex_walk_t *walk) {
    const char *p = walk->text;
    const char *behind;
    if (*p == '\\') {
        if (p + 1 == walk->end)
            return false;
        behind = p + 2;
    } else if (*p == '[') {
        behind = _db_regex_skip_class(p, walk->end);
    } else if (*p == '(') {
        behind = _db_regex_skip_group(p, walk->end);
    } else if (*p == '|' || *p == ')') {
        return false; // alternatives: no letter is in all of them for sure
    } else {
        behind = p + 1;
    }
    if (!behind)
        return false;
    bool optional;
    u32 quantifier = _db_regex_get_quantifier(walk, behind, &optional);
    if (*p == '\\') {
        if (optional)
            _db_regex_end_run(walk);
        if (!_db_regex_take_escape(walk, optional))
            return false;
    } else if (std::strchr("[(.^$", *p)) {
        _db_regex_end_run(walk);
    } else if (optional) {
        _db_regex_end_run(walk);
    } else {
        _db_regex_add(walk, *p);
    }
    if (quantifier != 0)
        _db_regex_end_run(walk); // repeated: what follows stands behind the last of them
    walk->text = behind + quantifier;
    return true;
}

u64 db_regex_get_word(const char *text, u32 length) {
    _db_regex_walk_t walk;
    walk.text = text;
    walk.end = text + length;
    walk.word = 0;
    walk.run_length = 0;
    while (walk.text != walk.end) {
        if (!_db_regex_take(&walk))
            return 0;
    }
    _db_regex_end_run(&walk);
    return walk.word;
}

} // namespace findwright
