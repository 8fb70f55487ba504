// Searches inside files that a text filter reads.
#include "query/file_content.h"

#include "os/os_test_support.h"
#include "support/fake_filter.h"

namespace findwright {
namespace {

TEST(FileContent, TheFilterHasTheText) {
    temp_folder_t folder;
    write_file(folder / "file", "bytes of the file");
    struct state_t {
        const char *wanted;
        u32 calls;
    } state;
    auto match = [](void *param, const char *text, u32 length) {
        auto *at = static_cast<state_t *>(param);
        at->calls++;
        return std::string_view(text, length).find(at->wanted) != std::string_view::npos;
    };
    file_content_matcher_t matcher = {match, &state, 0, nullptr};
    const struct {
        std::vector<std::vector<std::u16string>> chunks;
        HRESULT init;
        file_content_encoding_t encoding;
        const char *wanted;
        bool expected;
        u32 calls;
    } cases[] = {
        {{{u"one ", u"two"}, {u"three"}}, S_OK, FILE_CONTENT_AUTO, "one two\r\nthree", true, 1},
        {{{u"one"}}, S_OK, FILE_CONTENT_AUTO, "bytes", false, 1},
        {{{u"one"}}, S_OK, FILE_CONTENT_UTF8, "bytes", true, 1},
        {{}, S_OK, FILE_CONTENT_AUTO, "", true, 1},            // no text is the empty text
        {{{u"one"}}, E_FAIL, FILE_CONTENT_AUTO, "", false, 0}, // and no filter to read it is no match
    };
    for (u32 span : {0u, 100u}) {
        for (const auto &c : cases) {
            fake_filter_t filter;
            filter.chunks = c.chunks;
            filter.init_result = c.init;
            fake_filter_scope_t scope(&filter);
            matcher.span = span;
            state = {c.wanted, 0};
            EXPECT_EQ(file_content_match((folder / "file").c_str(), c.encoding, &matcher), c.expected);
            EXPECT_EQ(state.calls, c.calls);
        }
    }
    fake_filter_scope_t scope(nullptr); // no filter
    state = {"bytes", 0};
    EXPECT_TRUE(file_content_match((folder / "file").c_str(), FILE_CONTENT_AUTO, &matcher));
}

} // namespace
} // namespace findwright
