// What both platforms share: the names of an instance's files, and the block of a hand-over.
#include "app/instance.h"

#include "app/config.h"
#include "base/utf8.h"

#include <cstring>

namespace findwright {

u32 instance_peer_limit = 5000;

void instance_get_filename(utf8_buf_t *out, const char *name, const char *extension) {
    utf8_buf_copy_string(out, "findwright");
    if (name && *name) {
        utf8_buf_cat_byte(out, '-');
        config_cat_instance(out, name);
    }
    utf8_buf_cat_printf(out, ".%s", extension);
}

void instance_put_u32(char *to, u32 value) {
    for (u32 i = 0; i < 4; i++)
        to[i] = static_cast<char>(value >> (8 * i) & 0xFF);
}

u32 instance_get_u32(const char *from) {
    u32 value = 0;
    for (u32 i = 0; i < 4; i++)
        value |= static_cast<u32>(from[i]) << (8 * i);
    return value;
}

bool instance_build_block(utf8_buf_t *out, const instance_block_t *block) {
    utf8_buf_empty(out);
    const u64 command_line_length = std::strlen(block->command_line);
    const u64 directory_length = std::strlen(block->current_directory);
    const u64 size = INSTANCE_BLOCK_MIN + command_line_length + directory_length;
    if (size > INSTANCE_BLOCK_MAX)
        return false;
    char numbers[INSTANCE_SIZE_BYTES + 4];
    instance_put_u32(numbers, static_cast<u32>(size));
    instance_put_u32(numbers + INSTANCE_SIZE_BYTES, block->show_command);
    utf8_buf_cat_utf8(out, numbers, sizeof(numbers));
    utf8_buf_cat_utf8(out, block->command_line, static_cast<u32>(command_line_length) + 1);
    utf8_buf_cat_utf8(out, block->current_directory, static_cast<u32>(directory_length) + 1);
    return true;
}

// The terminated text at `*cursor`, which moves behind it; 0 when no terminator comes before the end.
static const char *_instance_take_text(const char **cursor, const char *end) {
    const char *text = *cursor;
    const void *zero = std::memchr(text, 0, static_cast<size_t>(end - text));
    if (!zero)
        return nullptr;
    *cursor = static_cast<const char *>(zero) + 1;
    return text;
}

bool instance_parse_block(const char *bytes, u32 size, instance_block_t *block) {
    if (size < INSTANCE_BLOCK_MIN)
        return false;
    const char *const end = bytes + size;
    const char *cursor = bytes + 4;
    block->show_command = instance_get_u32(bytes);
    block->command_line = _instance_take_text(&cursor, end);
    if (!block->command_line)
        return false;
    block->current_directory = _instance_take_text(&cursor, end);
    return block->current_directory && cursor == end;
}

} // namespace findwright
