// Data runs: the decoding of mapping pairs, and the queue that puts the parts of the table in VCN order.
#include "index/ntfs_internal.h"

#include "base/mem.h"
#include "os/debug.h"

#include <algorithm>

namespace findwright {

bool ntfs_pairs_init(ntfs_pairs_t *pairs, const ntfs_attribute_t *attribute) {
    const u8 *header = ntfs_attribute_bytes(attribute, 0, NTFS_NON_RESIDENT_HEADER);
    if (!header) {
        return false;
    }
    const u32 offset = ntfs_u16(header + NTFS_NON_RESIDENT_PAIRS_OFFSET);
    pairs->end = attribute->data + attribute->length;
    pairs->lcn = 0;
    if (offset > attribute->length) {
        debug_printf("bad mapping pair addr %p > end %p\n", attribute->data + offset, pairs->end);
        return false;
    }
    pairs->position = attribute->data + offset;
    return true;
}

// A little-endian number of 1 to 8 bytes.
static u64 _ntfs_read_number(const u8 *bytes, u32 size) {
    u64 value = 0;
    memcpy(&value, bytes, size);
    return value;
}

static u64 _ntfs_sign_extend(u64 value, u32 size) {
    const u32 unused = 64 - size * 8;
    return static_cast<u64>(static_cast<i64>(value << unused) >> unused);
}

ntfs_pair_step_t ntfs_pairs_next(ntfs_pairs_t *pairs, ntfs_run_t *run) {
    if (pairs->position == pairs->end || *pairs->position == 0) {
        return NTFS_PAIR_END;
    }
    const u32 count_size = *pairs->position & 15;
    const u32 offset_size = *pairs->position >> 4;
    const u8 *count = pairs->position + 1;
    if (count_size > 8) {
        debug_printf("unsupported mapping pair len size %d\n", count_size);
        return NTFS_PAIR_DAMAGED;
    }
    if (offset_size > 8) {
        debug_printf("unsupported mapping offset size %d\n", offset_size);
        return NTFS_PAIR_DAMAGED;
    }
    if (count_size > static_cast<size_t>(pairs->end - count)) {
        debug_printf("bad mapping pair cluster count addr %p > end %p\n", count + count_size, pairs->end);
        return NTFS_PAIR_DAMAGED;
    }
    const u8 *offset = count + count_size;
    if (offset_size > static_cast<size_t>(pairs->end - offset)) {
        debug_printf("bad mapping pair offset size addr %p > end %p\n", offset + offset_size, pairs->end);
        return NTFS_PAIR_DAMAGED;
    }
    run->clusters = _ntfs_read_number(count, count_size);
    run->sparse = offset_size == 0;
    if (!run->sparse) {
        pairs->lcn += _ntfs_sign_extend(_ntfs_read_number(offset, offset_size), offset_size);
    }
    run->lcn = pairs->lcn;
    pairs->position = offset + offset_size;
    return NTFS_PAIR_RUN;
}

// Orders the heap so that the lowest VCN is on top.
static bool _ntfs_element_later(const ntfs_element_t &a, const ntfs_element_t &b) {
    return a.vcn != b.vcn ? a.vcn > b.vcn : a.order > b.order;
}

void ntfs_run_queue_add(ntfs_run_queue_t *queue, u64 vcn, const u8 *bytes, u32 size) {
    if (queue->count == queue->capacity) {
        const u32 capacity = queue->capacity ? queue->capacity * 2 : 16;
        auto *elements = static_cast<ntfs_element_t *>(mem_alloc(capacity * sizeof(ntfs_element_t)));
        if (queue->elements) {
            memcpy(elements, queue->elements, queue->count * sizeof(ntfs_element_t));
            mem_free(queue->elements);
        }
        queue->elements = elements;
        queue->capacity = capacity;
    }
    auto *copy = static_cast<u8 *>(mem_alloc(size + 1)); // an empty list is one as well
    memcpy(copy, bytes, size);
    queue->elements[queue->count++] = {vcn, queue->added++, size, copy};
    std::push_heap(queue->elements, queue->elements + queue->count, _ntfs_element_later);
}

u64 ntfs_run_queue_vcn(const ntfs_run_queue_t *queue) {
    return queue->elements[0].vcn;
}

ntfs_element_t ntfs_run_queue_take(ntfs_run_queue_t *queue) {
    std::pop_heap(queue->elements, queue->elements + queue->count, _ntfs_element_later);
    return queue->elements[--queue->count];
}

void ntfs_run_queue_kill(ntfs_run_queue_t *queue) {
    for (u32 i = 0; i < queue->count; i++) {
        mem_free(queue->elements[i].bytes);
    }
    if (queue->elements) {
        mem_free(queue->elements);
    }
    *queue = {};
}

} // namespace findwright
