#pragma once

namespace vesk {

/// "--probe-mcp": connects to the configured server whose name holds "Roblox" and logs how that went. The exit code: 0
/// connected, 2 no such server, 3 any other end, 4 nothing within 35 s.
int runProbeMcp();

} // namespace vesk
