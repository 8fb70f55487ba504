#include "base/ansi_buf.h"
#include "base/mem.h"
#include "base/platform.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "base/wchar_buf.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

using namespace findwright;
using std::string;
using std::string_view;

// A buffer that checks its own invariants whenever it is read.
struct test_buf_t {
    utf8_buf_t buf;

    test_buf_t(string_view text = "") {
        utf8_buf_init(&buf);
        utf8_buf_copy_utf8(&buf, text.data(), static_cast<u32>(text.size()));
    }
    ~test_buf_t() { utf8_buf_kill(&buf); }
    string text() const {
        EXPECT_EQ(buf.data == buf.inline_data, buf.capacity == TEXT_BUF_INLINE);
        EXPECT_LT(buf.length, buf.capacity);
        EXPECT_EQ(buf.data[buf.length], 0);
        return string(buf.data, static_cast<size_t>(buf.length));
    }
};

// The table as it was, whatever a test puts into it.
struct platform_guard_t {
    platform_t saved = platform;
    ~platform_guard_t() { platform = saved; }
};

TEST(Utf8Buf, Grows) {
    const size_t live = mem_live_count();
    {
        test_buf_t b;
        EXPECT_EQ(b.buf.capacity, 260);
        utf8_buf_copy_utf8(&b.buf, string(259, 'a').data(), 259);
        EXPECT_EQ(b.buf.capacity, 260);
        utf8_buf_cat_byte(&b.buf, 'b');
        EXPECT_EQ(b.text(), string(259, 'a') + "b");
        EXPECT_EQ(b.buf.capacity, 512);
        utf8_buf_cat_utf8(&b.buf, string(252, 'c').data(), 252);
        EXPECT_EQ(b.text(), string(259, 'a') + "b" + string(252, 'c'));
        EXPECT_EQ(b.buf.capacity, 1024); // the terminator was one too many
        utf8_buf_empty(&b.buf);
        EXPECT_EQ(b.text(), "");
        EXPECT_EQ(b.buf.capacity, 1024); // kept
        utf8_buf_copy_utf8(&b.buf, "short", 5);
        EXPECT_EQ(b.buf.capacity, 1024);
        utf8_buf_copy_utf8(&b.buf, b.buf.data + 2, 3); // of itself
        EXPECT_EQ(b.text(), "ort");
        utf8_buf_grow_empty(&b.buf, 261);
        EXPECT_EQ(b.text(), "");
        EXPECT_EQ(b.buf.capacity, 512);
        utf8_buf_grow_empty(&b.buf, 260);
        EXPECT_EQ(b.text(), "");
        EXPECT_EQ(b.buf.capacity, 260);
        utf8_buf_grow_empty(&b.buf, 512);
        EXPECT_EQ(b.buf.capacity, 512);
    }
    EXPECT_EQ(mem_live_count(), live);
}

TEST(Utf8Buf, PrintsAndConverts) {
    test_buf_t b("old");
    utf8_buf_printf(&b.buf, "%s %d", "new", 1);
    utf8_buf_cat_printf(&b.buf, "|%t", string(400, 'x').c_str(), 400u);
    EXPECT_EQ(b.text(), "new 1|" + string(400, 'x'));
    utf8_buf_copy_wchar(&b.buf, u"\u00C9\U0001F600", 3);
    utf8_buf_cat_wchar(&b.buf, u"X", 1);
    EXPECT_EQ(b.text(), "\xC3\x89\xF0\x9F\x98\x80X");
    utf8_buf_lower(&b.buf);
    EXPECT_EQ(b.text(), "\xC3\xA9\xF0\x9F\x98\x80x");
    // Lower case that no longer fits: 130 letters of two bytes become three each.
    string longer;
    for (u32 i = 0; i < 129; i++) {
        longer += "\xC8\xBA";
    }
    utf8_buf_kill(&b.buf);
    utf8_buf_copy_utf8(&b.buf, longer.data(), 258);
    utf8_buf_lower(&b.buf);
    EXPECT_EQ(b.text().size(), 387u);
    utf8_buf_copy_string(&b.buf, 0);
    EXPECT_EQ(b.text(), "");
}

TEST(Utf8Buf, OtherBuffersConvertThroughTheCodePage) {
    const size_t live = mem_live_count();
    platform_guard_t guard;
    // A code page of one byte per unit, in which all above it becomes a question mark.
    platform.ansi_from_wchar = [](char *out, u32 capacity, const char16_t *text, u32 length) {
        for (u32 i = 0; i < length && i < capacity; i++) {
            out[i] = text[i] < 256 ? static_cast<char>(text[i]) : '?';
        }
        return length;
    };
    platform.wchar_from_ansi = [](char16_t *out, u32 capacity, const char *text, u32 length) {
        for (u32 i = 0; i < length && i < capacity; i++) {
            out[i] = text[i];
        }
        return length;
    };
    for (u32 repeat : {1u, 300u}) {
        string text, bytes, back;
        for (u32 i = 0; i < repeat; i++) {
            text += "\xC3\xA9\xE3\x81\x82";
            bytes += "\xE9?";
            back += "\xC3\xA9?";
        }
        ansi_buf_t ansi;
        ansi_buf_init(&ansi);
        ansi_buf_copy_utf8(&ansi, text.data(), static_cast<u32>(text.size()));
        EXPECT_EQ(string_view(ansi.data, static_cast<size_t>(ansi.length)), bytes);
        EXPECT_EQ(ansi.data[ansi.length], 0);
        test_buf_t b;
        utf8_buf_copy_ansi(&b.buf, ansi.data, static_cast<u32>(ansi.length));
        EXPECT_EQ(b.text(), back);
        ansi_buf_cat_ansi(&ansi, "z", 1);
        EXPECT_EQ(ansi.data[ansi.length - 1], 'z');
        ansi_buf_kill(&ansi);

        wchar_buf_t wide;
        wchar_buf_init(&wide);
        wchar_buf_copy_utf8(&wide, "x", 1);
        wchar_buf_cat_utf8(&wide, text.data(), static_cast<u32>(text.size()));
        wchar_buf_cat_unit(&wide, 'y');
        EXPECT_EQ(wide.length, static_cast<i32>(2 * repeat + 2));
        EXPECT_EQ(std::u16string(wide.data + wide.length - 3), u"\u00E9\u3042y");
        wchar_buf_kill(&wide);
    }
    EXPECT_EQ(mem_live_count(), live);
}

TEST(Utf8Buf, ReadsFiles) {
    platform_guard_t guard;
    static string content;
    static size_t position;
    static bool fails;
    platform.file_open_read = [](const char *name, bool) {
        position = 0;
        return std::strcmp(name, "here") ? PLATFORM_FILE_NONE : platform_file_t(1);
    };
    platform.file_read = [](platform_file_t, void *out, u32 size) {
        if (fails && position) {
            return static_cast<i64>(-1);
        }
        const size_t count = std::min<size_t>({size, 50000, content.size() - position}); // short reads
        std::memcpy(out, content.data() + position, count);
        position += count;
        return static_cast<i64>(count);
    };
    platform.file_close = [](platform_file_t) {};
    test_buf_t b("old");
    content = "\xEF\xBB\xBF" + string(200000, 'q') + '\0' + "end";
    EXPECT_TRUE(utf8_buf_read_file(&b.buf, "here"));
    EXPECT_EQ(b.text(), content);
    fails = true;
    EXPECT_FALSE(utf8_buf_read_file(&b.buf, "here"));
    EXPECT_EQ(b.text(), "");
    fails = false;
    content.clear();
    EXPECT_TRUE(utf8_buf_read_file(&b.buf, "here"));
    EXPECT_EQ(b.text(), "");
    EXPECT_FALSE(utf8_buf_read_file(&b.buf, "not here"));
}

TEST(Utf8Buf, Canonicalizes) {
    struct {
        const char *path, *canonical;
    } cases[] = {
        {"", ""},
        {"C:\\a\\.\\b\\..\\c", "C:\\a\\c"},
        {"C:\\\\a\\\\\\b\\", "C:\\a\\b\\"},
        {"C:\\..\\..\\a", "C:\\a"},
        {"C:\\a\\..", "C:\\"},
        {"C:", "C:"},
        {"\\\\server\\share\\..\\..\\x", "\\\\server\\share\\x"},
        {"\\\\.\\C:\\a\\..\\b", "\\\\.\\C:\\b"},
        {"\\home\\..\\..\\u\\.", "\\u"},
        {"\\..", "\\"},
        {"a\\b\\..\\..", ""},
        {"a\\..\\..\\b", "..\\b"},
        {"..\\..\\a\\..", "..\\.."},
        {".\\a", "a"},
        {"a\\...\\b", "a\\...\\b"},
        {".a\\b.", ".a\\b."},
        {"a/./b//../c", "a/c"},
        {"ftp://host/a/../../b", "ftp://host/b"},
    };
    for (const auto &c : cases) {
        test_buf_t b(c.path);
        utf8_buf_canonicalize(&b.buf);
        EXPECT_EQ(b.text(), c.canonical) << c.path;
    }
}

TEST(Utf8Buf, MakesFullPaths) {
    platform_guard_t guard;
    platform.current_directory = [](char *out, u32) {
        std::strcpy(out, "D:\\now");
        return true;
    };
    struct {
        const char *path, *base, *full;
    } cases[] = {
        {"a.txt", "C:\\x", "C:\\x\\a.txt"},
        {"..\\a", "C:\\x\\y", "C:\\x\\a"},
        {"C:/b/../c", "D:\\x", "C:\\c"},
        {"\\a", "C:\\x\\y", "C:\\a"},
        {"/a", "\\\\s\\h\\x", "\\\\s\\h\\a"},
        {"/etc/x", "\\home\\u", "\\etc\\x"},
        {"a", "\\home\\u\\", "\\home\\u\\a"},
        {"a/b", "", "D:\\now\\a\\b"},
        {"\\a", "", "D:\\a"},
        {"//s/h/../a", "C:\\", "\\\\s\\h\\a"},
        {"ftp://h/a/../b", "C:\\", "ftp://h/b"},
        {"a\\b", "ftp://h/x", "ftp://h/x/a/b"},
        {"\\b", "ftp://h/x", "ftp://h/b"},
    };
    for (const auto &c : cases) {
        test_buf_t b("old");
        utf8_buf_get_full_path(&b.buf, c.path, utf8_length(c.path), c.base, utf8_length(c.base));
        EXPECT_EQ(b.text(), c.full) << c.path << " " << c.base;
    }
    test_buf_t b;
    platform.exe_path = [](char *out, u32) {
        std::strcpy(out, "C:\\Program");
        return true;
    };
    platform.app_data_path = [](char *out, u32) {
        *out = 0;
        return false;
    };
    EXPECT_TRUE(utf8_buf_get_exe_path(&b.buf));
    EXPECT_EQ(b.text(), "C:\\Program");
    EXPECT_FALSE(utf8_buf_get_app_data_path(&b.buf));
    EXPECT_EQ(b.text(), "");
}

TEST(Utf8Buf, JoinsPaths) {
    test_buf_t b;
    utf8_buf_path_cat_filename(&b.buf, "C:\\a", 4, "b", 1);
    EXPECT_EQ(b.text(), "C:\\a\\b");
    utf8_buf_path_cat_filename(&b.buf, b.buf.data, 4, "c", 1); // its own path
    EXPECT_EQ(b.text(), "C:\\a\\c");
    utf8_buf_path_cat_filename(&b.buf, "C:\\", 3, "b", 1);
    EXPECT_EQ(b.text(), "C:\\b");
    utf8_buf_path_cat_filename(&b.buf, "", 0, "b", 1);
    EXPECT_EQ(b.text(), "b");
    utf8_buf_add_trailing_separator(&b.buf);
    utf8_buf_add_trailing_separator(&b.buf);
    EXPECT_EQ(b.text(), "b\\");
    utf8_buf_remove_trailing_separator(&b.buf);
    utf8_buf_remove_trailing_separator(&b.buf);
    EXPECT_EQ(b.text(), "b");
    utf8_buf_copy_string(&b.buf, "a/b c");
    utf8_buf_fix_path(&b.buf);
    utf8_buf_quote(&b.buf);
    EXPECT_EQ(b.text(), "\"a\\b c\"");
}

TEST(Utf8Buf, WalksLists) {
    struct {
        const char *list;
        std::vector<string> items;
    } cases[] = {
        {"", {}},
        {"  \r\n\t", {}},
        {"one; two ,three", {"one", "two", "three"}},
        {"a,,b,", {"a", "", "b"}},
        {",a", {"", "a"}},
        {"\"a, b;c\" ,d", {"a, b;c", "d"}},
        {"\" kept \" ", {" kept "}},
        {"\"C:\\\\x\\\"y\\n\"", {"C:\\x\"y\n"}},
        {"C:\\new", {"C:\\new"}}, // no escapes outside quotes
        {"a\" b\"c", {"a bc"}},
        {"\"\",\"\"", {"", ""}},
        {"\"open, end", {"open, end"}},
        {"\"x\\", {"x\\"}},
    };
    for (const auto &c : cases) {
        std::vector<string> items;
        test_buf_t item;
        for (const char *cursor = c.list; (cursor = utf8_buf_next_list_item(&item.buf, cursor));) {
            items.push_back(item.text());
        }
        EXPECT_EQ(items, c.items) << c.list;
        EXPECT_EQ(item.text(), "");
        EXPECT_EQ(utf8_buf_next_list_item(&item.buf, 0), nullptr);
        // What is written comes back.
        test_buf_t list;
        for (const auto &text : c.items) {
            utf8_buf_cat_list_item(&list.buf, text.data(), static_cast<u32>(text.size()));
            utf8_buf_cat_byte(&list.buf, ',');
        }
        std::vector<string> again;
        for (const char *cursor = list.buf.data; (cursor = utf8_buf_next_list_item(&item.buf, cursor));) {
            again.push_back(item.text());
        }
        EXPECT_EQ(again, c.items) << list.text();
    }
}

TEST(Utf8Buf, WalksNumbers) {
    const char *cursor = "1, -2,,0x10";
    std::vector<i32> values;
    i32 value;
    while ((cursor = utf8_next_list_int(cursor, &value, 7))) {
        values.push_back(value);
    }
    EXPECT_EQ(values, (std::vector<i32>{1, -2, 7, 16}));
    EXPECT_EQ(value, 7); // beyond the end all are the default
    u64 wide;
    EXPECT_NE(utf8_next_list_uint64("18446744073709551615", &wide, 0), nullptr);
    EXPECT_EQ(wide, ~0ull);
}

TEST(Utf8Buf, ExpandsTemplates) {
    struct {
        const char *format, *text, *instance, *expanded; // 0: malformed
    } cases[] = {
        {"$s?{$s - }$t$i?{ ($i)}", "abc", "", "abc - Findwright"},
        {"$s?{$s - }$t$i?{ ($i)}", "", "two", "Findwright (two)"},
        {"$s?{yes}:{no} $v", "a", "", "yes 1.0"},
        {"$s?{yes}:{no}", "", "", "no"},
        {"$s?{$i?{both}:{text}}:{$i?{instance}:{none}}", "a", "", "text"},
        {"$s?{$i?{both}:{text}}:{$i?{instance}:{none}}", "", "x", "instance"},
        {"$$ $? ${$}", "", "", "$ ? {}"},
        {"$s$?{", "a", "", 0},
        {"$s? $s:x", "a", "", "a? a:x"},
        {"$s?{${$$}", "a", "", "{$"},
        {"", "a", "", ""},
        {"$", "a", "", 0},
        {"$x", "a", "", 0},
        {"$s?{a", "a", "", 0},
        {"$s?{a", "", "", 0}, // also where nothing of it is written
        {"$s?{$x}", "", "", 0},
        {"a}", "a", "", 0},
        {"{a}", "a", "", 0},
    };
    test_buf_t b("old");
    for (const auto &c : cases) {
        const utf8_expand_t variables = {c.text, c.instance, "1.0", "Findwright"};
        EXPECT_EQ(utf8_buf_expand(&b.buf, c.format, &variables), c.expanded != 0) << c.format;
        EXPECT_EQ(b.text(), c.expanded ? c.expanded : "") << c.format;
    }
    // However deep a user nests them, the stack holds.
    string deep;
    for (u32 i = 0; i < 1000000; i++) {
        deep += "$s?{";
    }
    const utf8_expand_t variables = {"a", "", "", ""};
    EXPECT_FALSE(utf8_buf_expand(&b.buf, deep.c_str(), &variables));
}

TEST(Utf8Buf, FormatsSizes) {
    platform_guard_t guard;
    // No digit grouping but a mark that the number came through the locale, and a comma of two bytes.
    platform.format_number = [](char *out, u32 capacity, i64 value) {
        return static_cast<u32>(std::snprintf(out, capacity, "#%lld", static_cast<long long>(value)));
    };
    platform.decimal_separator = [](char *out, u32) {
        std::memcpy(out, "\xD9\xAB", 3);
        return 2u;
    };
    const u64 KB = 1024, MB = KB * KB, GB = MB * KB, TB = GB * KB, PB = TB * KB;
    struct {
        utf8_size_format_t format;
        u64 value;
        const char *text; // with a comma for the separator
    } cases[] = {
        {UTF8_SIZE_AUTO, 0, "0 Bytes"},
        {UTF8_SIZE_AUTO, 999, "999 Bytes"},
        {UTF8_SIZE_AUTO, 1000, "0,97 KB"},
        {UTF8_SIZE_AUTO, 1023, "0,99 KB"},
        {UTF8_SIZE_AUTO, 1024, "1,00 KB"},
        {UTF8_SIZE_AUTO, 1076, "1,05 KB"},
        {UTF8_SIZE_AUTO, 10239, "9,99 KB"},
        {UTF8_SIZE_AUTO, 10240, "10,0 KB"},
        {UTF8_SIZE_AUTO, 100 * KB - 1, "99,9 KB"},
        {UTF8_SIZE_AUTO, 100 * KB, "100 KB"},
        {UTF8_SIZE_AUTO, 1000 * KB - 1, "999 KB"},
        {UTF8_SIZE_AUTO, 1000 * KB, "0,97 MB"},
        {UTF8_SIZE_AUTO, 5 * GB + GB / 2, "5,50 GB"},
        {UTF8_SIZE_AUTO, 42 * TB, "42,0 TB"},
        {UTF8_SIZE_AUTO, 999 * PB, "999 PB"},
        {UTF8_SIZE_AUTO, 1000 * PB, "#1000 PB"},
        {UTF8_SIZE_AUTO, ~0ull - 1, "#16383 PB"},
        {UTF8_SIZE_AUTO, VALUE_UNKNOWN, ""},
        {UTF8_SIZE_BYTES, 1234567, "#1234567"},
        {UTF8_SIZE_KB, 0, "#0 KB"},
        {UTF8_SIZE_KB, 1, "#1 KB"},
        {UTF8_SIZE_KB, 1024, "#1 KB"},
        {UTF8_SIZE_MB, MB + 1, "#2 MB"},
        {UTF8_SIZE_GB, 3 * GB, "#3 GB"},
        {UTF8_SIZE_GB, VALUE_UNKNOWN, ""},
    };
    for (const auto &c : cases) {
        test_buf_t b("old");
        utf8_buf_format_size(&b.buf, c.format, c.value);
        string expected = c.text;
        if (const size_t comma = expected.find(','); comma != string::npos) {
            expected.replace(comma, 1, "\xD9\xAB");
        }
        EXPECT_EQ(b.text(), expected) << c.value;
    }
}

TEST(Utf8Buf, FormatsDates) {
    platform_guard_t guard;
    static bool known;
    platform.local_fields = [](u64 file_time, u16 fields[7]) {
        const u16 values[7] = {static_cast<u16>(file_time), 2, 9, 3, 4, 5, 678};
        std::copy(values, values + 7, fields);
        return known;
    };
    platform.format_short_date_time = [](char *out, u32 capacity, u64 file_time) {
        return static_cast<u32>(
            std::snprintf(out, capacity, "<%llu>", static_cast<unsigned long long>(file_time)));
    };
    test_buf_t b("old");
    known = true;
    utf8_buf_format_iso_date(&b.buf, 987);
    EXPECT_EQ(b.text(), "0987-02-09 03:04:05");
    utf8_buf_format_iso_date(&b.buf, VALUE_UNKNOWN);
    EXPECT_EQ(b.text(), "");
    utf8_buf_format_date(&b.buf, 12);
    EXPECT_EQ(b.text(), "<12>");
    utf8_buf_format_date(&b.buf, VALUE_UNKNOWN);
    EXPECT_EQ(b.text(), "");
    utf8_buf_copy_string(&b.buf, "old");
    known = false;
    utf8_buf_format_iso_date(&b.buf, 987);
    EXPECT_EQ(b.text(), "");
}

TEST(Utf8Buf, FormatsVersions) {
    test_buf_t b;
    const utf8_version_t version = {1, 4, 1, 784, "b", "x86", " beta"};
    utf8_buf_format_version(&b.buf, &version);
    EXPECT_EQ(b.text(), "1.4.1.784b (x86) beta");
}
