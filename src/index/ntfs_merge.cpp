// Files whose attributes are spread over several records. Their records lie anywhere in the table, so they
// are kept until all of it is read, and joined then.
#include "index/ntfs_internal.h"

#include "os/debug.h"

namespace findwright {

void ntfs_merge_init(ntfs_merge_t *merge) {
    *merge = {};
    obstack_init(&merge->bases, sizeof(ntfs_base_t));
    pool_init(&merge->parts);
}

void ntfs_merge_kill(ntfs_merge_t *merge) {
    obstack_kill(&merge->bases);
    pool_kill(&merge->parts);
}

static ntfs_base_t *_ntfs_merge_base(const ntfs_merge_t *merge, u32 i) {
    const u32 in_chunk = merge->bases.chunk_bytes / merge->bases.item_size;
    return reinterpret_cast<ntfs_base_t *>(merge->bases.chunks[i / in_chunk]) + i % in_chunk;
}

static ntfs_name_list_t _ntfs_merge_copy_names(ntfs_merge_t *merge, const ntfs_name_t *names, u32 count) {
    ntfs_name_list_t list = {};
    for (u32 i = 0; i < count; i++) {
        const u32 bytes = names[i].length * 2;
        auto *node =
            static_cast<ntfs_name_node_t *>(pool_alloc(&merge->parts, sizeof(ntfs_name_node_t) + bytes));
        *node = {nullptr, names[i].parent_frn, names[i].length};
        memcpy(node + 1, names[i].text, bytes);
        (list.last ? list.last->next : list.first) = node;
        list.last = node;
    }
    return list;
}

static void _ntfs_merge_fill(ntfs_merge_t *merge, ntfs_base_t *part, u64 frn, const ntfs_parsed_t *parsed,
                             const ntfs_name_t *names) {
    const ntfs_record_t &values = parsed->values;
    *part = {frn,
             values.size,
             values.date_modified,
             values.date_created,
             values.date_accessed,
             values.attributes,
             parsed->has_standard_information,
             parsed->is_directory,
             _ntfs_merge_copy_names(merge, names, parsed->name_count)};
}

void ntfs_merge_add_base(ntfs_merge_t *merge, const ntfs_parsed_t *parsed, const ntfs_name_t *names) {
    auto *base = static_cast<ntfs_base_t *>(obstack_alloc(&merge->bases));
    _ntfs_merge_fill(merge, base, parsed->values.frn, parsed, names);
    merge->base_count++;
}

void ntfs_merge_add_extension(ntfs_merge_t *merge, u64 base_frn, const ntfs_parsed_t *parsed,
                              const ntfs_name_t *names) {
    auto *extension = static_cast<ntfs_extension_t *>(pool_alloc(&merge->parts, sizeof(ntfs_extension_t)));
    extension->next = nullptr;
    _ntfs_merge_fill(merge, &extension->part, base_frn, parsed, names);
    (merge->last ? merge->last->next : merge->first) = extension;
    merge->last = extension;
}

// The pool is in record order, not in the order of whole references, so it is searched by record index; a
// record in use again under another sequence number is another file.
static ntfs_base_t *_ntfs_merge_find(const ntfs_merge_t *merge, u64 frn) {
    u32 low = 0;
    u32 high = merge->base_count;
    while (low < high) {
        const u32 middle = low + (high - low) / 2;
        if (ntfs_frn_index(_ntfs_merge_base(merge, middle)->frn) < ntfs_frn_index(frn)) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (low == merge->base_count) {
        return nullptr;
    }
    ntfs_base_t *base = _ntfs_merge_base(merge, low);
    return base->frn == frn ? base : nullptr;
}

static void _ntfs_merge_join(ntfs_base_t *base, const ntfs_base_t *part) {
    base->size += part->size;
    if (!base->has_standard_information && part->has_standard_information) {
        base->date_modified = part->date_modified;
        base->date_created = part->date_created;
        base->date_accessed = part->date_accessed;
        base->attributes = part->attributes;
        base->has_standard_information = true;
    }
    if (part->names.first) {
        (base->names.last ? base->names.last->next : base->names.first) = part->names.first;
        base->names.last = part->names.last;
    }
}

static void _ntfs_merge_report_one(const ntfs_base_t *base, void *user_data, ntfs_record_proc_t *sink) {
    ntfs_record_t record = {};
    record.frn = base->frn;
    record.size = base->size;
    record.date_modified = base->date_modified;
    record.date_created = base->date_created;
    record.date_accessed = base->date_accessed;
    record.attributes = (base->attributes & ~NTFS_ATTRIBUTE_BIT_DIRECTORY) |
                        (base->is_directory ? NTFS_ATTRIBUTE_BIT_DIRECTORY : 0);
    for (const ntfs_name_node_t *name = base->names.first; name; name = name->next) {
        record.parent_frn = name->parent_frn;
        record.name = reinterpret_cast<const u8 *>(name + 1);
        record.name_length = name->length;
        sink(user_data, &record);
    }
}

void ntfs_merge_report(ntfs_merge_t *merge, void *user_data, ntfs_record_proc_t *sink) {
    debug_printf("base_fragmented_record_count %u\n", merge->base_count);
    for (const ntfs_extension_t *extension = merge->first; extension; extension = extension->next) {
        ntfs_base_t *base = _ntfs_merge_find(merge, extension->part.frn);
        if (base) {
            _ntfs_merge_join(base, &extension->part);
            continue;
        }
        debug_printf(
            "extended fragmented file record missing base file record with attribute list %016I64x\n",
            extension->part.frn);
        _ntfs_merge_report_one(&extension->part, user_data, sink);
    }
    for (u32 i = 0; i < merge->base_count; i++) {
        _ntfs_merge_report_one(_ntfs_merge_base(merge, i), user_data, sink);
    }
}

} // namespace findwright
