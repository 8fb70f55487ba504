// The writer of file lists. See index/file_list.h.
#include "base/file.h"
#include "base/utf8.h"
#include "index/file_list.h"
#include "os/os.h"

#include <charconv>

namespace findwright {

static constexpr u32 ERROR_TEXT_SIZE = 512;
static constexpr u32 NUMBER_SIZE = 20; // digits of the largest 64-bit number

struct file_list_writer_t {
    file_writer_t *file; // 0 while names are only looked at
    file_list_empty_date_t empty_date;
    bool relative; // looking: all names so far can be relative
    bool failed;
    u32 error; // the system's, of the first write that failed
    u64 rows;
    u64 left_out;
    file_list_base_t base;
    utf8_buf_t name;     // as it is written
    utf8_buf_t resolved; // what a reader makes of it
};

static void _file_list_put_number(file_list_writer_t *writer, u64 value) {
    char digits[NUMBER_SIZE];
    const auto end = std::to_chars(digits, digits + sizeof digits, value);
    file_writer_write(writer->file, digits, static_cast<size_t>(end.ptr - digits));
}

static void _file_list_put_date(file_list_writer_t *writer, u64 date) {
    file_writer_put(writer->file, ',');
    if (date != (writer->empty_date == FILE_LIST_ZERO_IS_EMPTY ? 0 : VALUE_UNKNOWN))
        _file_list_put_number(writer, date);
}

// Puts the name relative to the list's folder into writer->name. False when it does not lie below, or when a
// reader would make another name of it: one with a `:`, or with a component of dots only.
static bool _file_list_make_relative(file_list_writer_t *writer, const char *name, u32 length) {
    const file_list_base_t *base = &writer->base;
    const u32 prefix = static_cast<u32>(base->path.length);
    if (length <= prefix || std::memcmp(name, base->path.data, prefix) != 0)
        return false;
    const bool has_separator = base->is_absolute || base->segments;
    if (has_separator && name[prefix] != base->separator)
        return false;
    utf8_buf_copy_utf8(&writer->name, name + prefix + has_separator, length - prefix - has_separator);
    if (os_path_separator == '/') {
        for (i32 i = 0; i < writer->name.length; i++) {
            if (writer->name.data[i] == '\\')
                writer->name.data[i] = '/';
        }
    }
    file_list_resolve(base, writer->name.data, static_cast<u32>(writer->name.length), &writer->resolved);
    return writer->name.length != 0 &&
           utf8_is_equal(writer->resolved.data, static_cast<u32>(writer->resolved.length), name, length);
}

void file_list_put(file_list_writer_t *writer, const char *name, u32 length, const db_file_info_t *info) {
    // A line end would make two rows of one, the second with a name of the first one's making.
    const bool fits = length != 0 && !std::memchr(name, '\n', length);
    if (!writer->file) {
        writer->relative = writer->relative && (!fits || _file_list_make_relative(writer, name, length));
        return;
    }
    if (!fits) {
        writer->left_out++;
        return;
    }
    if (!writer->relative || !_file_list_make_relative(writer, name, length))
        os_path_to_user(name, length, &writer->name);
    file_writer_put_csv(writer->file, writer->name.data, static_cast<u32>(writer->name.length));
    file_writer_put(writer->file, ',');
    if (info->size != VALUE_UNKNOWN)
        _file_list_put_number(writer, info->size);
    _file_list_put_date(writer, info->date_modified);
    _file_list_put_date(writer, info->date_created);
    file_writer_put(writer->file, ',');
    _file_list_put_number(writer, info->attributes);
    file_writer_puts(writer->file, "\r\n");
    writer->rows++;
    if (writer->file->error && !writer->failed) {
        writer->failed = true;
        writer->error = os_get_last_error();
    }
}

static bool _file_list_write_file(file_list_writer_t *writer, const char *temp, const char *filename,
                                  file_list_source_t *source, void *param) {
    writer->file = file_writer_open(temp);
    if (!writer->file) {
        writer->error = os_get_last_error();
        return false;
    }
    file_writer_puts(writer->file, "Filename,Size,Date Modified,Date Created,Attributes\r\n");
    source(param, writer);
    bool done = file_writer_close(writer->file);
    if (done)
        done = os_replace_file(temp, filename);
    if (!done && !writer->failed)
        writer->error = os_get_last_error();
    if (!done)
        os_delete_file(temp);
    return done;
}

static void _file_list_set_error(utf8_buf_t *out, const char *filename, u32 error) {
    char reason[ERROR_TEXT_SIZE];
    os_error_text(error, reason, sizeof reason);
    os_path_to_system(filename, utf8_length(filename), out);
    utf8_buf_cat_printf(out, ": %s", reason);
}

bool file_list_write(const char *filename, const file_list_write_t *options, file_list_source_t *source,
                     void *param, file_list_written_t *written, utf8_buf_t *error) {
    file_list_writer_t writer;
    writer.file = nullptr;
    writer.empty_date = options->empty_date;
    writer.relative = options->relative;
    writer.failed = false;
    writer.error = 0;
    writer.rows = writer.left_out = 0;
    utf8_buf_t temp;
    utf8_buf_init(&temp);
    utf8_buf_init(&writer.name);
    utf8_buf_init(&writer.resolved);
    file_list_base_init_for(&writer.base, filename);
    if (writer.relative)
        source(param, &writer);

    os_get_temp_name(filename, &temp);
    const bool done = _file_list_write_file(&writer, temp.data, filename, source, param);
    if (!done && error)
        _file_list_set_error(error, filename, writer.error);
    if (written)
        *written = {writer.rows, writer.left_out, writer.relative};
    file_list_base_kill(&writer.base);
    utf8_buf_kill(&writer.resolved);
    utf8_buf_kill(&writer.name);
    utf8_buf_kill(&temp);
    return done;
}

} // namespace findwright
