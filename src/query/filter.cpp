#include "query/filter.h"

#include "base/utf8.h"
#include "query/csv_table.h"
#include "query/db_term.h"

#include <cstring>

namespace findwright {

filter_t *filter_head, *filter_tail;

static constexpr struct {
    const char *name, *search, *macro;
} _builtin_filters[] = {
    {FILTER_FINDWRIGHT, "", ""},
    {"AUDIO",
     "ext:aac;ac3;aif;aifc;aiff;au;cda;dts;fla;flac;it;m1a;m2a;m3u;m4a;mid;midi;mka;mod;mp2;mp3;mpa;ogg;ra;"
     "rmi;spc;rmi;snd;umx;voc;wav;wma;xm",
     "audio"},
    {"COMPRESSED",
     "ext:7z;ace;arj;bz2;cab;gz;gzip;jar;r00;r01;r02;r03;r04;r05;r06;r07;r08;r09;r10;r11;r12;r13;r14;r15;r16;"
     "r17;r18;r19;r20;r21;r22;r23;r24;r25;r26;r27;r28;r29;rar;tar;tgz;z;zip",
     "zip"},
    {"DOCUMENT",
     "ext:c;chm;cpp;csv;cxx;doc;docm;docx;dot;dotm;dotx;h;hpp;htm;html;hxx;ini;java;js;lua;mht;mhtml;odt;pdf;"
     "potx;potm;ppam;ppsm;ppsx;pps;ppt;pptm;pptx;rtf;sldm;sldx;thmx;txt;vsd;wpd;wps;wri;xlam;xls;xlsb;xlsm;"
     "xlsx;xltm;xltx;xml",
     "doc"},
    {"EXECUTABLE", "ext:bat;cmd;exe;msi;scr", "exe"},
    {"FOLDER", "folder:", ""},
    {"PICTURE", "ext:ani;bmp;gif;ico;jpe;jpeg;jpg;pcx;png;psd;tga;tif;tiff;wmf", "pic"},
    {"VIDEO",
     "ext:3g2;3gp;3gp2;3gpp;amr;amv;asf;avi;bdmv;bik;d2v;divx;drc;dsa;dsm;dss;dsv;evo;f4v;flc;fli;flic;flv;"
     "hdmov;ifo;ivf;m1v;m2p;m2t;m2ts;m2v;m4b;m4p;m4v;mkv;mp2v;mp4;mp4v;mpe;mpeg;mpg;mpls;mpv2;mpv4;mov;mts;"
     "ogm;ogv;pss;pva;qt;ram;ratdvd;rm;rmm;rmvb;roq;rpm;smil;smk;swf;tp;tpr;ts;vob;vp6;webm;wm;wmp;wmv",
     "video"},
};

// The columns of the file, in its order.
enum _filter_column_t : u32 {
    COLUMN_NAME,
    COLUMN_CASE,
    COLUMN_WHOLE_WORD,
    COLUMN_PATH,
    COLUMN_DIACRITICS,
    COLUMN_REGEX,
    COLUMN_SEARCH,
    COLUMN_MACRO,
    COLUMN_KEY,
    COLUMN_COUNT,
};
static constexpr const char *_column_names[COLUMN_COUNT] = {
    "Name", "Case", "Whole Word", "Path", "Diacritics", "Regex", "Search", "Macro", "Key"};
static constexpr struct {
    _filter_column_t column;
    u32 flag;
} _flag_columns[] = {
    {COLUMN_CASE, DB_MATCH_CASE},   {COLUMN_WHOLE_WORD, DB_MATCH_WHOLE_WORD},
    {COLUMN_PATH, DB_MATCH_PATH},   {COLUMN_DIACRITICS, DB_MATCH_DIACRITICS},
    {COLUMN_REGEX, DB_MATCH_REGEX},
};

// --- The list ----------------------------------------------------------------------------------------------

filter_t *filter_add(filter_t **head, filter_t **tail, const char *name, u32 flags, const char *search,
                     const char *macro, u8 key_modifiers, u8 key_code) {
    filter_t *filter = static_cast<filter_t *>(mem_alloc(sizeof *filter));
    *filter = {utf8_alloc_copy(name),  utf8_alloc_copy(search), flags,   nullptr, *tail,
               utf8_alloc_copy(macro), key_modifiers,           key_code};
    (*tail ? (*tail)->next : *head) = filter;
    *tail = filter;
    return filter;
}

static void _filter_move_to_front(filter_t *filter) {
    if (!filter->prev)
        return;
    filter->prev->next = filter->next;
    (filter->next ? filter->next->prev : filter_tail) = filter->prev;
    filter->prev = nullptr;
    filter->next = filter_head;
    filter_head->prev = filter;
    filter_head = filter;
}

void filter_list_free() {
    while (filter_head) {
        filter_t *next = filter_head->next;
        mem_free(filter_head->name);
        mem_free(filter_head->search);
        mem_free(filter_head->macro);
        mem_free(filter_head);
        filter_head = next;
    }
    filter_tail = nullptr;
}

static filter_t *_filter_find(filter_t *head, const char *name) {
    filter_t *filter = head;
    while (filter && std::strcmp(filter->name, name) != 0)
        filter = filter->next;
    return filter;
}

filter_t *filter_find_findwright(filter_t *head) {
    return _filter_find(head, FILTER_FINDWRIGHT);
}

filter_t *filter_find_by_name(const char *name) {
    filter_t *filter = _filter_find(filter_head, name);
    if (filter)
        return filter;
    filter = filter_head;
    while (filter && !csv_table_is_same_name(filter->name, name))
        filter = filter->next;
    return filter;
}

// --- The file ----------------------------------------------------------------------------------------------

static void _filter_read_row(const csv_table_field_t *fields) {
    u32 flags = 0;
    for (auto entry : _flag_columns)
        flags |= csv_table_is_one(&fields[entry.column]) ? entry.flag : 0;
    u8 modifiers, code;
    csv_table_get_key(&fields[COLUMN_KEY], &modifiers, &code);
    const char *name = fields[COLUMN_NAME].text, *search = fields[COLUMN_SEARCH].text;
    const char *macro = fields[COLUMN_MACRO].text;
    filter_t *first =
        std::strcmp(name, FILTER_FINDWRIGHT) == 0 ? filter_find_findwright(filter_head) : nullptr;
    if (!first) {
        filter_add(&filter_head, &filter_tail, name, flags, search, macro, modifiers, code);
        return;
    }
    first->search = utf8_replace_string(first->search, search);
    first->macro = utf8_replace_string(first->macro, macro);
    first->flags = flags;
    first->key_modifiers = modifiers;
    first->key_code = code;
}

void filter_list_load(const char *filename) {
    filter_list_free();
    csv_table_t table;
    if (csv_table_open(&table, filename, _column_names, COLUMN_COUNT)) {
        while (csv_table_next(&table)) {
            if (table.fields[COLUMN_NAME].length != 0)
                _filter_read_row(table.fields);
        }
        csv_table_close(&table);
    }
    if (!filter_find_findwright(filter_head)) {
        for (const auto &builtin : _builtin_filters) {
            if (!_filter_find(filter_head, builtin.name))
                filter_add(&filter_head, &filter_tail, builtin.name, 0, builtin.search, builtin.macro, 0, 0);
        }
    }
    _filter_move_to_front(filter_find_findwright(filter_head));
}

void filter_list_write(file_writer_t *writer) {
    csv_table_put_header(writer, _column_names, COLUMN_COUNT);
    for (const filter_t *filter = filter_head; filter; filter = filter->next) {
        csv_table_put_text(writer, filter->name);
        for (auto entry : _flag_columns)
            file_writer_puts(writer, filter->flags & entry.flag ? ",1" : ",0");
        file_writer_put(writer, ',');
        csv_table_put_text(writer, filter->search);
        file_writer_put(writer, ',');
        if (*filter->macro)
            csv_table_put_text(writer, filter->macro);
        file_writer_put(writer, ',');
        csv_table_put_key(writer, filter->key_modifiers, filter->key_code);
        file_writer_puts(writer, "\r\n");
    }
}

bool filter_list_save(const char *filename) {
    return csv_table_save(filename, filter_list_write);
}

} // namespace findwright
