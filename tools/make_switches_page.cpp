// Prints the page of the command line's switches, docs/switches.md, from the program's own table:
//
//   make_switches_page > docs/switches.md
#include "app/command_line.h"
#include "base/utf8_buf.h"

#include <cstdio>
#include <string>

using namespace findwright;

static const char *const head =
    "# Command line\n"
    "\n"
    "Made by `tools/make_switches_page.cpp` from the program's own table.\n"
    "\n"
    "```\n"
    "findwright [-switch [argument]]... [file list]\n"
    "```\n"
    "\n"
    "Words are parted by white space; `\"` quotes, and `\"\"\"` is the character itself. A word that begins "
    "with\n"
    "`-` is a switch unless any of it was quoted; on Windows so is one that begins with `/`, which on Linux\n"
    "begins a path. Any other word names a file list. All hyphens of a switch are optional, `_` is one too, "
    "and\n"
    "so is a second one in front: `-no-db`, `--no_db` and `-nodb` are the same. Capital letters count. "
    "Relative\n"
    "paths are taken from the current directory. What is given twice counts as it was given last. What the\n"
    "program does not understand makes it show the help.\n"
    "\n"
    "| Switch | | Needs what this build does not have |\n"
    "|---|---|---|\n";

static std::string escape(const char *text) {
    std::string out;
    for (; *text; text++) {
        if (*text == '|')
            out += '\\';
        out += *text;
    }
    return out;
}

int main() {
    std::fputs(head, stdout);
    utf8_buf_t usage;
    utf8_buf_init(&usage);
    for (const command_line_switch_t &row : command_line_switches) {
        utf8_buf_empty(&usage);
        command_line_cat_usage(&usage, &row);
        std::printf("| `%s` | %s | %s%s |\n", escape(usage.data).c_str(), localization_get(row.help),
                    row.works ? "" : localization_get(row.lacks),
                    row.works_on_posix && !row.works ? " (on Windows)" : "");
    }
    utf8_buf_kill(&usage);
    return 0;
}
