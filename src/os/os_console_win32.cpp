#include "base/mem.h"
#include "base/utf8.h"
#include "os/os_internal.h"
#include "os/os_win32.h"

#include <cstring>
#include <iterator>
#include <shellapi.h>

namespace findwright {

static constexpr int STANDARD_OUTPUT = 1;
static constexpr int STANDARD_ERROR = 2;

static HANDLE _own_console; // of a program that has no standard error
static bool _is_console_own;

static HANDLE _os_standard_handle(int descriptor) {
    HANDLE handle = GetStdHandle(descriptor == STANDARD_OUTPUT ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    if (!handle || handle == INVALID_HANDLE_VALUE || GetFileType(handle) == FILE_TYPE_UNKNOWN)
        return nullptr;
    return handle;
}

static bool _os_is_console(HANDLE handle) {
    DWORD mode;
    return handle && GetConsoleMode(handle, &mode);
}

bool os_is_terminal(int descriptor) {
    return _os_is_console(_os_standard_handle(descriptor));
}

// Systems before Windows 10 refuse the mode.
bool os_console_enable_colors(int descriptor) {
    constexpr DWORD PROCESSED_OUTPUT = 0x1, TERMINAL_PROCESSING = 0x4;
    HANDLE handle = _os_standard_handle(descriptor);
    DWORD mode;
    if (!handle || !GetConsoleMode(handle, &mode))
        return false;
    return SetConsoleMode(handle, mode | PROCESSED_OUTPUT | TERMINAL_PROCESSING);
}

// The whole characters at the start of a text: all of it, but for a character that is cut off by its end.
static u32 _os_whole_characters(const char *text, u32 length) {
    for (u32 back = 1; back <= 3 && back <= length; back++) {
        auto byte = static_cast<u8>(text[length - back]);
        if ((byte & 0xC0) == 0x80)
            continue;
        u32 expected = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return expected > back ? length - back : length;
    }
    return length;
}

// Older systems refuse more than some 30,000 characters at a time.
static bool _os_write_console(HANDLE console, const char *text, u32 length) {
    constexpr u32 PIECE = 8192;
    char16_t wide[PIECE];
    while (length) {
        u32 piece = length;
        if (piece > PIECE) {
            piece = _os_whole_characters(text, PIECE);
            if (!piece)
                piece = PIECE;
        }
        u32 units = wchar_from_utf8(wide, text, piece);
        for (u32 done = 0; done < units;) {
            DWORD written = 0;
            if (!WriteConsoleW(console, wide + done, units - done, &written, nullptr) || !written)
                return false;
            done += written;
        }
        text += piece;
        length -= piece;
    }
    return true;
}

// What was left of a character that a write to the console ended within; one per descriptor.
struct _console_rest_t {
    char bytes[4];
    u32 length;
};
static _console_rest_t _console_rest[STANDARD_ERROR + 1];

static bool _os_write_console_stream(HANDLE console, int descriptor, const char *text, u32 length) {
    _console_rest_t *rest = &_console_rest[descriptor];
    while (rest->length && length && rest->length < sizeof(rest->bytes) && (*text & 0xC0) == 0x80) {
        rest->bytes[rest->length++] = *text++;
        length--;
    }
    if (rest->length && _os_whole_characters(rest->bytes, rest->length) < rest->length && !length)
        return true;
    bool written = _os_write_console(console, rest->bytes, rest->length);
    u32 whole = _os_whole_characters(text, length);
    rest->length = length - whole;
    std::memcpy(rest->bytes, text + whole, rest->length);
    return written && _os_write_console(console, text, whole);
}

bool os_console_write(int descriptor, const void *bytes, u32 size) {
    HANDLE handle = _os_standard_handle(descriptor);
    if (!handle)
        return false;
    if (_os_is_console(handle))
        return _os_write_console_stream(handle, descriptor, static_cast<const char *>(bytes), size);
    return os_write(reinterpret_cast<platform_file_t>(handle), bytes, size);
}

// --- The debug console ------------------------------------------------------------------------------------

void os_console_open() {
    constexpr COORD BUFFER_SIZE = {80, 4096};
    if (_os_standard_handle(STANDARD_ERROR) || !AllocConsole())
        return;
    _is_console_own = true;
    HANDLE console = CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 nullptr, OPEN_EXISTING, 0, nullptr);
    _own_console = console == INVALID_HANDLE_VALUE ? nullptr : console;
    if (_own_console)
        SetConsoleScreenBufferSize(_own_console, BUFFER_SIZE);
}

void os_console_close() {
    if (_own_console)
        CloseHandle(_own_console);
    if (_is_console_own)
        FreeConsole();
    _own_console = nullptr;
    _is_console_own = false;
}

void os_console_print(debug_color_t color, const char *text, u32 length) {
    static const WORD ATTRIBUTES[] = {
        FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE,
        FOREGROUND_RED | FOREGROUND_INTENSITY,
        FOREGROUND_GREEN | FOREGROUND_INTENSITY,
        FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_INTENSITY,
        FOREGROUND_INTENSITY,
    };
    HANDLE handle = _own_console ? _own_console : _os_standard_handle(STANDARD_ERROR);
    if (!_os_is_console(handle)) {
        if (handle)
            os_write(reinterpret_cast<platform_file_t>(handle), text, length);
        return;
    }
    CONSOLE_SCREEN_BUFFER_INFO info;
    bool is_colored = color != DEBUG_COLOR_NORMAL && color < std::size(ATTRIBUTES) &&
                      GetConsoleScreenBufferInfo(handle, &info);
    if (is_colored)
        SetConsoleTextAttribute(handle, ATTRIBUTES[color]);
    _os_write_console(handle, text, length);
    if (is_colored)
        SetConsoleTextAttribute(handle, info.wAttributes);
}

const char *os_get_system_name() {
    return os_is_nt ? "Windows NT" : "Windows";
}

// --- The fatal end ----------------------------------------------------------------------------------------

static DWORD WINAPI _os_box_proc(void *param) {
    MessageBoxW(nullptr, static_cast<const wchar_t *>(param), L"Findwright",
                MB_OK | MB_ICONERROR | MB_SETFOREGROUND);
    return 0;
}

// On a thread of its own, so that the box does not pump the messages of a caller that is in no state for
// them.
static void _os_show_box(const char *text, u32 length) {
    static char16_t wide[4096];
    u32 room = static_cast<u32>(std::size(wide)) - 1;
    wide[wchar_from_utf8(wide, text, length < room ? length : _os_whole_characters(text, room))] = 0;
    HANDLE thread = CreateThread(nullptr, 0, _os_box_proc, wide, 0, nullptr);
    if (!thread)
        return;
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

static void _os_show(const char *text, u32 length) {
    if (_os_standard_handle(STANDARD_ERROR))
        os_console_write(STANDARD_ERROR, text, length);
    else
        _os_show_box(text, length);
}

void os_fatal_end(const char *text, u32 length) {
    _os_show(text, length);
    ExitProcess(1);
}

void os_show_out_of_memory() {
    static constexpr char TEXT[] = "Out of Memory\n";
    _os_show(TEXT, sizeof(TEXT) - 1);
}

// --- Arguments --------------------------------------------------------------------------------------------

void os_show_message(const char *text) {
    u32 length = static_cast<u32>(std::strlen(text));
    if (os_console_write(STANDARD_ERROR, text, length))
        os_console_write(STANDARD_ERROR, "\r\n", 2);
    else
        MessageBoxW(nullptr, os_wide_t(text).text(), L"Findwright", MB_OK);
}

void os_get_user_name(utf8_buf_t *out) {
    WCHAR name[257] = L"";
    DWORD length = std::size(name);
    if (!GetUserNameW(name, &length))
        name[0] = 0;
    utf8_buf_copy_wchar(out, reinterpret_cast<const char16_t *>(name), static_cast<u32>(wcslen(name)));
}

void os_get_computer_name(utf8_buf_t *out) {
    WCHAR name[MAX_COMPUTERNAME_LENGTH + 1] = L"";
    DWORD length = std::size(name);
    if (!GetComputerNameW(name, &length))
        name[0] = 0;
    utf8_buf_copy_wchar(out, reinterpret_cast<const char16_t *>(name), static_cast<u32>(wcslen(name)));
}

static char **_arguments; // one block: the table, then the texts

// The C run-time's arguments are in the 8-bit code page, so the command line is taken apart anew.
u32 os_get_arguments(int, char **, const char *const **arguments) {
    os_free_arguments();
    int count = 0;
    LPWSTR *wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (!wide)
        count = 0;
    size_t size = (static_cast<size_t>(count) + 1) * sizeof(char *);
    for (int i = 0; i < count; i++)
        size += utf8_wchar_get_length(reinterpret_cast<const char16_t *>(wide[i]),
                                      static_cast<u32>(wcslen(wide[i]))) +
                1;
    _arguments = static_cast<char **>(mem_alloc(size));
    char *text = reinterpret_cast<char *>(_arguments + count + 1);
    for (int i = 0; i < count; i++) {
        _arguments[i] = text;
        text += utf8_from_wchar_length(text, reinterpret_cast<const char16_t *>(wide[i]),
                                       static_cast<u32>(wcslen(wide[i])));
        *text++ = 0;
    }
    _arguments[count] = nullptr;
    LocalFree(wide);
    *arguments = _arguments;
    return static_cast<u32>(count);
}

void os_free_arguments() {
    if (_arguments)
        mem_free(_arguments);
    _arguments = nullptr;
}

void os_get_command_line(utf8_buf_t *out) {
    const wchar_t *text = GetCommandLineW();
    utf8_buf_copy_wchar(out, reinterpret_cast<const char16_t *>(text), static_cast<u32>(wcslen(text)));
}

} // namespace findwright
