// Interruptions: a run that is told to stop cleans up.
#pragma once

namespace jurn {

/** From then on SIGINT, SIGTERM and SIGHUP make check_interrupted throw, a second one ends the
 * program where it is, and a closed pipe or a
 * file-size limit fails the write instead of killing the program. */
void catch_signals();

bool is_interrupted();
/** The signal was the usual way to end: what is complete is still written. */
void accept_interruption();
void check_interrupted();

}  // namespace jurn
