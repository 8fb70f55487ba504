// A database under live updates beside a plain model of what it should hold.
//
// The model is a table of nodes with parents, names and columns; every operation is done to both. What the
// database refuses by its rules (a name that exists, one that is left out, a folder moved below itself) the
// model works out by itself.
#pragma once

#include "track/db_live.h"

#include <map>
#include <random>
#include <string>
#include <vector>

namespace findwright {

struct live_node_t {
    u32 parent; // 0: at the top
    std::string name;
    bool is_folder;
    db_file_info_t info;
    u64 change_date; // 0: none
};

struct live_world_t {
    db_t *db;
    db_index_t *index;
    bool has_exclusions;
    bool by_path; // operations go by paths where there are such
    std::map<u32, live_node_t> nodes;
    u32 root, last_node;
    u64 clock; // the dates of changes
    std::mt19937 random;
};

// A database with one source of a type, and nothing in it but its root.
void live_world_create(live_world_t *world, u32 flags, db_index_type_t type, bool has_exclusions, u32 seed);
void live_world_destroy(live_world_t *world);

// Fills it with about so many items.
void live_world_fill(live_world_t *world, u32 count);
// One operation of any kind. True when it went as the model says; else `*problem` tells.
void live_world_step(live_world_t *world, std::string *problem);
// Empty when the database is whole and holds what the model says.
std::string live_world_check(live_world_t *world);

std::string live_world_path(const live_world_t *world, u32 node);
// The record of a node; 0 where there is none.
db_item_t *live_world_find(const live_world_t *world, u32 node);
u32 live_world_any(live_world_t *world, bool is_folder); // 0: there is none

} // namespace findwright
