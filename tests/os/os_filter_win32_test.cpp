// Text filters of Windows: what is taken out of one, and what is left behind when one fails.
#include "os/os_filter.h"

#include "os/os_test_support.h"
#include "support/fake_filter.h"

namespace findwright {
namespace {

struct OsFilter : testing::Test {
    os_filter_result_t read(fake_filter_t *filter, const std::string &name) {
        fake_filter_scope_t scope(filter);
        text.clear();
        auto proc = [](void *param, const char *piece, u32 length) {
            auto *test = static_cast<OsFilter *>(param);
            test->text.append(piece, length);
            if (test->cancel_at && test->text.size() >= test->cancel_at)
                test->cancel = 1;
            return !test->stop_at || test->text.size() < test->stop_at;
        };
        os_filter_result_t result = os_filter_read(name.c_str(), &cancel, proc, this);
        EXPECT_EQ(filter ? filter->references : 0, 0);
        return result;
    }

    std::string text;
    std::atomic<u32> cancel{0};
    size_t cancel_at = 0, stop_at = 0; // bytes of text
    temp_folder_t folder;
};

TEST_F(OsFilter, TextOfChunks) {
    write_file(folder / "file", std::string(100, 'x') + "end");
    const struct {
        std::vector<std::vector<std::u16string>> chunks;
        const char *text;
    } cases[] = {
        {{}, ""},
        {{{u""}}, ""},
        {{{u"ab", u"c"}, {u"d"}}, "abc\r\nd"},
        {{{u"a"}, {}, {u"b"}}, "a\r\nb"},
        {{{}, {u"b"}}, "\r\nb"}, // the first chunk is that of the value
        // A character between two pieces, and halves that stay alone.
        {{{u"a\xD83D", u"\xDE00z"}}, "a\xF0\x9F\x98\x80z"},
        {{{u"\xD83D", u"", u"\xD83D", u"\xDE00"}}, "\xED\xA0\xBD\xF0\x9F\x98\x80"},
        {{{u"\xD83D"}, {u"\xDE00"}}, "\xED\xA0\xBD\r\n\xED\xB8\x80"},
    };
    for (const auto &c : cases) {
        fake_filter_t filter;
        filter.chunks = c.chunks;
        EXPECT_EQ(read(&filter, folder / "file"), OS_FILTER_DONE);
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(filter.loaded, std::string(100, 'x') + "end");
    }
    fake_filter_t filter;
    filter.chunks = {{std::u16string(32768, u'\u20AC'), std::u16string(32767, u'b') + u'\xD83D', u"\xDE00"}};
    EXPECT_EQ(read(&filter, folder / "file"), OS_FILTER_DONE);
    EXPECT_EQ(text.size(), 32768u * 3 + 32767 + 4);
    EXPECT_EQ(text.substr(text.size() - 5), "b\xF0\x9F\x98\x80");
}

TEST_F(OsFilter, Failures) {
    write_file(folder / "file", "text");
    log_capture_t log;
    EXPECT_EQ(read(nullptr, folder / "file"), OS_FILTER_NONE);
    EXPECT_EQ(log.take(), "");

    fake_filter_t filter;
    filter.chunks = {{u"text"}};
    EXPECT_EQ(read(&filter, folder / "missing"), OS_FILTER_FAILED);
    EXPECT_NE(log.take().find("create stream from " + (folder / "missing") + " failed"), std::string::npos);
    const struct {
        HRESULT fake_filter_t::*result;
        const char *line;
    } cases[] = {
        {&fake_filter_t::query_result, "failed to get IID_IPersistStream from stream"},
        {&fake_filter_t::load_result, "failed to load stream"},
        {&fake_filter_t::init_result, "failed to init ifilter"},
    };
    for (const auto &c : cases) {
        filter.*c.result = E_FAIL;
        EXPECT_EQ(read(&filter, folder / "file"), OS_FILTER_FAILED);
        EXPECT_EQ(text, "");
        EXPECT_NE(log.take().find(c.line), std::string::npos) << c.line;
        filter.*c.result = S_OK;
    }
}

TEST_F(OsFilter, EndsWhenNoMoreIsWanted) {
    write_file(folder / "file", "text");
    fake_filter_t filter;
    filter.chunks.assign(100, std::vector<std::u16string>(100, u"0123456789"));
    stop_at = 50;
    EXPECT_EQ(read(&filter, folder / "file"), OS_FILTER_DONE);
    EXPECT_EQ(filter.texts, 5u);
    stop_at = 0;
    cancel_at = 50;
    filter.chunk = filter.texts = 0;
    EXPECT_EQ(read(&filter, folder / "file"), OS_FILTER_DONE);
    EXPECT_EQ(filter.texts, 5u);
}

} // namespace
} // namespace findwright
