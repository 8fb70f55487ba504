#include "os/os_shell_text.h"

#include "base/utf8.h"
#include "base/utf8_buf.h"

#include <string_view>

namespace findwright {

using text_t = std::string_view;

// Cuts off what stands in front of the separator, and the separator; without one, everything.
static text_t _text_take(text_t *text, char separator) {
    size_t end = text->find(separator);
    text_t part = text->substr(0, end);
    *text = end == text_t::npos ? text_t() : text->substr(end + 1);
    return part;
}

static text_t _text_trim(text_t text) {
    while (!text.empty() && utf8_is_white_space(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && utf8_is_white_space(text.back()))
        text.remove_suffix(1);
    return text;
}

// --- Patterns ----------------------------------------------------------------------------------------------

static constexpr u32 WEIGHT_USUAL = 50;
static constexpr u32 WEIGHT_MAX = 100;
static constexpr size_t TYPE_MAX = 255;

static bool _shell_is_name(text_t name) {
    if (name.empty() || name.front() == '.')
        return false;
    for (char c : name) {
        if (c <= ' ' || c > '~' || c == '/' || c == '\\')
            return false;
    }
    return true;
}

static bool _shell_is_type(text_t type) {
    if (type.size() > TYPE_MAX)
        return false;
    text_t media = _text_take(&type, '/');
    return _shell_is_name(media) && _shell_is_name(type);
}

static u32 _shell_weight(text_t text) {
    u32 weight = 0;
    for (char c : text) {
        if (!utf8_is_digit(c))
            return 0;
        weight = weight * 10 + static_cast<u32>(c - '0');
        if (weight > WEIGHT_MAX)
            return WEIGHT_MAX;
    }
    return weight;
}

static bool _shell_read_pattern(text_t line, bool has_weights, os_shell_pattern_t *out) {
    u32 weight = has_weights ? _shell_weight(_text_take(&line, ':')) : WEIGHT_USUAL;
    text_t type = _text_take(&line, ':');
    text_t pattern = _text_take(&line, ':');
    if (!pattern.starts_with("*.") || !_shell_is_type(type))
        return false;
    text_t extension = pattern.substr(2);
    // An extension is what stands behind the last dot: `*.tar.gz` is none that a name could have.
    if (extension.empty() || extension.find_first_of(text_t("*?[.\0", 5)) != text_t::npos)
        return false;
    *out = {type.data(), extension.data(), static_cast<u32>(type.size()), static_cast<u32>(extension.size()),
            weight};
    return true;
}

bool os_shell_next_pattern(const char **cursor, const char *end, bool has_weights, os_shell_pattern_t *out) {
    text_t rest(*cursor, static_cast<size_t>(end - *cursor));
    bool found = false;
    while (!found && !rest.empty()) {
        text_t line = _text_trim(_text_take(&rest, '\n'));
        found = !line.starts_with('#') && _shell_read_pattern(line, has_weights, out);
    }
    *cursor = rest.empty() ? end : rest.data();
    return found;
}

// --- Descriptions ------------------------------------------------------------------------------------------

// Goes on behind a mark, or without one to the end; what stood in front of it.
static text_t _xml_take(text_t *xml, text_t mark) {
    size_t end = xml->find(mark);
    text_t part = xml->substr(0, end);
    xml->remove_prefix(end == text_t::npos ? xml->size() : end + mark.size());
    return part;
}

// The value of an attribute in `xml:lang="de" ...`; empty without it.
static text_t _xml_attribute(text_t attributes, text_t wanted) {
    while (!attributes.empty()) {
        text_t name = _text_trim(_text_take(&attributes, '='));
        attributes = _text_trim(attributes);
        if (attributes.empty())
            break;
        char quote = attributes.front();
        if (quote != '"' && quote != '\'')
            break;
        attributes.remove_prefix(1);
        text_t value = _text_take(&attributes, quote);
        if (name == wanted)
            return value;
    }
    return {};
}

// Goes on to the next opening tag and behind it. `tag` is its name, `attributes` the rest. False at the end.
static bool _xml_next_tag(text_t *xml, text_t *tag, text_t *attributes) {
    for (;;) {
        _xml_take(xml, "<");
        if (xml->empty())
            return false;
        if (xml->starts_with("!--")) {
            xml->remove_prefix(3);
            _xml_take(xml, "-->");
        } else if (xml->starts_with("![CDATA[")) {
            _xml_take(xml, "]]>");
        } else if (xml->starts_with('?') || xml->starts_with('!') || xml->starts_with('/')) {
            _xml_take(xml, ">");
        } else {
            break;
        }
    }
    char quote = 0;
    size_t end = 0;
    for (; end < xml->size() && (quote || (*xml)[end] != '>'); end++) {
        char c = (*xml)[end];
        if (c == quote)
            quote = 0;
        else if (!quote && (c == '"' || c == '\''))
            quote = c;
    }
    *attributes = xml->substr(0, end);
    *tag = attributes->substr(0, attributes->find_first_of(" \t\r\n/"));
    attributes->remove_prefix(tag->size());
    xml->remove_prefix(end == xml->size() ? end : end + 1);
    return true;
}

// The character of a reference such as `amp` or `#xE4`; 0 when there is none of that name.
static u32 _xml_reference(text_t name) {
    static constexpr struct {
        text_t name;
        char c;
    } named[] = {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto &reference : named) {
        if (name == reference.name)
            return static_cast<u8>(reference.c);
    }
    if (!name.starts_with('#'))
        return 0;
    bool is_hex = name.size() > 1 && name[1] == 'x';
    u32 value = 0, base = is_hex ? 16 : 10;
    for (char c : name.substr(is_hex ? 2 : 1)) {
        i32 digit = utf8_hex_value(c);
        if (digit < 0 || static_cast<u32>(digit) >= base || value > 0x10FFFF)
            return 0;
        value = value * base + static_cast<u32>(digit);
    }
    return value <= 0x10FFFF ? value : 0;
}

// The text of an element: references are replaced, and white space and control characters between words
// become one blank.
static void _xml_decode(text_t text, utf8_buf_t *out) {
    static constexpr size_t REFERENCE_MAX = 10;
    bool is_blank = false;
    utf8_buf_empty(out);
    while (!text.empty()) {
        u32 value;
        u32 size = utf8_decode(text.data(), text.data() + text.size(), &value);
        char bytes[UTF8_CHAR_MAX];
        std::memcpy(bytes, text.data(), size);
        for (u32 i = 1; i < size; i++) { // decoding does not ask what continues a character
            if ((bytes[i] & 0xC0) != 0x80)
                size = 1;
        }
        size_t end = value == '&' ? text.substr(0, REFERENCE_MAX).find(';') : text_t::npos;
        u32 reference = end != text_t::npos ? _xml_reference(text.substr(1, end - 1)) : 0;
        text.remove_prefix(reference ? end + 1 : size);
        if (reference) {
            value = reference;
            size = utf8_encode(bytes, value);
        }
        if (size == 1 && (bytes[0] <= ' ' || bytes[0] == 0x7F)) {
            is_blank = true;
            continue;
        }
        if (static_cast<u32>(out->length) + size + 1 > OS_SHELL_COMMENT_MAX)
            break;
        if (is_blank && out->length)
            utf8_buf_cat_byte(out, ' ');
        is_blank = false;
        utf8_buf_cat_utf8(out, bytes, size);
    }
}

bool os_shell_find_comment(const char *text, u32 length, const char *locale, u32 locale_length,
                           utf8_buf_t *out) {
    text_t xml(text, length), wanted(locale, locale_length);
    text_t language = wanted.substr(0, wanted.find('_'));
    enum { NONE, NO_LANGUAGE, LANGUAGE, LOCALE } best = NONE;
    text_t comment, tag, attributes;
    while (best != LOCALE && _xml_next_tag(&xml, &tag, &attributes)) {
        if (tag != "comment" || attributes.ends_with('/'))
            continue;
        text_t lang = _xml_attribute(attributes, "xml:lang");
        auto rank = lang.empty() ? NO_LANGUAGE : lang == wanted ? LOCALE : lang == language ? LANGUAGE : NONE;
        if (rank <= best)
            continue;
        text_t content = xml.substr(0, xml.find('<'));
        if (_text_trim(content).empty())
            continue;
        comment = content;
        best = rank;
    }
    _xml_decode(comment, out);
    return out->length != 0;
}

// --- The user's folders ------------------------------------------------------------------------------------

// The value of `"$HOME/Music"` or `"/srv/music"`, where `\` stands in front of a character that is to be
// taken as it is. False when it is neither, or has no end.
static bool _shell_read_folder(text_t value, text_t home, utf8_buf_t *out) {
    static constexpr text_t HOME = "\"$HOME/";
    utf8_buf_empty(out);
    if (value.find('\0') != text_t::npos)
        return false;
    if (value.starts_with(HOME) && !home.empty()) {
        utf8_buf_cat_utf8(out, home.data(), static_cast<u32>(home.size()));
        value.remove_prefix(HOME.size() - 1);
    } else if (value.starts_with("\"/")) {
        value.remove_prefix(1);
    } else {
        return false;
    }
    for (size_t at = 0; at < value.size(); at++) {
        if (value[at] == '"') {
            while (out->length > 1 && out->data[out->length - 1] == '/')
                utf8_buf_set_length(out, static_cast<u32>(out->length) - 1);
            return true;
        }
        if (value[at] == '\\' && at + 1 < value.size())
            at++;
        utf8_buf_cat_byte(out, value[at]);
    }
    return false;
}

bool os_shell_find_user_folder(const char *text, u32 length, const char *key, const char *home,
                               utf8_buf_t *out) {
    text_t rest(text, length), wanted(key), found;
    utf8_buf_t value;
    utf8_buf_init(&value);
    while (!rest.empty()) {
        text_t line = _text_trim(_text_take(&rest, '\n'));
        if (_text_trim(_text_take(&line, '=')) != wanted)
            continue;
        text_t last = _text_trim(line);
        if (_shell_read_folder(last, home, &value))
            found = last;
    }
    utf8_buf_kill(&value);
    if (!found.empty())
        return _shell_read_folder(found, home, out);
    utf8_buf_empty(out);
    return false;
}

// --- Content types -----------------------------------------------------------------------------------------

const char *os_shell_get_usual_content_type(const char *extension, u32 length) {
    static constexpr struct {
        const char *extension;
        const char *type;
    } TYPES[] = {
        {"htm", "text/html"},       {"html", "text/html"},        {"css", "text/css"},
        {"js", "text/javascript"},  {"json", "application/json"}, {"txt", "text/plain"},
        {"xml", "text/xml"},        {"csv", "text/csv"},          {"svg", "image/svg+xml"},
        {"png", "image/png"},       {"gif", "image/gif"},         {"jpg", "image/jpeg"},
        {"jpeg", "image/jpeg"},     {"webp", "image/webp"},       {"ico", "image/x-icon"},
        {"pdf", "application/pdf"}, {"zip", "application/zip"},   {"mp3", "audio/mpeg"},
        {"ogg", "audio/ogg"},       {"wav", "audio/x-wav"},       {"mp4", "video/mp4"},
        {"webm", "video/webm"},     {"woff2", "font/woff2"},      {"wasm", "application/wasm"},
    };
    for (const auto &row : TYPES) {
        if (utf8_compare_lower(extension, length, row.extension, utf8_length(row.extension)) == 0)
            return row.type;
    }
    return "application/octet-stream";
}

} // namespace findwright
