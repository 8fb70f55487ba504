#include "remote/http_resource.h"

#include "base/utf8.h"

namespace findwright {

// The assembler takes each file as it is; the build sees to it that a changed one is taken anew.
#ifdef __ELF__
#define HTTP_RESOURCE_SECTION ".section .rodata\n"
#else
#define HTTP_RESOURCE_SECTION ".section .rdata,\"dr\"\n"
#endif
#define HTTP_RESOURCE(label, file)                                                                           \
    extern "C" const char http_resource_##label[];                                                           \
    extern "C" const u32 http_resource_size_##label;                                                         \
    asm(HTTP_RESOURCE_SECTION ".balign 16\n"                                                                 \
                              ".globl http_resource_size_" #label "\n"                                       \
                              "http_resource_size_" #label ": .4byte 1f - http_resource_" #label "\n"        \
                              ".globl http_resource_" #label "\n"                                            \
                              "http_resource_" #label ":\n"                                                  \
                              ".incbin \"" FINDWRIGHT_HTTP_DATA "/" file "\"\n"                              \
                              "1: .text\n")

HTTP_RESOURCE(main_css, "main.css");
HTTP_RESOURCE(live_js, "live.js");
HTTP_RESOURCE(favicon_ico, "favicon.ico");
HTTP_RESOURCE(findwright_gif, "findwright.gif");
HTTP_RESOURCE(file_gif, "file.gif");
HTTP_RESOURCE(folder_gif, "folder.gif");
HTTP_RESOURCE(up_gif, "up.gif");
HTTP_RESOURCE(down_gif, "down.gif");
HTTP_RESOURCE(updir_gif, "updir.gif");

#define ROW(name, type, id, label)                                                                           \
    { name, type, http_resource_##label, http_resource_size_##label, id }

const http_resource_t *http_resource_find(const char *name, u32 length) {
    static const http_resource_t RESOURCES[] = {
        ROW("main.css", "text/css", 103, main_css),
        ROW("findwright.gif", "image/gif", 104, findwright_gif),
        ROW("file.gif", "image/gif", 105, file_gif),
        ROW("folder.gif", "image/gif", 106, folder_gif),
        ROW("up.gif", "image/gif", 107, up_gif),
        ROW("down.gif", "image/gif", 108, down_gif),
        ROW("updir.gif", "image/gif", 109, updir_gif),
        ROW("favicon.ico", "image/x-icon", 110, favicon_ico),
        ROW("live.js", "text/javascript; charset=utf-8", 111, live_js),
    };
    for (const http_resource_t &resource : RESOURCES) {
        if (utf8_compare_lower(name, length, resource.name, utf8_length(resource.name)) == 0)
            return &resource;
    }
    return nullptr;
}

} // namespace findwright
