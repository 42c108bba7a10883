#pragma once

namespace vesk {

/// Gives back the pages of programs and libraries that this process has read at its start and not written to: what it
/// needs of them from now on comes back from the system's cache, what it needed for the start alone does not. For a
/// small process that stays up. Where the system does not tell which pages those are, nothing happens.
void releaseStartMemory();

} // namespace vesk
