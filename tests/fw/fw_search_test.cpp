// Filters, bookmarks and macros of the console client, in lists beside a settings file.
#include "fw/fw_test_support.h"

namespace findwright {
namespace {

struct fw_search : fw_sources {
    void SetUp() override {
        fw_sources::SetUp();
        put("set.ini", settings(""));
        put("Filters.csv", "Name,Case,Path,Regex,Search,Macro\n"
                           "FINDWRIGHT,,,,,\n"
                           "Text,,,,*.txt,text\n"
                           "either,,,,alpha|gamma,\n"
                           "Names,1,,1,^[ab].*\\.txt$,\n"
                           "quoted,,,1,\"alpha\"\"|^b\",\n"
                           "open,,,,\"\"\"beta\",\n"
                           "deep,,1,,deep,deep\n");
        put("Bookmarks.csv", "Name,Search,Case,Regex,Sort,Descending,Filter,Macro\n"
                             "Largest,,,,size,1,text,\n"
                             "expression,\"^(a|g)\",1,1,,,,\n"
                             "all,\"\",,,name,1,nothing,\n"
                             "kinds,file:,,,file-list-filename,1,,\n"
                             "cased,ALPHA,1,,,,,cased\n");
    }
    // The names that a run prints, files only unless told.
    std::string names(std::vector<std::string> arguments, std::string *error = nullptr) const {
        arguments.insert(arguments.begin(),
                         {"--config", at("set.ini"), "--folder", at("tree"), "--columns", "name"});
        run_t result = run(arguments);
        if (error)
            *error = result.error;
        else
            EXPECT_EQ("", result.error);
        std::replace(result.output.begin(), result.output.end(), '\n', ' ');
        return result.output;
    }
};

TEST_F(fw_search, Filters) {
    const struct {
        std::vector<std::string> arguments;
        const char *names;
    } cases[] = {
        {{"--filter", "Text"}, "alpha.txt beta.txt delta.txt "},
        {{"--filter", "TEXT", "lt"}, "delta.txt "},
        {{"--filter", "FINDWRIGHT", "--files"}, "alpha.txt beta.txt delta.txt gamma.pdf "},
        // The restriction holds for the whole filter, whatever its text is.
        {{"--filter", "either", "--files"}, "alpha.txt gamma.pdf "},
        {{"--filter", "either", "--folders"}, ""},
        {{"--filter", "deep", "--folders"}, "deep "},
        {{"--filter", "deep", "--files"}, "gamma.pdf "},
        {{"--filter", "Names"}, "alpha.txt beta.txt "},
        {{"--filter", "Names", "--files"}, "alpha.txt beta.txt "},
        {{"--filter", "Names", "--folders"}, ""},
        {{"--filter", "quoted", "--files"}, "beta.txt "},
        {{"--filter", "open", "--files"}, "beta.txt "},
        {{"--filter", "open", "alpha"}, ""},
        // Its options are its own.
        {{"--filter", "Text", "--case", "ALPHA"}, ""},
        {{"--filter", "Names", "lt|l|b"}, "alpha.txt beta.txt "},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.names, names(c.arguments)) << testing::PrintToString(c.arguments);
}

TEST_F(fw_search, MacrosOfTheText) {
    EXPECT_EQ("beta.txt ", names({"text:bet"}));
    EXPECT_EQ("alpha.txt gamma.pdf ", names({"alpha|<deep:gamma>"}));
    EXPECT_EQ("gamma.pdf ", names({"--files", "!text:"}));
    EXPECT_EQ("", names({"cased:"}));
    EXPECT_EQ("", names({"\"text:\""}));
    EXPECT_EQ("", names({"texts:bet"})); // no macro: the text stands for itself
}

TEST_F(fw_search, Bookmarks) {
    const struct {
        std::vector<std::string> arguments;
        const char *names;
    } cases[] = {
        {{"--bookmark", "largest"}, "alpha.txt beta.txt delta.txt "},
        {{"--bookmark", "kinds"}, "gamma.pdf delta.txt beta.txt alpha.txt "},
        {{"--bookmark", "largest", "--sort", "name-descending"}, "delta.txt beta.txt alpha.txt "},
        {{"--bookmark", "Largest", "--filter", "deep", "--files"}, "gamma.pdf "},
        {{"--bookmark", "Largest", "beta|gamma"}, "beta.txt "},
        {{"--bookmark", "expression"}, "alpha.txt gamma.pdf "},
        {{"--bookmark", "expression", "^b"}, "beta.txt "},
        {{"--bookmark", "expression", "--regex=false", "--", "^b"}, ""},
        {{"--bookmark", "expression", "--regex=false", "A|b"}, "sub beta.txt "},
        {{"--bookmark", "expression", "--regex=false", "--case=false", "ALPHA|B"}, "sub alpha.txt beta.txt "},
        {{"--bookmark", "cased"}, ""},
        {{"--bookmark", "cased", "--case=false"}, "alpha.txt "},
        {{"--bookmark", "cased", "alpha"}, "alpha.txt "},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.names, names(c.arguments)) << testing::PrintToString(c.arguments);
    // What a bookmark says and cannot be had is told of.
    std::string error;
    EXPECT_EQ("gamma.pdf delta.txt beta.txt alpha.txt ", names({"--bookmark", "all", "--files"}, &error));
    EXPECT_EQ("fw: the bookmark's filter, 'nothing', is not there; the results are not filtered\n", error);
}

TEST_F(fw_search, OptionsOfSettingsComeLast) {
    put("set.ini", settings("match_case=1\r\nmatch_regex=1\r\n"));
    EXPECT_EQ("", names({"ALPHA"}));
    EXPECT_EQ("alpha.txt ", names({"--case=false", "^ALPHA"}));
    EXPECT_EQ("", names({"--bookmark", "cased", "--regex=false"}));
    put("set.ini", settings("expand_environment_variables=1\r\n"));
    EXPECT_EQ("beta.txt ", names({"beta"}));
}

TEST_F(fw_search, UnknownNames) {
    std::vector<std::string> start = {"--config", at("set.ini"), "--folder", at("tree")};
    auto with = [&start](std::vector<std::string> more) {
        more.insert(more.begin(), start.begin(), start.end());
        return run(more);
    };
    expect_error(with({"--filter", "pictures"}),
                 "fw: there is no filter 'pictures'; the filters are FINDWRIGHT, Text, "
                 "either, Names, quoted, open and deep\n");
    expect_error(
        with({"--bookmark", "x"}),
        "fw: there is no bookmark 'x'; the bookmarks are Largest, expression, all, kinds and cased\n");
    os_delete_file((folder / "Bookmarks.csv").c_str());
    expect_error(with({"--bookmark", "x"}), "fw: there is no bookmark 'x', nor any other\n");
    expect_error(with({"--filter", ""}), "--filter: a name is missing");
    // Nothing is written, also not what the lists lack.
    os_delete_file((folder / "Filters.csv").c_str());
    std::string before = snapshot();
    expect_error(with({"--filter", "x"}), "AUDIO, COMPRESSED");
    EXPECT_EQ(FW_FOUND, with({"--filter", "Folder"}).status);
    EXPECT_EQ(before, snapshot());
}

} // namespace
} // namespace findwright
