// One process of the program for each instance name, and the hand-over of a command line to the one that
// runs.
//
//     a start --lock is free--> the first one: holds the lock, listens
//             --lock is held--> sends its command line, gets an answer, ends
//             --no answer-----> waits, and begins again: the other one is starting up or going down
//
// On Linux the lock is an flock on a file of the user's own folder for such files, and the hand-over goes
// through a socket beside it (instance_posix.cpp). On Windows the hand-over comes with the desktop's
// notification window; until then each process there runs by itself: instance_start makes it the first one,
// the rest does nothing.
//
// What always holds: only the lock's holder makes or removes the socket. The lock file stays when the lock is
// released, for a process that waits may have it open already. Peers are of the same user, and yet not
// trusted: none can make the main thread wait or take more than 1 MiB.
//
// Main thread only.
#pragma once

#include "base/types.h"
#include "base/utf8_buf.h"

namespace findwright {

// --- Life --------------------------------------------------------------------------------------------------

inline constexpr u32 INSTANCE_LIMIT = 30000; // milliseconds for a start, at the most

struct instance_params_t {
    const char *name;         // of the instance; 0 or empty: the nameless one
    const char *command_line; // to hand over; without the program's name
    const char *current_directory;
    bool first_instance;    // one that exists is an error
    bool no_first_instance; // never become the first one
    u32 limit;              // milliseconds; 0: INSTANCE_LIMIT
};

enum instance_result_t : u32 {
    INSTANCE_FIRST,       // this process holds the lock until instance_stop; the program goes on
    INSTANCE_HANDED_OVER, // another one has taken the command line; exit code 0
    INSTANCE_EXISTS,      // first_instance, and another one runs; exit code 1
    INSTANCE_NOT_FIRST,   // no_first_instance, and none runs; exit code 0
    INSTANCE_TIMED_OUT,   // another one runs, and neither answers nor ends
    INSTANCE_FAILED,      // no lock can be made, or the command line is too long to be sent
};

// Becomes the first one or hands over. Waits, in which nothing else runs. `error` is for the user: it names
// the file and the reason after INSTANCE_FAILED, and is empty otherwise. Holds nothing unless INSTANCE_FIRST.
// Lines of the log: "send message ok\n", "version send message failed\n" for each try without an answer.
instance_result_t instance_start(const instance_params_t *params, utf8_buf_t *error);
// At the very end, when all is saved: who waits goes on from here.
void instance_stop();

// --- The listener ------------------------------------------------------------------------------------------

// What another process hands over; the texts are good until it returns. It is answered before this is called,
// so that the other one does not wait for what the command line does.
using instance_receive_proc_t = void(void *param, const char *command_line, const char *current_directory);

// Has proc(param, ...) called from the main loop for each command line that comes. After INSTANCE_FIRST.
// False, with the reason in the log, when the system refuses: then others wait in vain, but the lock holds.
bool instance_listen(instance_receive_proc_t *proc, void *param);
// When the shutdown begins: new processes wait for the lock from here on. The receiver may call it.
void instance_stop_listening();

// How long either side waits for the other, in milliseconds; tests shorten it.
extern u32 instance_peer_limit;

// --- Names and blocks (instance.cpp) -----------------------------------------------------------------------

// findwright.EXTENSION or findwright-NAME.EXTENSION. NAME has `%` and two hexadecimal digits for each byte
// that a file name cannot have, as in the names of the instance's other files.
void instance_get_filename(utf8_buf_t *out, const char *name, const char *extension);

// The block that is handed over:
//
//     u32 size of the rest | u32 show command | command line, 0 | current directory, 0
//
// Numbers are little-endian, texts UTF-8. It is answered with one u32, INSTANCE_TAKEN.
inline constexpr u32 INSTANCE_SIZE_BYTES = 4;
inline constexpr u32 INSTANCE_BLOCK_MIN = 6; // of the rest: a number and two empty texts
inline constexpr u32 INSTANCE_BLOCK_MAX = 1024 * 1024;
inline constexpr u32 INSTANCE_ANSWER_BYTES = 4;
inline constexpr u32 INSTANCE_TAKEN = 1;

struct instance_block_t {
    u32 show_command;         // how Windows was asked to show the window; 0 on Linux
    const char *command_line; // these point into the bytes
    const char *current_directory;
};

void instance_put_u32(char *to, u32 value);
u32 instance_get_u32(const char *from);
// The whole block, its size in front. False, and no bytes, when it would be larger than any receiver takes.
bool instance_build_block(utf8_buf_t *out, const instance_block_t *block);
// Reads what follows the size. False for anything but a number and two terminated texts.
bool instance_parse_block(const char *bytes, u32 size, instance_block_t *block);

} // namespace findwright
