// The system, or the user through it, asks the process to end: Ctrl+C, a signal, a closed console, the end of
// the session.
//
// Main thread only, between os_init and os_kill; both callbacks run there too. One watch at a time.
//
//   POSIX    SIGINT, SIGTERM, SIGHUP                               --> request
//   Windows  Ctrl+C, Ctrl+Break, WM_CLOSE to the hidden window     --> request
//            console closed, logoff, shutdown as the console tells --> request; the process lives until
//                                                                      os_quit_unwatch, some 5 seconds at
//                                                                      most
//            WM_ENDSESSION to the hidden window                    --> finish, and request where the session
//                                                                      goes on without the program
//
// A signal that the process was started with ignored stays so (nohup, a job in the background of a shell).
#pragma once

namespace findwright {

using os_quit_proc_t = void(void *param);

// `request` is called from the main loop, once more for each time that the process is asked again: it begins
// an orderly end, and the program goes on until that is done. `finish` is called when the process will be
// gone as soon as it returns: all must be saved inside it. POSIX has nothing of that kind.
void os_quit_watch(os_quit_proc_t *request, os_quit_proc_t *finish, void *param);
// The last thing of an orderly end, when all is saved. No callback comes afterwards; what asks the process to
// end is the system's again. Nothing without a watch.
void os_quit_unwatch();

} // namespace findwright
