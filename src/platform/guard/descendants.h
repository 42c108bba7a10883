#pragma once

#include <vector>

#include <sys/types.h>

/// Every live process below this one, in no order. As this process is their sub-reaper, the parents of an orphan
/// still lead here, whatever sessions it made; zombies are left out, unless a thread of theirs lives on. Empty when
/// /proc can't be read.
std::vector<pid_t> descendants();

/// Sends the signal to a process below this one; any other is left alone, also one that has just got the number of a
/// process that is gone.
void signalDescendant(pid_t process, int signal);

/// True while SIGKILL does nothing to this process: it has become another user's, or all of it that lives hangs in the
/// kernel (state D: a network disk that doesn't answer, a frozen control group). The latter may pass at any moment.
bool isBeyondReach(pid_t process);
