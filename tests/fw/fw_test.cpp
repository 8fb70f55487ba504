// The console client from its arguments to its output, over the sample volume.
#include "fw/fw_output.h"
#include "fw/fw_test_support.h"

#include <algorithm>
#include <sstream>

namespace findwright {
namespace {

// The listing that was made of the mounted volume: path, type, size, dates, attributes.
std::vector<std::vector<std::string>> read_listing(const std::string &name) {
    std::ifstream file(std::string(FINDWRIGHT_TEST_DATA) + "/" + name);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        rows.emplace_back();
        for (std::string field; std::getline(fields, field, '\t');)
            rows.back().push_back(field);
    }
    return rows;
}

TEST(Fw, ListsWhatTheMountedVolumeShows) {
    for (std::string name : {"sample", "sample_4k"}) {
        temp_file_t image(".ntfs", unpack(name + ".ntfs.bz2"));
        std::vector<std::string> expected = {"C:"};
        for (auto row : read_listing(name + ".txt")) {
            std::replace(row[0].begin(), row[0].end(), '/', '\\');
            std::string quoted = "\"C:\\" + row[0] + "\"";
            // A folder's size is not indexed.
            expected.push_back(quoted + "," + (row[1] == "f" ? row[2] : "") + "," + row[3] + "," + row[4] +
                               "," + row[5] + "," + (row[1] == "f" ? "file" : "folder"));
        }
        run_t found = run({"--ntfs", image.name, "--csv", "--columns", "full,size,dm,dc,da"});
        EXPECT_EQ(FW_FOUND, found.status);
        std::vector<std::string> lines;
        std::istringstream stream(found.output);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        ASSERT_EQ("full,size,dm,dc,da,type", lines[0]);
        lines.erase(lines.begin());
        for (std::string &line : lines) {
            if (line.starts_with("\"C:\","))
                line = "C:"; // the root's dates change with every mount
        }
        std::sort(lines.begin(), lines.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(expected, lines) << name;
    }
}

TEST(Fw, ExitStatusAndMessages) {
    temp_file_t text(".txt", "this is no volume, and a long way from one\n");
    temp_file_t blank(".img", std::string(1 << 20, 0));
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char *error; // stands in the message
    } cases[] = {
        {{"--ntfs", sample().name, "Documents"}, FW_FOUND, ""},
        {{"--ntfs", sample().name, "nothing is named like this"}, FW_NOT_FOUND, ""},
        {{"--ntfs", "no such file", "x"}, FW_ERROR, "cannot open no such file: "},
        {{"--ntfs", text.name, "x"}, FW_ERROR, "cannot find an NTFS volume in "},
        {{"--ntfs", blank.name, "x"}, FW_ERROR, "cannot find an NTFS volume in "},
        {{"--ntfs", ".", "x"}, FW_ERROR, "it is a folder"},
        {{"--ntfs", sample().name, "--sort", "colour"},
         FW_ERROR,
         "there is no order 'colour'; the orders are name, path, size, extension, type, date-created, "
         "date-modified, attributes, file-list-filename, run-count, date-recently-changed, date-accessed, "
         "date-run, each"},
        {{"--ntfs", sample().name, "--columns", "name,weight"},
         FW_ERROR,
         "there is no column 'weight'; the columns are name, path, full, size, extension, type, dm, dc, da, "
         "attributes, file-list, run-count, dr and drc\n"},
        {{"--ntfs", sample().name, "--no-such-option"}, FW_ERROR, "--help"},
        {{"--ntfs", sample().name, "-n", "many"}, FW_ERROR, "many"},
        {{"--ntfs", sample().name, "--files", "--folders"}, FW_ERROR, "--folders"},
    };
    for (auto c : cases) {
        run_t result = run(c.arguments);
        EXPECT_EQ(c.status, result.status) << result.error;
        EXPECT_NE(std::string::npos, result.error.find(c.error)) << result.error;
        EXPECT_EQ(c.status == FW_FOUND, !result.output.empty());
    }
    EXPECT_EQ(FW_FOUND, run({"--help"}).status);
    EXPECT_EQ("fw 0.1.0\n", run({"--version"}).output);
}

TEST(Fw, WindowsOfTheResults) {
    run_t all = run_sample({"--sort", "path"});
    auto count = std::count(all.output.begin(), all.output.end(), '\n');
    EXPECT_EQ(std::to_string(count) + "\n", run_sample({"--count"}).output);
    EXPECT_EQ(std::to_string(count) + "\n", run_sample({"--count", "-n", "1"}).output);
    std::string first = run_sample({"--sort", "path", "-n", "5"}).output;
    std::string rest = run_sample({"--sort", "path", "--offset", "5"}).output;
    EXPECT_EQ(all.output, first + rest);
    EXPECT_EQ("", run_sample({"--offset", "100000"}).output);
    EXPECT_EQ(run_sample({"--folders", "--count"}).output,
              std::to_string(std::stoi(run_sample({"--count"}).output) -
                             std::stoi(run_sample({"--files", "--count"}).output)) +
                  "\n");
}

TEST(Fw, NamesOfRoots) {
    std::string file = sample().name;
    EXPECT_EQ("X:\n", run({"--ntfs", file + "=X:", "wfn:X:"}).output);
    EXPECT_EQ("C:\nD:\n", run({"--ntfs", file, "--ntfs", file, "wfn:?:"}).output);
    EXPECT_EQ("C:\nout here\n",
              run({"--ntfs", file, "--ntfs", file + "=out here", "root|wfn:C:|wfn:<out here>|\"out here\""})
                  .output);
}

TEST(Fw, MachineForms) {
    EXPECT_EQ(
        "[\n{\"name\":\"sparse disk.vhd\",\"size\":3221225472,\"attributes\":\"AP\",\"type\":\"file\"}\n]\n",
        run_sample(
            {"--json", "--columns", "name,size,attributes", "wfn:<sparse disk.vhd>|\"sparse disk.vhd\""})
            .output);
    EXPECT_EQ("[]\n", run_sample({"--json", "no such name"}).output);
    std::string null = run_sample({"-0", "--columns", "name", "sparse disk"}).output;
    EXPECT_EQ(std::string("sparse disk.vhd", 16), null);
    EXPECT_EQ(std::string(1, '\n') + "", run_sample({"--csv", "no such name"}).output.substr(9));
}

TEST(Fw, JsonIsValidWhateverTheName) {
    const struct {
        const char *name, *json;
    } cases[] = {
        {"plain", "\"plain\""},
        {"q\"b\\", "\"q\\\"b\\\\\""},
        {"\x01\n\x7F", "\"\\u0001\\u000a\\u007f\""},
        {"\xC3\xA9\xF0\x9F\x98\x80", "\"\xC3\xA9\xF0\x9F\x98\x80\""},
        {"\xED\xA0\x80x", "\"\\ud800x\""},                          // a lone surrogate
        {"\xFF\xC3(\xC0\x80", "\"\\ufffd\\ufffd(\\ufffd\\ufffd\""}, // no UTF-8
        {"\xF4\x90\x80\x80", "\"\\ufffd\\ufffd\\ufffd\\ufffd\""},
    };
    for (auto c : cases) {
        std::string out;
        fw_output_cat_json(&out, c.name, static_cast<u32>(std::strlen(c.name)));
        EXPECT_EQ(c.json, out);
    }
}

TEST(Fw, TextColumnsAreAligned) {
    std::string text =
        run_sample({"--columns", "size,dm,name", "--sort", "size-descending", "--files", "-n", "20"}).output;
    std::istringstream stream(text);
    std::vector<size_t> colons;
    for (std::string line; std::getline(stream, line);)
        colons.push_back(line.find(':'));
    EXPECT_EQ(20, std::count(colons.begin(), colons.end(), colons[0]));
}

TEST(Fw, AClosedPipeEndsQuietly) {
    run_t result = run({"--ntfs", sample().name}, 0);
    EXPECT_EQ(FW_FOUND, result.status);
    EXPECT_EQ("", result.error);
}

TEST(Fw, ATerminalIsNotDrivenByNames) {
    run_t result = run({"--ntfs", sample().name, "--columns", "name"}, ~static_cast<size_t>(0), true);
    for (char c : result.output)
        EXPECT_TRUE(c == '\n' || (c >= 0x20 && c != 0x7F));
}

// Takes the escape sequences out.
std::string without_colors(std::string text) {
    for (const char *code : {"\x1b[1;31m", "\x1b[0m"}) {
        for (size_t at; (at = text.find(code)) != text.npos;)
            text.erase(at, std::strlen(code));
    }
    return text;
}

TEST(Fw, MatchesAreSetOffInText) {
    EXPECT_EQ("\x1b[1;31msparse\x1b[0m disk.\x1b[1;31mv\x1b[0mhd  C:\\Videos\n",
              run_sample({"--color", "always", "--columns", "name,path", "sparse", "case:v"}).output);
    // The columns stay where they are.
    for (const char *search : {"a", "path:s", "\xC3\xA9"}) {
        const std::vector<std::string> arguments = {
            "--ntfs", sample().name, "--columns", "size,name,path,full,dm", search, "--color"};
        std::vector<std::string> always = arguments, never = arguments;
        always.push_back("always");
        never.push_back("never");
        std::string colored = run(always).output;
        EXPECT_NE(std::string::npos, colored.find("\x1b[1;31m")) << search;
        std::string plain = run(never, ~static_cast<size_t>(0), true).output;
        EXPECT_TRUE(plain == without_colors(colored)) << search;
    }
    for (const char *format : {"-0", "--json", "--csv"})
        EXPECT_EQ(std::string::npos, run_sample({"--color", "always", format, "sparse"}).output.find('\x1b'));
}

TEST(Fw, ExplainPrintsTheTermsAlone) {
    run_t result = run_sample({"--explain", "--files", "nothing is"});
    EXPECT_EQ(FW_FOUND, result.status);
    EXPECT_EQ("   1  find \"nothing\"  op 2    match -> 2       else -> no\n"
              "   2  find \"is\"       op 2    match -> 3       else -> no\n"
              "   3  true            op 0    match -> result  else -> no   (folders: false)   (filter)\n",
              result.output);
}

TEST(Fw, StatsTellItemsAndTimes) {
    run_t result = run_sample({"--stats", "--count", "--threads", "1"});
    EXPECT_NE(std::string::npos,
              result.error.find("items " + result.output.substr(0, result.output.size() - 1) + " ("));
    for (const char *word : {"bytes per item ", "read 0.", "sort 0.", "search 0."})
        EXPECT_NE(std::string::npos, result.error.find(word)) << result.error;
}

} // namespace
} // namespace findwright
