// What the settings say to the server for browsers (remote/http_server.h), in the language in use, and what
// the user is told of it.
//
// Where other machines can reach the server, everything that the index knows is open to them. So it listens
// on this machine's own addresses unless the settings name others, and on others only with a password, or
// when the settings say in so many words that there is none. On Windows, where a firewall asks the user, it
// listens on all addresses from the start.
//
// Main thread.
#pragma once

#include "base/utf8_buf.h"
#include "db/db.h"

namespace findwright {

// Starts the server over a database, or starts it anew with the settings of now. False when it does not run,
// which the user has been told. `instance`: the name of this process's instance, or empty.
bool http_server_settings_start(db_t *db, const char *instance);

// The platform's rule: empty bindings are the loopback addresses, and others need a password.
extern const bool http_server_is_private;

// The list of bindings for the server, where empty means all addresses of this machine; `is_private` as
// above.
// `*` in a list is all of them. False when others than this machine can reach one of them and a password is
// missing that must be there: then `out` has the first such address as the settings have it.
bool http_server_get_bindings(const char *bindings, bool has_password, bool is_private, utf8_buf_t *out);

} // namespace findwright
