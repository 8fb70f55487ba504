#include "base/utf8_format.h"

#include "base/mem.h"
#include "base/utf8.h"

namespace findwright {

// Formats may come out of a language pack: a width beyond this is a mistake there.
static constexpr u32 FORMAT_WIDTH_MAX = 255;
static constexpr u32 FORMAT_POINTER_DIGITS = 8;
static constexpr u32 FORMAT_NUMBER_MAX = 20; // decimal digits of 64 bits
static constexpr u32 MICROSECONDS = 1000000;
static constexpr u32 MICROSECOND_DIGITS = 6;

// Where the text goes: `out` is 0 when it is only counted.
struct utf8_sink_t {
    char *out;
    u32 length;
};

struct utf8_conversion_t {
    bool zero_fill;
    bool is_64_bit;
    u32 width;
    char letter;
};

struct utf8_format_args_t {
    va_list list;
};

static void _utf8_sink_byte(utf8_sink_t *sink, char c) {
    if (sink->out) {
        sink->out[sink->length] = c;
    }
    sink->length++;
}

static void _utf8_sink_fill(utf8_sink_t *sink, char c, u32 count) {
    while (count--) {
        _utf8_sink_byte(sink, c);
    }
}

static void _utf8_sink_text(utf8_sink_t *sink, const char *text, u32 length) {
    if (sink->out && length) {
        std::memcpy(sink->out + sink->length, text, length);
    }
    sink->length += length;
}

static void _utf8_sink_wchar(utf8_sink_t *sink, const char16_t *text, u32 length) {
    sink->length += sink->out ? utf8_from_wchar_length(sink->out + sink->length, text, length)
                              : utf8_wchar_get_length(text, length);
}

static void _utf8_sink_number(utf8_sink_t *sink, u64 magnitude, bool negative, u32 base, bool upper,
                              const utf8_conversion_t *conversion) {
    const char *digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char text[FORMAT_NUMBER_MAX];
    u32 start = FORMAT_NUMBER_MAX;
    do {
        text[--start] = digits[magnitude % base];
        magnitude /= base;
    } while (magnitude);
    const u32 length = FORMAT_NUMBER_MAX - start;
    const u32 used = length + negative;
    const u32 fill = conversion->width > used ? conversion->width - used : 0;
    if (!conversion->zero_fill) {
        _utf8_sink_fill(sink, ' ', fill);
    }
    if (negative) {
        _utf8_sink_byte(sink, '-');
    }
    if (conversion->zero_fill) {
        _utf8_sink_fill(sink, '0', fill);
    }
    _utf8_sink_text(sink, text + start, length);
}

// Reads what stands behind a %, and returns the cursor behind it. The letter is 0 at the end of the format.
static const char *_utf8_parse_conversion(const char *format, utf8_conversion_t *conversion) {
    *conversion = {};
    if (*format == '0') {
        conversion->zero_fill = true;
        format++;
    }
    for (; utf8_is_digit(*format); format++) {
        const u32 width = conversion->width * 10 + static_cast<u32>(*format - '0');
        conversion->width = width < FORMAT_WIDTH_MAX ? width : FORMAT_WIDTH_MAX;
    }
    if (format[0] == 'I' && format[1] == '6' && format[2] == '4' && format[3] &&
        std::strchr("duxX", format[3])) {
        conversion->is_64_bit = true;
        format += 3;
    }
    conversion->letter = *format;
    return *format ? format + 1 : format;
}

static void _utf8_sink_integer(utf8_sink_t *sink, const utf8_conversion_t *conversion,
                               utf8_format_args_t *args) {
    const u64 value = conversion->is_64_bit ? va_arg(args->list, u64) : va_arg(args->list, u32);
    const char letter = conversion->letter;
    if (letter == 'd') {
        const i64 number = conversion->is_64_bit ? static_cast<i64>(value) : static_cast<i32>(value);
        const u64 bits = static_cast<u64>(number);
        _utf8_sink_number(sink, number < 0 ? 0 - bits : bits, number < 0, 10, false, conversion);
    } else {
        _utf8_sink_number(sink, value, false, letter == 'u' ? 10 : 16, letter == 'X', conversion);
    }
}

static void _utf8_sink_microseconds(utf8_sink_t *sink, u32 value) {
    utf8_conversion_t conversion = {};
    _utf8_sink_number(sink, value / MICROSECONDS, false, 10, false, &conversion);
    _utf8_sink_byte(sink, '.');
    conversion.zero_fill = true;
    conversion.width = MICROSECOND_DIGITS;
    _utf8_sink_number(sink, value % MICROSECONDS, false, 10, false, &conversion);
}

static void _utf8_sink_conversion(utf8_sink_t *sink, utf8_conversion_t *conversion,
                                  utf8_format_args_t *args) {
    switch (conversion->letter) {
    case 0: break;
    case 'd':
    case 'u':
    case 'x':
    case 'X': _utf8_sink_integer(sink, conversion, args); break;
    case 'p':
    case 'P':
        conversion->zero_fill = true;
        conversion->width = FORMAT_POINTER_DIGITS;
        _utf8_sink_number(sink, reinterpret_cast<size_t>(va_arg(args->list, void *)), false, 16,
                          conversion->letter == 'P', conversion);
        break;
    case 'f': _utf8_sink_microseconds(sink, va_arg(args->list, u32)); break;
    case 's':
        if (const char *text = va_arg(args->list, const char *)) {
            _utf8_sink_text(sink, text, utf8_length(text));
        }
        break;
    case 'S':
        if (const char16_t *text = va_arg(args->list, const char16_t *)) {
            _utf8_sink_wchar(sink, text, wchar_length(text));
        }
        break;
    case 't': {
        const char *text = va_arg(args->list, const char *);
        _utf8_sink_text(sink, text, va_arg(args->list, u32));
        break;
    }
    case 'T': {
        const char16_t *text = va_arg(args->list, const char16_t *);
        _utf8_sink_wchar(sink, text, va_arg(args->list, u32));
        break;
    }
    case 'c': _utf8_sink_byte(sink, static_cast<char>(va_arg(args->list, u32))); break;
    default: _utf8_sink_byte(sink, conversion->letter); break; // also the second percent sign
    }
}

u32 utf8_format(char *out, const char *format, va_list args) {
    utf8_format_args_t copy;
    va_copy(copy.list, args);
    utf8_sink_t sink = {out, 0};
    while (*format) {
        if (*format != '%') {
            const char *run = format;
            while (*format && *format != '%') {
                format++;
            }
            _utf8_sink_text(&sink, run, static_cast<u32>(format - run));
            continue;
        }
        utf8_conversion_t conversion;
        format = _utf8_parse_conversion(format + 1, &conversion);
        _utf8_sink_conversion(&sink, &conversion, &copy);
    }
    va_end(copy.list);
    if (out) {
        out[sink.length] = 0;
    }
    return sink.length;
}

// What the next conversion of a format takes: 'n' and 'N' are numbers of 32 and 64 bits, other letters stand
// for themselves; 0 at the format's end. Moves the format behind that conversion.
static char _utf8_next_argument(const char **format) {
    while (const char *percent = std::strchr(*format, '%')) {
        utf8_conversion_t conversion;
        *format = _utf8_parse_conversion(percent + 1, &conversion);
        const char letter = conversion.letter;
        if (letter && std::strchr("duxX", letter))
            return conversion.is_64_bit ? 'N' : 'n';
        if (letter && std::strchr("pPfsStTc", letter))
            return letter == 'P' ? 'p' : letter;
    }
    return 0;
}

bool utf8_format_takes_same(const char *a, const char *b) {
    for (;;) {
        const char argument = _utf8_next_argument(&a);
        if (_utf8_next_argument(&b) != argument)
            return false;
        if (argument == 0)
            return true;
    }
}

char *utf8_alloc_vformat(const char *format, va_list args) {
    char *text = static_cast<char *>(mem_alloc(static_cast<size_t>(utf8_format(0, format, args)) + 1));
    utf8_format(text, format, args);
    return text;
}

char *utf8_alloc_format(const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *text = utf8_alloc_vformat(format, args);
    va_end(args);
    return text;
}

} // namespace findwright
