// The storage rules that the text buffers share, as templates over the buffer's type. Private to their
// sources.
#pragma once

#include "base/mem.h"
#include "base/platform.h"
#include "base/utf8_buf.h"

#include <bit>
#include <cstring>
#include <type_traits>

namespace findwright {

// Lengths are i32 and capacities powers of two, so this is the largest.
inline constexpr size_t TEXT_BUF_MAX = 0x40000000;

template<class buf_t>
using text_buf_unit_t = std::remove_extent_t<decltype(buf_t::inline_data)>;

template<class buf_t>
inline void text_buf_init(buf_t *buf) {
    buf->length = 0;
    buf->capacity = TEXT_BUF_INLINE;
    buf->data = buf->inline_data;
    buf->data[0] = 0;
}

template<class buf_t>
inline void text_buf_kill(buf_t *buf) {
    if (buf->capacity > TEXT_BUF_INLINE) {
        mem_free(buf->data);
    }
    text_buf_init(buf);
}

template<class buf_t>
inline void text_buf_empty(buf_t *buf) {
    if (buf->capacity <= TEXT_BUF_INLINE) {
        buf->data = buf->inline_data;
    }
    buf->length = 0;
    buf->data[0] = 0;
}

template<class buf_t>
inline text_buf_unit_t<buf_t> *text_buf_alloc(size_t size, i32 *capacity) {
    if (size > TEXT_BUF_MAX) {
        platform.out_of_memory();
        platform.fatal(__FILE__, __LINE__, __func__, "out of memory");
    }
    const size_t rounded = std::bit_ceil(size);
    *capacity = static_cast<i32>(rounded);
    return static_cast<text_buf_unit_t<buf_t> *>(mem_alloc(rounded * sizeof(text_buf_unit_t<buf_t>)));
}

template<class buf_t>
inline void text_buf_grow_empty(buf_t *buf, size_t size) {
    text_buf_kill(buf);
    if (size > TEXT_BUF_INLINE) {
        buf->data = text_buf_alloc<buf_t>(size, &buf->capacity);
        buf->data[0] = 0;
    }
}

template<class buf_t>
inline void text_buf_grow_cat(buf_t *buf, size_t added) {
    const size_t size = static_cast<size_t>(buf->length) + added + 1;
    if (size <= static_cast<size_t>(buf->capacity)) {
        return;
    }
    i32 capacity;
    auto *data = text_buf_alloc<buf_t>(size, &capacity);
    std::memcpy(data, buf->data, (static_cast<size_t>(buf->length) + 1) * sizeof(*data));
    if (buf->capacity > TEXT_BUF_INLINE) {
        mem_free(buf->data);
    }
    buf->data = data;
    buf->capacity = capacity;
}

template<class buf_t>
inline void text_buf_set_length(buf_t *buf, size_t length) {
    buf->length = static_cast<i32>(length);
    buf->data[length] = 0;
}

// Room for `length` units and the terminator, the content not kept. A block that is large enough stays.
template<class buf_t>
inline void text_buf_reserve(buf_t *buf, size_t length) {
    if (length + 1 > static_cast<size_t>(buf->capacity)) {
        text_buf_grow_empty(buf, length + 1);
    }
}

template<class buf_t>
inline void text_buf_copy(buf_t *buf, const text_buf_unit_t<buf_t> *text, size_t length) {
    text_buf_reserve(buf, length);
    if (length) {
        std::memmove(buf->data, text, length * sizeof(*text));
    }
    text_buf_set_length(buf, length);
}

template<class buf_t>
inline void text_buf_cat(buf_t *buf, const text_buf_unit_t<buf_t> *text, size_t length) {
    text_buf_grow_cat(buf, length);
    if (length) {
        std::memcpy(buf->data + buf->length, text, length * sizeof(*text));
    }
    text_buf_set_length(buf, static_cast<size_t>(buf->length) + length);
}

} // namespace findwright
