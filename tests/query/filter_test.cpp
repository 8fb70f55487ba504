#include "query/filter.h"

#include "query/db_term.h"
#include "query/search_list_test_support.h"

#include <gtest/gtest.h>
#include <vector>

namespace findwright {
namespace {

using namespace std::string_literals;

struct filter_test : testing::Test {
    list_file_t file;

    void TearDown() override { filter_list_free(); }
    void load(const std::string &text) {
        file.write(text);
        filter_list_load(file.c_str());
    }
    // All fields of the list, checked for its links.
    static std::string list() {
        std::string text;
        const filter_t *prev = nullptr;
        for (const filter_t *filter = filter_head; filter; prev = filter, filter = filter->next) {
            EXPECT_EQ(prev, filter->prev);
            text += std::string(filter->name) + "|" + filter->search + "|" + filter->macro + "|" +
                    std::to_string(filter->flags) + "|" + std::to_string(filter->key_modifiers) + "+" +
                    std::to_string(filter->key_code) + "\n";
        }
        EXPECT_EQ(prev, filter_tail);
        return text;
    }
};

constexpr char HEADER[] = "Name,Case,Whole Word,Path,Diacritics,Regex,Search,Macro,Key\r\n";

TEST_F(filter_test, BuiltInFiltersStandInForAFileThatIsMissing) {
    filter_list_load(file.c_str());
    std::string names, macros;
    for (const filter_t *filter = filter_head; filter; filter = filter->next) {
        names += std::string(filter->name) + " ";
        macros += std::string(filter->macro) + " ";
        EXPECT_EQ(0u, filter->flags);
    }
    EXPECT_EQ("FINDWRIGHT AUDIO COMPRESSED DOCUMENT EXECUTABLE FOLDER PICTURE VIDEO ", names);
    EXPECT_EQ(" audio zip doc exe  pic video ", macros);
    EXPECT_STREQ("", filter_find_findwright(filter_head)->search);
    EXPECT_STREQ("ext:bat;cmd;exe;msi;scr", filter_find_by_name("EXECUTABLE")->search);
    EXPECT_STREQ("folder:", filter_find_by_name("FOLDER")->search);
}

TEST_F(filter_test, WritesWhatItReads) {
    filter_list_load(file.c_str());
    filter_add(&filter_head, &filter_tail, "say \"a, b\"", DB_MATCH_CASE | DB_MATCH_DIACRITICS,
               "\"a b\"\r\n|c", "ab", 2, 65);
    filter_add(&filter_head, &filter_tail, "\xC3\x9C", DB_MATCH_WHOLE_WORD | DB_MATCH_PATH | DB_MATCH_REGEX,
               "", "", 0, 0);
    ASSERT_TRUE(filter_list_save(file.c_str()));
    std::string text = file.read();
    EXPECT_EQ(HEADER + std::string("\"FINDWRIGHT\",0,0,0,0,0,\"\",,\r\n"),
              text.substr(0, sizeof HEADER - 1 + 29));
    std::string tail = "\"say \"\"a, b\"\"\",1,0,0,1,0,\"\"\"a b\"\"  |c\",\"ab\",577\r\n"
                       "\"\xC3\x9C\",0,1,1,0,1,\"\",,\r\n";
    EXPECT_EQ(tail, text.substr(text.size() - tail.size()));
    EXPECT_FALSE(os_file_exists((file.name + ".tmp").c_str()));
    // What is read of it is the same again, but for the line end.
    filter_list_load(file.c_str());
    std::string first = list();
    EXPECT_NE(std::string::npos, first.find("say \"a, b\"|\"a b\"  |c|ab|9|2+65\n\xC3\x9C|||22|0+0\n"))
        << first;
    ASSERT_TRUE(filter_list_save(file.c_str()));
    filter_list_load(file.c_str());
    EXPECT_EQ(first, list());
    EXPECT_EQ(text, file.read());
}

TEST_F(filter_test, WhatAFileMayHold) {
    const struct {
        const char *name;
        std::string text, list;
    } cases[] = {
        {"columns in another order, in capitals, and others between",
         "KEY,colour,search,NAME,Regex,diacritics,path,whole word,Case,macro\n"
         "321,red,s,FINDWRIGHT,1,0,1,0,1,m\n",
         "FINDWRIGHT|s|m|21|1+65\n"},
        {"the one that lets all pass stands first, and is one",
         "Name,Search\na,x\nFINDWRIGHT,1\nb,y\nFINDWRIGHT,2\n",
         "FINDWRIGHT|2||0|0+0\na|x||0|0+0\nb|y||0|0+0\n"},
        {"built-in filters that were deleted stay so", "Name\nFINDWRIGHT\n", "FINDWRIGHT|||0|0+0\n"},
        {"rows that are short, empty or have no name",
         "Name,Search,Macro\n\n,x,y\nFINDWRIGHT\n\"\",x\n\nb,c\n", "FINDWRIGHT|||0|0+0\nb|c||0|0+0\n"},
        {"an open quote, zeros, a lone CR, no line at the end",
         "Name,Search\r\nFINDWRIGHT,\r\n\0\0,x\r\na\0b,\"c\rd\0\r\ne,\"f"s,
         "FINDWRIGHT|||0|0+0\nab|c d||0|0+0\ne|f||0|0+0\n"},
        {"flags and keys that are none",
         "Name,Case,Path,Key\nFINDWRIGHT,yes,2,65536\na,11,,256\nb,1,1,x\nc,,,99999999999999999999\n",
         "FINDWRIGHT|||0|0+0\na|||0|0+0\nb|||5|0+0\nc|||0|0+0\n"},
    };
    for (const auto &c : cases) {
        load(c.text);
        EXPECT_EQ(c.list, list()) << c.name;
    }
}

TEST_F(filter_test, WhatAFileLacksIsMadeUpFor) {
    for (const char *text : {"", "\n\n", "nothing,of,this\n1,2,3\n", "\"", "Name\n"}) {
        load(text);
        EXPECT_STREQ("VIDEO", filter_tail->name) << text;
    }
    load("Name,Search\nPICTURE,mine\nother,x\n");
    std::string names;
    for (const filter_t *filter = filter_head; filter; filter = filter->next)
        names += std::string(filter->name) + " ";
    EXPECT_EQ("FINDWRIGHT PICTURE other AUDIO COMPRESSED DOCUMENT EXECUTABLE FOLDER VIDEO ", names);
    EXPECT_STREQ("mine", filter_find_by_name("PICTURE")->search);
}

TEST_F(filter_test, HugeFieldsAreRead) {
    std::string huge(3 << 20, 'x');
    load("Name,Search,Key\nFINDWRIGHT,\"" + huge + "\"\n" + huge + ",y\n");
    EXPECT_EQ(huge, filter_head->search);
    EXPECT_EQ(huge, filter_tail->name);
}

TEST_F(filter_test, NamesAreFoundExactlyThenWithoutCase) {
    load("Name,Search\nfindwright,0\nbook,1\nBook,2\n\xC3\xA4,3\nFINDWRIGHT,4\n");
    const struct {
        const char *name, *search;
    } cases[] = {{"book", "1"},    {"Book", "2"}, {"BOOK", "1"},       {"\xC3\x84", "3"},  {"a", nullptr},
                 {"boo", nullptr}, {"", nullptr}, {"FINDWRIGHT", "4"}, {"Findwright", "4"}};
    for (auto c : cases) {
        const filter_t *filter = filter_find_by_name(c.name);
        EXPECT_STREQ(c.search, filter ? filter->search : nullptr) << c.name;
    }
    EXPECT_STREQ("4", filter_find_findwright(filter_head)->search);
}

TEST_F(filter_test, AFailedSaveLeavesTheFile) {
    load("Name\nFINDWRIGHT\n");
    std::string before = file.read();
    std::filesystem::create_directories(file.folder.path / "sub" / "list.csv.tmp");
    EXPECT_FALSE(filter_list_save(file.c_str()));
    EXPECT_EQ(before, file.read());
}

} // namespace
} // namespace findwright
