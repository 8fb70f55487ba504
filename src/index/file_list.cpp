#include "index/file_list.h"

#include "base/csv.h"
#include "base/utf8.h"
#include "os/os.h"

#include <bit>

namespace findwright {

// --- Names -------------------------------------------------------------------------------------------------

// A path that is being put together from components: a base's fields, with the text elsewhere.
struct file_list_path_t {
    utf8_buf_t *text;
    u32 root_length;
    u32 segments;
    bool is_absolute;
    char separator;
};

static void _file_list_push(file_list_path_t *path, const char *segment, u32 length) {
    if (path->is_absolute || path->segments)
        utf8_buf_cat_byte(path->text, path->separator);
    utf8_buf_cat_utf8(path->text, segment, length);
    path->segments++;
}

static void _file_list_pop(file_list_path_t *path) {
    if (!path->segments)
        return;
    u32 length = path->root_length;
    if (--path->segments) {
        length = static_cast<u32>(path->text->length);
        while (path->text->data[--length] != path->separator) {
        }
    }
    utf8_buf_set_length(path->text, length);
}

static bool _file_list_is_dots(const char *segment, u32 length) {
    u32 i = 0;
    while (i < length && segment[i] == '.')
        i++;
    return i == length && length != 0;
}

// Adds a relative path, cleaning it. Going up costs no more than what was pushed before.
static void _file_list_add(file_list_path_t *path, const char *text, u32 length) {
    for (u32 start = 0; start <= length;) {
        u32 end = start;
        while (end < length && !utf8_is_separator(text[end]))
            end++;
        if (_file_list_is_dots(text + start, end - start)) {
            for (u32 up = end - start - 1; up != 0 && path->segments; up--)
                _file_list_pop(path);
        } else {
            _file_list_push(path, text + start, end - start);
        }
        start = end + 1;
    }
}

void file_list_base_init(file_list_base_t *base, const char *folder, u32 length) {
    utf8_buf_init(&base->path);
    const u32 root = utf8_get_root_length(folder, length);
    utf8_buf_copy_utf8(&base->path, folder, root);
    base->root_length = root;
    base->separator = root > 2 && folder[0] != '\\' ? '/' : '\\';
    u32 start = root;
    if (start < length && utf8_is_separator(folder[start]))
        start++;
    base->is_absolute = start != 0;
    base->segments = 0;
    if (start < length) {
        file_list_path_t path = {&base->path, root, 0, base->is_absolute, base->separator};
        _file_list_add(&path, folder + start, length - start);
        base->segments = path.segments;
    }
}

void file_list_base_init_for(file_list_base_t *base, const char *filename) {
    u32 length = utf8_length(filename);
    while (length && !utf8_is_separator(filename[length - 1]))
        length--;
    // The separator goes, unless it is all there is.
    file_list_base_init(base, filename, length > 1 ? length - 1 : length);
}

void file_list_base_kill(file_list_base_t *base) {
    utf8_buf_kill(&base->path);
}

// A `:` in front of any separator: a drive, or a scheme.
static bool _file_list_has_colon(const char *name, u32 length) {
    for (u32 i = 0; i < length && !utf8_is_separator(name[i]); i++) {
        if (name[i] == ':')
            return true;
    }
    return false;
}

static constexpr u64 BYTE_ONES = 0x0101010101010101;
static constexpr u64 BYTE_LOW_BITS = 0x7F * BYTE_ONES;

// 0x80 in each byte of the word that is `c`, 0 in the others.
static u64 _file_list_find_bytes(u64 word, char c) {
    const u64 difference = word ^ (BYTE_ONES * static_cast<u8>(c));
    return ~(((difference & BYTE_LOW_BITS) + BYTE_LOW_BITS) | difference | BYTE_LOW_BITS);
}

// Appends text with one kind of separator, as most names allow. True when a component in it begins with a
// dot. Eight bytes at a time: in a list of relative names, or of `/` paths, each name comes through here.
static bool _file_list_cat_separated(utf8_buf_t *out, const char *text, u32 length, char separator) {
    static_assert(std::endian::native == std::endian::little); // the first byte is the lowest
    utf8_buf_grow_cat(out, length);
    char *to = out->data + out->length;
    u64 dots = 0;
    u64 in_front = 0x80; // whether a separator, or nothing, stands in front of the word
    u32 i = 0;
    for (; length - i >= sizeof(u64); i += sizeof(u64)) {
        u64 word;
        std::memcpy(&word, text + i, sizeof word);
        const u64 separators = _file_list_find_bytes(word, '/') | _file_list_find_bytes(word, '\\');
        dots |= _file_list_find_bytes(word, '.') & (separators << 8 | in_front);
        in_front = separators >> 56;
        const u64 mask = (separators >> 7) * 0xFF;
        word = (word & ~mask) | ((BYTE_ONES * static_cast<u8>(separator)) & mask);
        std::memcpy(to + i, &word, sizeof word);
    }
    bool has_dot = dots != 0;
    for (bool at_start = in_front != 0; i < length; i++) {
        const char c = text[i];
        has_dot |= at_start && c == '.';
        at_start = utf8_is_separator(c);
        to[i] = at_start ? separator : c;
    }
    utf8_buf_set_length(out, static_cast<u32>(out->length) + length);
    return has_dot;
}

// A path of this system, which begins with `/`; several there mean the same as one.
static void _file_list_from_system(const char *name, u32 length, utf8_buf_t *out) {
    while (length > 1 && name[1] == '/') {
        name++;
        length--;
    }
    if (std::memchr(name, '\\', length)) {
        os_path_from_system(name, length, out);
    } else {
        utf8_buf_empty(out);
        _file_list_cat_separated(out, name, length, '\\');
    }
}

// A name under a base or, with `is_rooted`, under its root.
static void _file_list_join(const file_list_base_t *base, bool is_rooted, const char *name, u32 length,
                            utf8_buf_t *out) {
    const u32 prefix = is_rooted ? base->root_length : static_cast<u32>(base->path.length);
    file_list_path_t path = {out, base->root_length, is_rooted ? 0 : base->segments, base->is_absolute,
                             base->separator};
    utf8_buf_copy_utf8(out, base->path.data, prefix);
    if (path.is_absolute || path.segments)
        utf8_buf_cat_byte(out, path.separator);
    if (!_file_list_cat_separated(out, name, length, path.separator))
        return;
    utf8_buf_set_length(out, prefix);
    _file_list_add(&path, name, length);
    if (out->length == 0 && base->is_absolute)
        utf8_buf_cat_byte(out, base->separator);
}

void file_list_resolve(const file_list_base_t *base, const char *name, u32 length, utf8_buf_t *out) {
    const bool is_rooted = length && utf8_is_separator(name[0]);
    const bool is_server = length > 1 && name[0] == '\\' && name[1] == '\\';
    if (is_server || _file_list_has_colon(name, length)) {
        utf8_buf_copy_utf8(out, name, length);
        return;
    }
    if (is_rooted && name[0] == '/' && os_path_separator == '/') {
        _file_list_from_system(name, length, out);
        return;
    }
    if (is_rooted && !base->root_length) { // nothing to put in front: it is absolute as it is
        utf8_buf_copy_utf8(out, name, length);
        utf8_buf_fix_path(out);
        return;
    }
    _file_list_join(base, is_rooted, name + is_rooted, length - is_rooted, out);
}

bool file_list_next_piece(const char *name, u32 length, u32 *position, const char **piece,
                          u32 *piece_length) {
    const u32 start = *position;
    if (start > length)
        return false;
    u32 end = start;
    while (start == 0 && end < length && end < 2 && name[end] == '\\')
        end++;
    const void *separator = end < length ? std::memchr(name + end, '\\', length - end) : nullptr;
    end = separator ? static_cast<u32>(static_cast<const char *>(separator) - name) : length;
    *piece = name + start;
    *piece_length = end - start;
    *position = end + 1;
    return true;
}

// --- Numbers and dates -------------------------------------------------------------------------------------

static u64 _file_list_parse_digits(const char **cursor, const char *end) {
    u64 value = 0;
    const char *p = *cursor;
    for (; p != end && utf8_is_digit(*p); p++)
        value = value * 10 + static_cast<u64>(*p - '0');
    *cursor = p;
    return value;
}

static constexpr u64 TICKS_PER_SECOND = 10000000;
static constexpr u64 TICKS_PER_MINUTE = 60 * TICKS_PER_SECOND;
static constexpr u64 TICKS_PER_DAY = 24 * 60 * TICKS_PER_MINUTE;
static constexpr u32 YEAR_FIRST = 1601;
static constexpr u32 YEAR_LAST = 30827; // of file times

static bool _file_list_is_leap_year(u32 year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

struct file_list_date_t {
    u32 year, month, day, hour, minute, second, fraction; // fraction in ticks
};

// The ticks of a date whose fields are in range, else 0.
static u64 _file_list_date_to_ticks(const file_list_date_t *date) {
    static constexpr u8 month_days[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (date->year < YEAR_FIRST || date->year > YEAR_LAST || date->month - 1 >= 12)
        return 0;
    const bool is_leap = _file_list_is_leap_year(date->year);
    const u32 days = month_days[date->month - 1] + (is_leap && date->month == 2);
    if (date->day - 1 >= days || date->hour > 23 || date->minute > 59 || date->second > 59)
        return 0;
    const u32 years = date->year - YEAR_FIRST; // 1601 begins a cycle of 400 years
    u64 day = u64{years} * 365 + years / 4 - years / 100 + years / 400 + date->day - 1;
    for (u32 month = 1; month < date->month; month++)
        day += month_days[month - 1];
    day += is_leap && date->month > 2;
    const u64 minute = u64{date->hour} * 60 + date->minute;
    return day * TICKS_PER_DAY + minute * TICKS_PER_MINUTE + date->second * TICKS_PER_SECOND + date->fraction;
}

// Two digits; false, and nothing taken, when they are not there.
static bool _file_list_take_pair(const char **cursor, const char *end, u32 *value) {
    const char *p = *cursor;
    if (end - p < 2 || !utf8_is_digit(p[0]) || !utf8_is_digit(p[1]))
        return false;
    *value = static_cast<u32>(p[0] - '0') * 10 + static_cast<u32>(p[1] - '0');
    *cursor = p + 2;
    return true;
}

static bool _file_list_take(const char **cursor, const char *end, char lower) {
    if (*cursor == end || (**cursor | 0x20) != lower)
        return false;
    ++*cursor;
    return true;
}

// Digits past the seventh are less than a tick.
static u32 _file_list_take_fraction(const char **cursor, const char *end) {
    u32 fraction = 0;
    for (u32 unit = TICKS_PER_SECOND / 10; *cursor != end && utf8_is_digit(**cursor); ++*cursor, unit /= 10)
        fraction += static_cast<u32>(**cursor - '0') * unit;
    return fraction;
}

// The fields as far as the digit pairs go. True when they are all there, down to the second.
static bool _file_list_take_date(const char **cursor, const char *end, file_list_date_t *date) {
    u32 century, year;
    if (!_file_list_take_pair(cursor, end, &century) || !_file_list_take_pair(cursor, end, &year))
        return false;
    date->year = century * 100 + year;
    const struct {
        char separator; // optional, but for the `t` in front of the time
        u32 *field;
    } steps[] = {{'-', &date->month},
                 {'-', &date->day},
                 {'t', &date->hour},
                 {':', &date->minute},
                 {':', &date->second}};
    for (const auto &step : steps) {
        const bool found = _file_list_take(cursor, end, step.separator);
        if ((!found && step.separator == 't') || !_file_list_take_pair(cursor, end, step.field))
            return false;
    }
    return true;
}

static u64 _file_list_local_date(const file_list_date_t *date) {
    const u64 ticks = _file_list_date_to_ticks(date);
    return ticks ? os_local_time_to_file_time(ticks) : 0;
}

static u64 _file_list_parse_calendar_date(const char *cursor, const char *end) {
    file_list_date_t date = {};
    if (!_file_list_take_date(&cursor, end, &date))
        return _file_list_local_date(&date);
    if (cursor != end && *cursor == '.') {
        cursor++;
        date.fraction = _file_list_take_fraction(&cursor, end);
    }
    if (_file_list_take(&cursor, end, 'z'))
        return _file_list_date_to_ticks(&date);
    const char sign = cursor != end ? *cursor : 0;
    u32 hours, minutes = 0;
    if ((sign != '+' && sign != '-') || !_file_list_take_pair(&++cursor, end, &hours))
        return _file_list_local_date(&date);
    _file_list_take(&cursor, end, ':');
    _file_list_take_pair(&cursor, end, &minutes);
    const u64 offset = (u64{hours} * 60 + minutes) * TICKS_PER_MINUTE;
    const u64 ticks = _file_list_date_to_ticks(&date);
    if (!ticks || (sign == '+' && ticks < offset))
        return 0;
    return sign == '+' ? ticks - offset : ticks + offset;
}

u64 file_list_parse_date(const char *text, u32 length) {
    if (length == 0)
        return VALUE_UNKNOWN;
    const char *end = text + length;
    const char *cursor = text;
    const u64 ticks = _file_list_parse_digits(&cursor, end);
    if (cursor != end && (*cursor == '-' || (*cursor | 0x20) == 't'))
        return _file_list_parse_calendar_date(text, end);
    return ticks;
}

// --- Reading -----------------------------------------------------------------------------------------------

enum file_list_column_t : u32 {
    FILE_LIST_FILENAME,
    FILE_LIST_SIZE,
    FILE_LIST_DATE_MODIFIED,
    FILE_LIST_DATE_CREATED,
    FILE_LIST_DATE_ACCESSED,
    FILE_LIST_ATTRIBUTES,
    FILE_LIST_COLUMNS,
};

static const char *const file_list_column_names[FILE_LIST_COLUMNS] = {
    "Filename", "Size", "Date Modified", "Date Created", "Date Accessed", "Attributes"};

struct file_list_field_t {
    const char *text;
    u32 length;
};

struct file_list_reader_t {
    csv_t *csv;
    // The columns that the list has, in its order, with their places.
    u32 column_count;
    file_list_column_t columns[FILE_LIST_COLUMNS];
    u32 places[FILE_LIST_COLUMNS];
    file_list_field_t fields[FILE_LIST_COLUMNS]; // of the row in hand
    file_list_base_t base;
    utf8_buf_t name;
};

static file_list_column_t _file_list_find_column(const char *name, u32 length) {
    u32 column = 0;
    while (column < FILE_LIST_COLUMNS && utf8_compare_fold(name, length, file_list_column_names[column],
                                                           utf8_length(file_list_column_names[column])) != 0)
        column++;
    return static_cast<file_list_column_t>(column);
}

// False when there is no column `Filename`.
static bool _file_list_read_header(file_list_reader_t *reader) {
    reader->column_count = 0;
    bool has_filename = false;
    u32 place = 0;
    for (; const char *field = csv_next_field(reader->csv); place++) {
        const file_list_column_t column = _file_list_find_column(field, reader->csv->field_length);
        if (column == FILE_LIST_COLUMNS)
            continue;
        has_filename |= column == FILE_LIST_FILENAME;
        // Of two columns of a name the last one counts.
        u32 at = 0;
        for (u32 i = 0; i < reader->column_count; i++) {
            if (reader->columns[i] != column) {
                reader->columns[at] = reader->columns[i];
                reader->places[at++] = reader->places[i];
            }
        }
        reader->columns[at] = column;
        reader->places[at] = place;
        reader->column_count = at + 1;
    }
    return has_filename;
}

// Takes the fields of the next row; those that it does not have are empty. False at the end of the list.
static bool _file_list_read_fields(file_list_reader_t *reader) {
    if (!csv_next_line(reader->csv))
        return false;
    for (file_list_field_t &field : reader->fields)
        field = {"", 0};
    u32 next = 0;
    u32 place = 0;
    for (; const char *text = csv_next_field(reader->csv); place++) {
        if (next < reader->column_count && reader->places[next] == place)
            reader->fields[reader->columns[next++]] = {text, reader->csv->field_length};
    }
    return reader->csv->at_end;
}

static u64 _file_list_parse_number(const file_list_field_t *field) {
    const char *cursor = field->text;
    return _file_list_parse_digits(&cursor, field->text + field->length);
}

static u64 _file_list_parse_field_date(const file_list_reader_t *reader, file_list_column_t column) {
    return file_list_parse_date(reader->fields[column].text, reader->fields[column].length);
}

// Makes a row of the fields in hand. False when it is none, or is left out.
static bool _file_list_make_row(file_list_reader_t *reader, const file_list_read_t *options,
                                file_list_row_t *row) {
    const file_list_field_t *filename = &reader->fields[FILE_LIST_FILENAME];
    if (filename->length == 0)
        return false;
    const u32 attributes = static_cast<u32>(_file_list_parse_number(&reader->fields[FILE_LIST_ATTRIBUTES]));
    if ((options->exclude_hidden && attributes & FILE_LIST_HIDDEN) ||
        (options->exclude_system && attributes & FILE_LIST_SYSTEM))
        return false;
    file_list_resolve(&reader->base, filename->text, filename->length, &reader->name);
    row->name = reader->name.data;
    row->length = static_cast<u32>(reader->name.length);
    row->is_folder = attributes & FILE_LIST_FOLDER;
    const file_list_field_t *size = &reader->fields[FILE_LIST_SIZE];
    row->info.size = row->is_folder ? 0 : size->length == 0 ? VALUE_UNKNOWN : _file_list_parse_number(size);
    row->info.date_modified = _file_list_parse_field_date(reader, FILE_LIST_DATE_MODIFIED);
    row->info.date_created = _file_list_parse_field_date(reader, FILE_LIST_DATE_CREATED);
    row->info.date_accessed = _file_list_parse_field_date(reader, FILE_LIST_DATE_ACCESSED);
    row->info.attributes = attributes;
    return true;
}

file_list_status_t file_list_read(const char *filename, const file_list_read_t *options,
                                  file_list_row_proc_t *proc, void *param) {
    file_list_reader_t reader;
    reader.csv = csv_open(filename);
    if (!reader.csv)
        return FILE_LIST_NOT_OPENED;
    file_list_status_t status = FILE_LIST_INVALID;
    if (_file_list_read_header(&reader)) {
        status = FILE_LIST_READ;
        file_list_base_init_for(&reader.base, filename);
        utf8_buf_init(&reader.name);
        file_list_row_t row;
        row.ordinal = 0;
        while (_file_list_read_fields(&reader)) {
            if (!_file_list_make_row(&reader, options, &row))
                continue;
            if (!proc(param, &row))
                break;
            row.ordinal++;
        }
        utf8_buf_kill(&reader.name);
        file_list_base_kill(&reader.base);
    }
    csv_close(reader.csv);
    return status;
}

// --- Names for a search ------------------------------------------------------------------------------------

static void _filelist_cat_search_name(utf8_buf_t *out, const char *name, u32 length) {
    if (out->length)
        utf8_buf_cat_byte(out, '|');
    for (const char *end = name + length; name != end;) {
        const auto *bar = static_cast<const char *>(std::memchr(name, '|', static_cast<size_t>(end - name)));
        utf8_buf_cat_utf8(out, name, static_cast<u32>((bar ? bar : end) - name));
        if (bar)
            utf8_buf_cat_string(out, "\"#124:\"");
        name = bar ? bar + 1 : end;
    }
}

static bool _filelist_search_row_proc(void *param, const file_list_row_t *row) {
    _filelist_cat_search_name(static_cast<utf8_buf_t *>(param), row->name, row->length);
    return true;
}

static bool _filelist_read_lines(utf8_buf_t *out, const char *filename) {
    utf8_buf_t file, name;
    utf8_buf_init(&file);
    utf8_buf_init(&name);
    const bool opened = utf8_buf_read_file(&file, filename);
    u32 length = static_cast<u32>(file.length);
    const char *line = utf8_skip_bom(file.data, &length);
    const char *const end = line + length;
    for (bool first = true; line < end; first = false) {
        const char *line_end = line;
        while (line_end != end && *line_end != '\r' && *line_end != '\n')
            line_end++;
        if (line_end != line) {
            utf8_buf_copy_utf8(&name, line, static_cast<u32>(line_end - line));
            if (os_path_separator == '/' && *line == '/')
                _file_list_from_system(line, static_cast<u32>(line_end - line), &name);
            _filelist_cat_search_name(out, name.data, static_cast<u32>(name.length));
        } else if (first) {
            break;
        }
        line = line_end + (end - line_end > 1 && line_end[0] == '\r' && line_end[1] == '\n' ? 2 : 1);
    }
    utf8_buf_kill(&name);
    utf8_buf_kill(&file);
    return opened;
}

bool filelist_read_search_names(utf8_buf_t *out, const char *filename) {
    utf8_buf_empty(out);
    const u32 length = utf8_length(filename);
    const char *extension = utf8_get_extension(filename, length);
    const u32 extension_length = utf8_get_extension_length(filename, length);
    if (utf8_compare_lower(extension, extension_length, "fwl", 3) != 0 &&
        utf8_compare_lower(extension, extension_length, "csv", 3) != 0)
        return _filelist_read_lines(out, filename);
    const file_list_read_t all = {};
    return file_list_read(filename, &all, _filelist_search_row_proc, out) != FILE_LIST_NOT_OPENED;
}

} // namespace findwright
