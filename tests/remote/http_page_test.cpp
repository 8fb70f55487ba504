// Pages and JSON: whole ones to the byte, links to other pages, and that no text leaves its place.
#include "remote/http_page.h"

#include "os/os.h"
#include "support/http_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

namespace findwright {
namespace {

using namespace std::string_literals;

constexpr http_texts_t texts = {"Findwright",  "Findwright HTTP Server",
                                "Search",      "1 result",
                                "%s results",  "%s - %s of %s results",
                                "Name",        "Path",
                                "Size",        "Date Modified",
                                "Previous",    "Next",
                                "Index of %s", "Up.."};
constexpr u64 DATE = 134082801000000000; // November 2026

// A page and its rows, with the texts that they point to.
struct page_t : http_page_t {
    http_query_t asked;
    std::string search_text, folder_text, parent_text;
    std::vector<http_row_t> rows;

    explicit page_t(const std::string &query_text, u32 total_count = 0) : http_page_t() {
        http_query_init(&asked, 32);
        http_query_parse(&asked, query_text.data(), static_cast<u32>(query_text.size()));
        http_page_t::texts = &findwright::texts;
        query = &asked;
        title = "Title";
        allow_file_download = is_fast_sort = true;
        items_per_page = 32;
        total = total_count;
        shown = asked.offset < total ? std::min(asked.count, total - asked.offset) : 0;
    }
    page_t(const page_t &) = delete;
    ~page_t() { http_query_kill(&asked); }

    void set_folder(const std::string &path, const std::string &up) {
        folder_text = path;
        parent_text = up;
        folder = folder_text.data();
        folder_length = static_cast<u32>(path.size());
        parent = parent_text.data();
        parent_length = static_cast<u32>(up.size());
        is_folder_page = true;
    }
    void add(bool is_folder, const std::string &path, const std::string &name, u64 size = VALUE_UNKNOWN,
             u64 date = VALUE_UNKNOWN) {
        kept.push_back(std::make_unique<std::pair<std::string, std::string>>(path, name));
        const auto &[p, n] = *kept.back();
        rows.push_back({is_folder, n.data(), static_cast<u32>(n.size()), p.data(), static_cast<u32>(p.size()),
                        size, date, nullptr, nullptr});
    }
    std::string html() const {
        utf8_buf_t out;
        utf8_buf_init(&out);
        http_page_cat_begin(&out, this);
        for (u32 i = 0; i < rows.size(); i++)
            http_page_cat_row(&out, this, i, &rows[i]);
        http_page_cat_end(&out, this);
        return take(&out);
    }
    std::string json() const {
        utf8_buf_t out;
        utf8_buf_init(&out);
        http_json_cat_begin(&out, this);
        for (u32 i = 0; i < rows.size(); i++)
            http_json_cat_row(&out, this, i == 0, &rows[i]);
        http_json_cat_end(&out, this, rows.empty());
        return take(&out);
    }
    static std::string take(utf8_buf_t *out) {
        std::string text(out->data, static_cast<size_t>(out->length));
        utf8_buf_kill(out);
        return text;
    }
    // What stands behind the table.
    std::string links() const {
        const std::string page = html();
        const size_t start = page.find("</table>\r\n</center>\r\n") + 21;
        return page.substr(start, page.find("</body>") - start);
    }

  private:
    std::vector<std::unique_ptr<std::pair<std::string, std::string>>> kept;
};

std::string crlf(const std::string &text) {
    std::string lines;
    for (const char c : text)
        lines += c == '\n' ? "\r\n"s : std::string(1, c);
    return lines;
}

std::string date_text(u64 date) {
    utf8_buf_t out;
    utf8_buf_init(&out);
    utf8_buf_format_date(&out, date);
    return page_t::take(&out);
}

std::string head(const std::string &value, const std::string &hidden = "") {
    return crlf(
        R"(<!DOCTYPE HTML PUBLIC "-//W3C//DTD HTML 4.01 Transitional//EN" "http://www.w3.org/TR/html4/loose.dtd">
<head>
<meta http-equiv="Content-Type" content="text/html; charset=utf-8"><meta name="viewport" content="width=512"><title>Title</title>
<link rel="stylesheet" href="/main.css" type="text/css">
<link rel="shortcut icon" href="/favicon.ico" type="image/x-icon">
<script src="/live.js" defer></script>
</head>
<body>
<center>
<br>
<br>
<a href="/"><img class="logo" src="/Findwright.gif" alt="Findwright"></a>
<br>
<br>
<form id="searchform" action="/" method="get"><input class="searchbox" style="width:480px" id="search" name="search" type="text" title="Search" value=")" +
        value + "\" >" + hidden + "</form>\n<table cellspacing=\"0\" width=\"480px\">\n");
}

// --- Whole pages -------------------------------------------------------------------------------------------

TEST(HttpPage, Search) {
    page_t page("search=a+%26+b&sort=size&ascending=0&offset=2&count=2", 5);
    page.add(true, "C:", "a & b");
    page.add(false, "C:\\x y", "<b>.txt", 5, DATE);
    const std::string link = "?search=a+%26+b&amp;sort=size&amp;ascending=0";
    const std::string expected =
        head(
            "a &amp; b",
            R"(<input type="hidden" name="sort" value="size" /><input type="hidden" name="ascending" value="0" />)") +
        crlf(
            R"(<tr><td colspan="3"><p class="numresults">3 - 4 of 5 results</p></td></tr>
<tr><td class="nameheader"><a href="/?search=a+%26+b&amp;sort=name&amp;ascending=1"><span class="nobr"><nobr>Name</nobr></span></a></td><td class="pathheader"><a href="/?search=a+%26+b&amp;sort=path&amp;ascending=1"><span class="nobr"><nobr>Path</nobr></span></a></td><td class="sizeheader"><a href="/?search=a+%26+b&amp;sort=size&amp;ascending=1"><span class="nobr"><nobr>Size<img class="updown" src="/down.gif" alt=""></nobr></span></a></td><td class="modifiedheader"><a href="/?search=a+%26+b&amp;sort=date_modified&amp;ascending=1"><span class="nobr"><nobr>Date Modified</nobr></span></a></td></tr>
<tr><td colspan="4" class="lineshadow" height="1"></td></tr>
<tr class="trdata1"><td class="folder"><span class="nobr"><nobr><a href="/C%3A/a%20%26%20b"><img class="icon" src="/folder.gif" alt="">a &amp; b</a></nobr></span></td><td class="pathdata"><a href="/C%3A"><span class="nobr"><nobr>C:</span></nobr></a></td><td class="sizedata"><span class="nobr"><nobr></span></nobr></td><td class="modifieddata"><span class="nobr"><nobr></span></nobr></td></tr>
<tr class="trdata2"><td class="file"><span class="nobr"><nobr><a href="/C%3A/x%20y/%3Cb%3E.txt"><img class="icon" src="/file.gif" alt="">&lt;b&gt;.txt</a></nobr></span></td><td class="pathdata"><a href="/C%3A/x%20y"><span class="nobr"><nobr>C:\x y</span></nobr></a></td><td class="sizedata"><span class="nobr"><nobr>5 Bytes</span></nobr></td><td class="modifieddata"><span class="nobr"><nobr>)" +
            date_text(DATE) + R"(</span></nobr></td></tr>
</table>
</center>
<center><br><br><span class="prevnext"><a href="/)" +
            link + R"(&amp;count=2">Previous</a></span><span class="nav"><a class=num href="/)" + link +
            R"(&amp;count=2">1</a></span><span class="nav"><b>2</b></span><span class="nav"><a class=num href="/)" +
            link + R"(&amp;offset=4&amp;count=2">3</a></span><span class="prevnext"><a href="/)" + link +
            R"(&amp;offset=4&amp;count=2">Next</a></span></center></body>
)");
    EXPECT_EQ(expected, page.html());
    EXPECT_EQ("", http_check_html(expected).error);

    // A slow order is not carried along by the form.
    page.is_fast_sort = false;
    EXPECT_EQ(std::string::npos, page.html().find("hidden"));
}

TEST(HttpPage, Folder) {
    page_t page("");
    page.set_folder("C:\\a b", "C:");
    page.add(true, "C:\\a b", "c");
    page.add(false, "C:\\a b", "d.txt", 0);
    page.allow_file_download = false;
    EXPECT_EQ(head("") + crlf(R"(<tr><td colspan="3"><p class="indexof">Index of C:\a b</p></td></tr>
<tr><td class="updir" colspan="3"><a href="/C%3A"><img class="icon" src="/updir.gif" alt="">Up..</a></td></tr>
<tr><td class="nameheader"><a href="/C%3A/a%20b?sort=name&amp;ascending=0"><span class="nobr"><nobr>Name<img class="updown" src="/up.gif" alt=""></nobr></span></a></td><td class="sizeheader"><a href="/C%3A/a%20b?sort=size&amp;ascending=1"><span class="nobr"><nobr>Size</nobr></span></a></td><td class="modifiedheader"><a href="/C%3A/a%20b?sort=date_modified&amp;ascending=1"><span class="nobr"><nobr>Date Modified</nobr></span></a></td></tr>
<tr><td colspan="3" class="lineshadow" height="1"></td></tr>
<tr class="trdata1"><td class="folder"><span class="nobr"><nobr><a href="/C%3A/a%20b/c"><img class="icon" src="/folder.gif" alt="">c</a></nobr></span></td><td class="sizedata"><span class="nobr"><nobr></span></nobr></td><td class="modifieddata"><span class="nobr"><nobr></span></nobr></td></tr>
<tr class="trdata2"><td class="file"><span class="nobr"><nobr><img class="icon" src="/file.gif" alt="">d.txt</nobr></span></td><td class="sizedata"><span class="nobr"><nobr>0 Bytes</span></nobr></td><td class="modifieddata"><span class="nobr"><nobr></span></nobr></td></tr>
</table>
</center>
</body>
)"),
              page.html());
    // The tops have nothing above them.
    page.set_folder("", "");
    EXPECT_EQ(std::string::npos, page.html().find("updir"));
}

TEST(HttpPage, Json) {
    page_t page("search=x&json=1&path_column=1&size_column=1&date_modified_column=1", 1234567);
    EXPECT_EQ("{\r\n\t\"totalResults\":1234567,\r\n\t\"results\":[\r\n\t]\r\n}\r\n", page.json());
    page.add(true, "C:\\a", "b\"\x02");
    page.add(false, "", "</script>", 5000000000, DATE);
    EXPECT_EQ(crlf("{\n\t\"totalResults\":1234567,\n\t\"results\":[\n"
                   "\t\t{\n\t\t\t\"type\":\"folder\",\n\t\t\t\"name\":\"b\\\"\\u0002\",\n\t\t\t\"path\":\"C:"
                   "\\\\a\",\n"
                   "\t\t\t\"size\":\"\",\n\t\t\t\"date_modified\":\"\"\n\t\t},\n"
                   "\t\t{\n\t\t\t\"type\":\"file\",\n\t\t\t\"name\":\"\\u003C/"
                   "script\\u003E\",\n\t\t\t\"path\":\"\",\n"
                   "\t\t\t\"size\":\"5000000000\",\n\t\t\t\"date_modified\":\"134082801000000000\"\n\t\t}"
                   "\n\t]\n}\n"),
              page.json());

    page_t folder("json=1&path_column=1");
    folder.set_folder("C:", "");
    EXPECT_EQ("{\r\n\t\"results\":[\r\n\t]\r\n}\r\n", folder.json());
    folder.add(true, "C:", "a");
    folder.add(false, "C:", "b", 7, DATE);
    EXPECT_EQ(
        crlf("{\n\t\"results\":[\n\t\t{\n\t\t\t\"type\":\"folder\",\n\t\t\t\"name\":\"a\",\n\t\t\t\"size\":"
             "\"\"\n\t\t},\n"
             "\t\t{\n\t\t\t\"type\":\"file\",\n\t\t\t\"name\":\"b\",\n\t\t\t\"size\":\"7\"\n\t\t}\t]\n}\n"),
        folder.json());
}

// Marks are in bytes of a name, and told in UTF-16 units.
TEST(HttpPage, JsonForTheScript) {
    db_highlight_run_t name_runs[] = {{0, 2}, {3, 4}, {8, 1}};
    db_highlight_t name, path;
    db_highlight_init(&name);
    db_highlight_init(&path);
    utf8_buf_copy_string(&name.text,
                         "\xC3\xBC_\xF0\x9F\x98\x80\xFFz"); // an umlaut, _, beyond U+FFFF, no UTF-8, z
    name.runs = name_runs;
    name.run_count = 3;
    page_t page("search=x&live=1&path_column=1&json=1", 2);
    page.add(false, "C:\\d", name.text.data, 1);
    page.rows[0].name_marks = &name;
    page.rows[0].path_marks = &path;
    page.add(false, "http://h/d", "e f");
    http_checked_t read = http_check_json(page.json());
    EXPECT_EQ("", read.error);
    const std::string row = "{type,name,path,url,path_url,name_marks,path_marks,}";
    EXPECT_EQ("{totalResults,results,[," + row + "," + row + "]}", read.shape);
    EXPECT_EQ("0,1,2,2,5,1", read.get("name_marks"));
    EXPECT_EQ("", read.get("path_marks"));
    EXPECT_EQ("/C%3A/d/%C3%BC_%F0%9F%98%80%FFz", read.get("url"));
    EXPECT_EQ("/C%3A/d", read.get("path_url"));
    EXPECT_EQ("http://h/d/e%20f", read.get("url", 1));
    EXPECT_EQ("", read.get("name_marks", 1));

    page.allow_file_download = false;
    page.set_folder("C:\\d", "C:");
    read = http_check_json(page.json());
    EXPECT_EQ("{results,[,{type,name,size,url,},{type,name,size,url,}]}", read.shape);
    EXPECT_EQ("", read.get("url"));
    name.runs = nullptr;
    db_highlight_kill(&path);
    db_highlight_kill(&name);
}

// --- Counts, links and options -----------------------------------------------------------------------------

TEST(HttpPage, Counts) {
    const struct {
        const char *query;
        u32 total;
        const char *text;
    } cases[] = {
        {"q=x", 0, "0 results"},
        {"q=x", 1, "1 result"},
        {"q=x", 32, "32 results"},
        {"q=x", 33, "1 - 32 of 33 results"},
        {"q=x&o=32", 33, "33 - 33 of 33 results"},
        {"q=x&count=0", 33, "33 results"},
        {"q=x&offset=99", 33, "33 results"},
        {"q=x&o=4294967295&c=4294967295", 33, "33 results"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.text, http_check_html(page_t(c.query, c.total).html()).get("p")) << c.query;
}

// What the links say and where they lead: "1 2@32 >@32" is page 1, the current one, a link to page 2 at row
// 32, and one to the next page.
std::string sketch(const page_t &page) {
    const http_checked_t read = http_check_html(page.links());
    EXPECT_EQ("", read.error);
    std::string text, address;
    for (const auto &[key, value] : read.values) {
        if (key == "a.href") {
            const size_t offset = value.find("&offset=");
            EXPECT_EQ(0u, value.find("/?search=x"));
            address = "@" + (offset == std::string::npos
                                 ? "0"
                                 : value.substr(offset + 8, value.find('&', offset + 1) - offset - 8));
        } else if (key == "a" || key == "b" || key == "span") {
            text += (text.empty() ? "" : " ") +
                    (value == "Next"       ? ">"
                     : value == "Previous" ? "<"
                                           : value) +
                    (key == "a" ? address : "");
        }
    }
    return text;
}

TEST(HttpPage, LinksToOtherPages) {
    const struct {
        const char *query;
        u32 total;
        const char *links;
    } cases[] = {
        {"q=x", 0, ""},
        {"q=x", 32, ""},
        {"q=x", 33, "1 2@32 >@32"},
        {"q=x&o=32", 33, "<@0 1@0 2"},
        {"q=x&c=0", 33, ""},
        {"q=x&c=4294967295", 0xFFFFFFFF, ""},
        {"q=x&c=10", 100, "1 2@10 3@20 4@30 5@40 6@50 7@60 8@70 9@80 10@90 >@10"},
        {"q=x&c=10", 101, "1 2@10 3@20 ... 11@100 >@10"},
        {"q=x&c=10&o=30", 101, "<@20 1@0 2@10 3@20 4 5@40 6@50 ... 11@100 >@40"},
        {"q=x&c=10&o=50", 101, "<@40 1@0 ... 4@30 5@40 6 7@60 8@70 ... 11@100 >@60"},
        {"q=x&c=10&o=100", 101, "<@90 1@0 ... 9@80 10@90 11"},
        {"q=x&c=10&o=5", 25, "<@0 1 2@10 3@20 >@15"},
        {"q=x&c=10&o=900", 25, "<@20 1@0 2@10 3@20"},
        {"q=x&c=10&o=900", 105, "<@100 1@0 ... 9@80 10@90 11@100"},
        {"q=x&c=1&o=2147483647", 0xFFFFFFFF,
         "<@2147483646 1@0 ... 2147483646@2147483645 2147483647@2147483646 2147483648 2147483649@2147483648 "
         "2147483650@2147483649 ... 4294967295@4294967294 >@2147483648"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.links, sketch(page_t(c.query, c.total))) << c.query << " of " << c.total;
}

// Whatever makes the search another one goes along; what is as usual does not.
TEST(HttpPage, Options) {
    const page_t page("q=x&case=1&regex=1&diacritics=1&wholeword=1&path=1&sort=path", 99);
    const std::string flags = "&case=1&wholeword=1&path=1&regex=1&diacritics=1";
    const http_checked_t read = http_check_html(page.html());
    EXPECT_EQ("/?search=x&sort=name&ascending=1" + flags, read.get("a.href", 1));
    EXPECT_EQ("/?search=x&sort=path&ascending=0" + flags, read.get("a.href", 2));
    EXPECT_EQ("/?search=x&sort=path&ascending=1" + flags + "&offset=32", read.get("a.href", 5));
    std::string hidden;
    for (size_t i = 1; read.get("input.name", i) != "(none)"; i++)
        hidden += "&" + read.get("input.name", i) + "=" + read.get("input.value", i);
    EXPECT_EQ("&sort=path&ascending=1" + flags, hidden);
    EXPECT_EQ("/?search=x&offset=32", http_check_html(page_t("q=x", 99).html()).get("a.href", 5));
}

// --- Names of the system's own -----------------------------------------------------------------------------

TEST(HttpPage, OwnPaths) {
    const bool is_posix = os_path_separator == '/';
    page_t page("q=x&json=1&live=1&path_column=1", 4);
    page.add(true, "", "\\home\\u");
    page.add(false, "\\home\\u",
             "a\xEF\x81\x9C"
             "b"); // what stands for a backslash
    page.add(true, "", "");
    page.add(true, "\\", "etc");
    http_checked_t read = http_check_json(page.json());
    const char *names[] = {"/home/u", "a\\b", "/", "etc"};
    const char *paths[] = {"", "/home/u", "", "/"};
    const char *urls[] = {"/home/u", "/home/u/a%EF%81%9Cb", "/%2F", "/etc"};
    const char *path_urls[] = {"/", "/home/u", "/", "/%2F"};
    for (size_t i = 0; i < 4; i++) {
        if (is_posix) {
            EXPECT_EQ(names[i], read.get("name", i));
            EXPECT_EQ(paths[i], read.get("path", i));
        }
        EXPECT_EQ(urls[i], read.get("url", i));
        EXPECT_EQ(path_urls[i], read.get("path_url", i));
    }
    page.set_folder("\\home\\u", "");
    read = http_check_html(page.html());
    EXPECT_EQ(is_posix ? "Index of /home/u" : "Index of \\home\\u", read.get("p"));
    EXPECT_EQ("/", read.get("a.href", 1));
    EXPECT_EQ("/home/u?sort=name&ascending=0", read.get("a.href", 2));
}

// --- No text leaves its place ------------------------------------------------------------------------------

std::string unescape_url(const std::string &url) {
    std::string text;
    for (size_t i = 0; i < url.size(); i++) {
        text += url[i] == '%'   ? static_cast<char>(std::stoi(url.substr(i + 1, 2), nullptr, 16))
                : url[i] == '/' ? '\\'
                                : url[i];
        i += url[i] == '%' ? 2 : 0;
    }
    return text;
}

// One page with a text everywhere that one can stand; the shape is that with a plain text.
void expect_text_stays(const std::string &text) {
    // In a search and in a title, texts end at a zero byte.
    const std::string cut = text.c_str(), plain = text.empty() ? text : "x";
    for (bool is_folder_page : {false, true}) {
        http_checked_t html[2], json[2];
        for (int i = 0; i < 2; i++) {
            const std::string &any = i ? text : plain;
            const std::string any_cut = any.c_str();
            page_t page("count=1&json=1&live=1&path_column=1", 3);
            page.asked.search = utf8_alloc_copy(any_cut.c_str());
            page.title = any_cut.c_str();
            http_texts_t hostile = texts;
            hostile.search_label = hostile.name = hostile.next = hostile.up = any_cut.c_str();
            page.http_page_t::texts = &hostile;
            if (is_folder_page)
                page.set_folder("C:\\" + any, "C:\\" + any);
            page.add(true, "C:\\p" + any, "n" + any);
            html[i] = http_check_html(page.html());
            json[i] = http_check_json(page.json());
        }
        ASSERT_EQ("", html[1].error) << text;
        ASSERT_EQ("", json[1].error) << text;
        if (cut == text) {
            ASSERT_EQ(html[0].shape, html[1].shape) << text;
        }
        ASSERT_EQ(json[0].shape, json[1].shape) << text;
        ASSERT_EQ("n" + http_check_shown(text), json[1].get("name"));
        ASSERT_EQ(http_check_shown(cut), html[1].get("input.value"));
        std::string path = "C:\\p" + text;
        std::replace(path.begin(), path.end(), '/', '\\');
        path += (path.back() == '\\' ? "n" : "\\n") + text;
        std::replace(path.begin(), path.end(), '/', '\\');
        ASSERT_EQ(path, unescape_url(json[1].get("url").substr(1)));
    }
}

TEST(HttpPage, NoTextLeavesItsPlace) {
    static const std::string pieces[] = {"<script>alert(1)</script>",
                                         "\"",
                                         "'",
                                         "<",
                                         ">",
                                         "&",
                                         "&quot;",
                                         "&lt;",
                                         "\\",
                                         "%",
                                         "%s",
                                         "%22",
                                         "\0"s,
                                         "\r\n",
                                         "\n",
                                         "\t",
                                         "\x7F",
                                         "\xC3",
                                         "\xC3\xBC",
                                         "\xE2\x80\xA8",
                                         "\xF0\x9F\x98\x80",
                                         "\xED\xA0\x80",
                                         "\xFF",
                                         "-->",
                                         "<!--",
                                         "]]>",
                                         "javascript:alert(1)",
                                         "\" onload=\"x",
                                         "</title>",
                                         "?a=b#c",
                                         "+",
                                         "=",
                                         "a",
                                         " "};
    for (const std::string &piece : pieces)
        expect_text_stays(piece);
    std::mt19937 random(7);
    for (int i = 0; i < 800; i++) {
        std::string text;
        for (size_t left = random() % 6; left; left--)
            text += random() % 4 ? pieces[random() % std::size(pieces)]
                                 : std::string(1, static_cast<char>(random()));
        expect_text_stays(text);
        if (HasFatalFailure())
            return;
    }
}

// --- Heads and errors --------------------------------------------------------------------------------------

TEST(HttpPage, Heads) {
    const auto file = [](const http_file_head_t &head) {
        utf8_buf_t out;
        utf8_buf_init(&out);
        http_cat_file_head(&out, &head, 0);
        return page_t::take(&out);
    };
    EXPECT_EQ(crlf("HTTP/1.0 200 OK\nServer: Findwright HTTP Server\nContent-Type: text/plain\n"
                   "Content-Length: 5000000000\nAccept-Ranges: bytes\nDate: Mon, 01 Jan 1601 00:00:00 GMT\n"
                   "Last-Modified: Mon, 01 Jan 1601 00:00:01 GMT\nConnection: Close\n\n"),
              file({false, 5000000000, 0, 5000000000, 10000000, "text/plain", false, false}));
    EXPECT_EQ(
        crlf("HTTP/1.0 206 OK\nServer: Findwright HTTP Server\nContent-Type: a/b\nContent-Length: 10\n"
             "Accept-Ranges: bytes\nContent-Range: bytes 10-19/5000000000\n"
             "Date: Mon, 01 Jan 1601 00:00:00 GMT\nContent-Security-Policy: sandbox\nConnection: Close\n\n"),
        file({true, 5000000000, 10, 10, VALUE_UNKNOWN, "a/b", false, true}));
    EXPECT_EQ(
        crlf("HTTP/1.0 200 OK\nServer: Findwright HTTP Server\nContent-Type: text/css\nContent-Length: 3\n"
             "Date: Mon, 01 Jan 1601 00:00:00 GMT\nLast-Modified: Mon, 01 Jan 1601 00:00:00 GMT\n"
             "Cache-Control: private, max-age=3600\nConnection: Close\n\n"),
        file({false, 3, 0, 3, 0, "text/css", true, false}));
    utf8_buf_t out;
    utf8_buf_init(&out);
    http_cat_page_head(&out, 0);
    EXPECT_EQ(crlf("HTTP/1.0 200 OK\nServer: Findwright HTTP Server\nContent-Type: text/html; charset=UTF-8\n"
                   "Date: Mon, 01 Jan 1601 00:00:00 GMT\nCache-Control: no-cache\nConnection: Close\n\n"),
              page_t::take(&out));
}

TEST(HttpPage, Errors) {
    const auto error = [](u32 status, const char *server) {
        http_texts_t other = texts;
        other.server_name = server;
        utf8_buf_t out;
        utf8_buf_init(&out);
        http_cat_error(&out, &other, status);
        return page_t::take(&out);
    };
    const std::string body = R"(<html><meta http-equiv="Content-Type" content="text/html; charset=utf-8">)"
                             R"(<meta name="viewport" content="width=512"><head><title>)";
    EXPECT_EQ("HTTP/1.0 404 Not Found\r\nContent-Type: text/html; charset=UTF-8\r\n\r\n" + body +
                  "404 Not Found</title></head><body>404 Not Found</body></html>",
              error(404, "S"));
    // A name from elsewhere leaves neither its quotes nor its line.
    EXPECT_EQ("HTTP/1.0 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"S&quot;X: y \xC3\xBC\"\r\n"
              "Content-Type: text/html; charset=UTF-8\r\n\r\n" +
                  body + "401 Unauthorized</title></head><body>401 Unauthorized</body></html>",
              error(401, "S\"\r\nX: y \xC3\xBC"));
}

} // namespace
} // namespace findwright
