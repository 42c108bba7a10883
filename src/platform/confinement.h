#pragma once

namespace vesk {

/// For processes that run code which nobody has vouched for and that only computes: it is given its input on standard
/// input and answers on standard output.

/// For the rest of its life this process opens no file, reaches no network, starts no process and no thread, makes no
/// memory executable, has no more than 512 MB of addresses and leaves no core file. What the kernel cannot take away is
/// left to the other means: limits of resources are everywhere, Landlock and system call filters are not.
/// What the code may need of files (libraries, the time zone) has to be loaded before.
void confineToComputing();

/// Ends this process by a signal when it uses more than about so many seconds of processor time from now on. May be
/// called again and again, also after confineToComputing().
void limitProcessorTime(int seconds);

} // namespace vesk
