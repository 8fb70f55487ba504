// Strict readers of what the server for browsers writes: HTML and JSON. Whatever is not of the few forms that
// it has is an error, so a text that leaves its place is found as such, or as another shape.
#pragma once

#include "base/types.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace findwright {

struct http_checked_t {
    std::string error; // empty: all is well
    std::string shape; // tags with their attributes' names, or keys: what no text may change
    std::vector<std::pair<std::string, std::string>> values; // decoded: "a.href", "td", or a key

    std::string get(const std::string &name, size_t skip = 0) const {
        for (const auto &[key, value] : values) {
            if (key == name && skip-- == 0)
                return value;
        }
        return "(none)";
    }
};

// The length of a whole character; 0 for none. By the table of the well-formed sequences.
inline size_t http_check_char(std::string_view text) {
    static const struct {
        u8 first, last, low, high;
        size_t length;
    } rows[] = {{0x00, 0x7F, 0, 0, 1},       {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
                {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
                {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
    const auto byte = [&](size_t i) { return static_cast<u8>(text[i]); };
    for (const auto &row : rows) {
        if (byte(0) < row.first || byte(0) > row.last || text.size() < row.length)
            continue;
        for (size_t i = 1; i < row.length; i++) {
            if (byte(i) < (i == 1 ? row.low : 0x80) || byte(i) > (i == 1 ? row.high : 0xBF))
                return 0;
        }
        return row.length;
    }
    return 0;
}

// A text as a page shows it: U+FFFD for each byte that is no UTF-8.
inline std::string http_check_shown(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const size_t length = http_check_char(text);
        shown += length == 0 ? "\xEF\xBF\xBD" : text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return shown;
}

inline std::string http_check_unescape(std::string_view text, http_checked_t *out) {
    static const std::map<std::string_view, char> entities = {
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}};
    std::string plain;
    for (size_t i = 0; i < text.size(); i++) {
        if (std::string_view("<>\"\0", 4).find(text[i]) != std::string_view::npos)
            out->error = "not escaped: " + std::string(text);
        if (text[i] != '&') {
            plain += text[i];
            continue;
        }
        const size_t end = text.find(';', i);
        const auto entity = entities.find(text.substr(i, end == std::string_view::npos ? 0 : end - i + 1));
        if (entity == entities.end()) {
            out->error = "no entity: " + std::string(text);
            return plain;
        }
        plain += entity->second;
        i = end;
    }
    return plain;
}

// Where links and pictures may lead: a place here, or an absolute address of a known scheme.
inline bool http_check_is_address(const std::string &address) {
    for (const char c : address) {
        if (static_cast<u8>(c) <= ' ' || c == '\\' || c == '"' || c == '<' || c == '>' || c == 127)
            return false;
    }
    if (address.starts_with("/"))
        return !address.starts_with("//");
    std::string scheme = address.substr(0, address.find("://"));
    for (char &c : scheme)
        c = static_cast<char>(c | 0x20);
    return scheme != address && std::set<std::string>{"http", "https", "ftp", "file"}.count(scheme) != 0;
}

// One tag: the text between `<` and `>`.
inline void http_check_tag(std::string_view tag, http_checked_t *out, std::map<std::string, int> *open) {
    static const std::map<std::string_view, std::string_view> allowed = {
        {"a", " class href "},
        {"b", ""},
        {"body", ""},
        {"br", ""},
        {"center", ""},
        {"form", " id action method "},
        {"head", ""},
        {"html", ""},
        {"img", " class src alt "},
        {"input", " class style id name type title value "},
        {"link", " rel href type "},
        {"meta", " http-equiv content name "},
        {"nobr", ""},
        {"p", " class "},
        {"script", " src defer "},
        {"span", " class "},
        {"table", " cellspacing width "},
        {"td", " class colspan height "},
        {"title", ""},
        {"tr", " class "}};
    static const std::set<std::string_view> alone = {"br", "img", "input", "link", "meta"};
    const bool is_end = tag.starts_with('/');
    tag.remove_prefix(is_end);
    const std::string name(tag.substr(0, tag.find(' ')));
    const auto known = allowed.find(name);
    if (known == allowed.end() || (is_end && tag != name) || (is_end && --(*open)[name] < 0)) {
        out->error = "tag: " + std::string(tag);
        return;
    }
    if (!is_end && alone.count(name) == 0)
        (*open)[name]++;
    out->shape += (is_end ? "</" : "<") + name;
    tag.remove_prefix(name.size());
    while (tag.starts_with(' ') && tag != " " && tag != " /") {
        tag.remove_prefix(1);
        const size_t length = tag.find_first_of("= ");
        const std::string key(tag.substr(0, length));
        if (known->second.find(" " + key + " ") == std::string_view::npos)
            out->error = "attribute: " + name + " " + key;
        out->shape += " " + key;
        tag.remove_prefix(key.size());
        if (key == "defer" || tag.starts_with("=num ")) {
            tag.remove_prefix(key == "defer" ? 0 : 4);
            continue;
        }
        const size_t end = tag.starts_with("=\"") ? tag.find('"', 2) : std::string_view::npos;
        if (end == std::string_view::npos) {
            out->error = "quotes: " + name + std::string(tag);
            return;
        }
        const std::string value = http_check_unescape(tag.substr(2, end - 2), out);
        if ((key == "href" || key == "src" || key == "action") && !http_check_is_address(value))
            out->error = "address: " + value;
        out->values.emplace_back(name + "." + key, value);
        tag.remove_prefix(end + 1);
    }
    if (!tag.empty() && tag != " " && tag != " /")
        out->error = "behind the attributes: " + std::string(tag);
    out->shape += ">";
}

inline http_checked_t http_check_html(std::string_view page) {
    http_checked_t out;
    std::map<std::string, int> open;
    std::string last; // tag that a text stands behind
    if (page.starts_with("<!DOCTYPE "))
        page.remove_prefix(page.find("\r\n") + 2);
    if (http_check_shown(page) != page)
        out.error = "no UTF-8";
    while (!page.empty() && out.error.empty()) {
        const size_t start = page.find('<');
        if (start != 0) {
            const std::string text = http_check_unescape(page.substr(0, start), &out);
            if (text != "\r\n")
                out.values.emplace_back(last, text);
        }
        if (start == std::string_view::npos)
            break;
        const size_t end = page.find('>', start);
        if (end == std::string_view::npos) {
            out.error = "open tag";
            break;
        }
        const std::string_view tag = page.substr(start + 1, end - start - 1);
        http_check_tag(tag, &out, &open);
        last = std::string(tag.substr(0, tag.find(' ')));
        page.remove_prefix(end + 1);
    }
    for (const auto &[name, count] : open) {
        if (count != 0)
            out.error += " unbalanced: " + name;
    }
    return out;
}

// --- JSON --------------------------------------------------------------------------------------------------

struct http_check_json_t {
    std::string_view left;
    http_checked_t *out;

    void skip() { left.remove_prefix(std::min(left.find_first_not_of(" \t\r\n"), left.size())); }
    bool take(char c) {
        skip();
        if (!left.starts_with(c))
            return false;
        left.remove_prefix(1);
        return true;
    }
    bool fail(const char *why) {
        if (out->error.empty())
            out->error = std::string(why) + " at " + std::string(left.substr(0, 40));
        return false;
    }
    // The four digits of \u; only characters below U+10000 are written so here.
    bool code(std::string *text) {
        static const std::string_view digits = "0123456789ABCDEF";
        u32 value = 0;
        for (int i = 0; i < 4; i++) {
            const size_t digit = left.empty() ? std::string_view::npos : digits.find(left[0]);
            if (digit == std::string_view::npos)
                return fail("digits");
            value = value << 4 | static_cast<u32>(digit);
            left.remove_prefix(1);
        }
        if (value >= 0x80) {
            *text += static_cast<char>(0xE0 | value >> 12);
            *text += static_cast<char>(0x80 | (value >> 6 & 0x3F));
        }
        *text += static_cast<char>(value < 0x80 ? value : 0x80 | (value & 0x3F));
        return true;
    }
    bool string(std::string *text) {
        if (!take('"'))
            return fail("quote");
        while (!left.empty() && left[0] != '"') {
            const char c = left[0];
            if (static_cast<u8>(c) < 32 || std::string_view("<>&").find(c) != std::string_view::npos ||
                left.starts_with("\xE2\x80\xA8") || left.starts_with("\xE2\x80\xA9"))
                return fail("not escaped");
            left.remove_prefix(1);
            if (c != '\\') {
                *text += c;
                continue;
            }
            if (left.starts_with('\\') || left.starts_with('"')) {
                *text += left[0];
                left.remove_prefix(1);
            } else if (!take('u') || !code(text)) {
                return fail("escape");
            }
        }
        return take('"') || fail("end of a string");
    }
    bool value(const std::string &key) {
        skip();
        if (left.starts_with('{') || left.starts_with('[')) {
            const bool is_object = take('{');
            const char close = is_object ? '}' : (take('['), ']');
            out->shape += is_object ? '{' : '[';
            if (take(close))
                return out->shape += close, true;
            do {
                std::string name;
                if (is_object && (!string(&name) || !take(':')))
                    return fail("key");
                out->shape += name + ",";
                if (!value(name))
                    return false;
            } while (take(','));
            out->shape += close;
            return take(close) || fail("close");
        }
        std::string text;
        if (left.starts_with('"')) {
            if (!string(&text))
                return false;
        } else {
            text = left.substr(0, left.find_first_not_of("0123456789"));
            left.remove_prefix(text.size());
            if (text.empty())
                return fail("value");
        }
        out->values.emplace_back(key, text);
        return true;
    }
};

inline http_checked_t http_check_json(std::string_view text) {
    http_checked_t out;
    http_check_json_t reader = {text, &out};
    if (http_check_shown(text) != text)
        reader.fail("no UTF-8");
    if (reader.value("")) {
        reader.skip();
        if (!reader.left.empty())
            reader.fail("behind the end");
    }
    return out;
}

} // namespace findwright
