#pragma once

namespace vesk {

/// Draws with the background's worker, has it stop a script without end, and draws again. Needs a QCoreApplication;
/// returns when it is over, with the code of the process: 0, or 5 when that took more than 12 seconds.
int runSelfTestBackground();

} // namespace vesk
