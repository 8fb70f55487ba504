// Language packs made byte by byte, for tests and fuzz targets; memory_file must be installed, and loses its
// content.
#pragma once

#include "base/bz2.h"
#include "support/memory_file.h"

#include <string>
#include <vector>

namespace findwright {

struct test_language_t {
    u32 lid;
    std::string name;
    u32 flags;
    u32 count; // as the block says it
    std::vector<std::string> strings;
};

inline void test_pack_put(std::string *out, u32 value, u32 bytes) {
    for (u32 i = 0; i < bytes; i++)
        *out += static_cast<char>(value >> (8 * i));
}

inline std::string test_pack_compress(const std::string &bytes) {
    bz2_stream_t *stream = bz2_write_open("pack");
    bz2_write(stream, bytes.data(), static_cast<u32>(bytes.size()));
    bz2_write_close(stream);
    return memory_file.bytes;
}

inline std::string test_pack_block(const test_language_t &language) {
    std::string block;
    test_pack_put(&block, language.flags, 4);
    test_pack_put(&block, language.count, 4);
    for (const std::string &string : language.strings) {
        test_pack_put(&block, string.empty() ? 0 : static_cast<u32>(string.size()) + 1, 4);
        if (!string.empty())
            block += string + "!"; // the terminator's place holds anything
    }
    return test_pack_compress(block);
}

// A pack of these languages with these blocks.
inline std::string test_pack_join(const std::vector<test_language_t> &languages,
                                  const std::vector<std::string> &blocks) {
    std::string header, rest;
    test_pack_put(&header, static_cast<u32>(languages.size()), 4);
    for (size_t i = 0; i < languages.size(); i++) {
        test_pack_put(&header, languages[i].lid, 2);
        test_pack_put(&header, static_cast<u32>(rest.size()), 4);
        test_pack_put(&header, static_cast<u32>(blocks[i].size()), 4);
        test_pack_put(&header, static_cast<u32>(languages[i].name.size()) + 1, 1);
        header += languages[i].name + "!";
        rest += blocks[i];
    }
    header = test_pack_compress(header);
    std::string pack;
    test_pack_put(&pack, static_cast<u32>(header.size()), 4);
    test_pack_put(&pack, 1, 4);
    return pack + header + rest;
}

inline std::string test_pack_make(const std::vector<test_language_t> &languages) {
    std::vector<std::string> blocks;
    for (const test_language_t &language : languages)
        blocks.push_back(test_pack_block(language));
    return test_pack_join(languages, blocks);
}

} // namespace findwright
