// A block of any kind whose owner need not know what it is to free it.
#pragma once

namespace findwright {

struct db_data_t {
    void (*free)(db_data_t *data); // frees the block
};

} // namespace findwright
