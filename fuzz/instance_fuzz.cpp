// Reads the input as what another process hands over. What is taken must be built again to the same bytes.
#include "app/instance.h"

#include <cstdlib>
#include <cstring>

using namespace findwright;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    instance_block_t block;
    if (!instance_parse_block(reinterpret_cast<const char *>(bytes), static_cast<u32>(size), &block))
        return 0;
    utf8_buf_t again;
    utf8_buf_init(&again);
    if (instance_build_block(&again, &block) != (size <= INSTANCE_BLOCK_MAX))
        std::abort();
    if (again.length != 0 && (instance_get_u32(again.data) != size ||
                              static_cast<size_t>(again.length) != size + INSTANCE_SIZE_BYTES ||
                              std::memcmp(again.data + INSTANCE_SIZE_BYTES, bytes, size) != 0))
        std::abort();
    utf8_buf_kill(&again);
    return 0;
}
