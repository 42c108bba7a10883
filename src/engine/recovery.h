#pragma once

namespace vesk {

class Store;

/// Marks every stored task that stands in no end phase as "INTERRUPTED", with its unfinished runs: its process has
/// ended, and no task is resumed. To be called once at start-up, by the process that holds the data folder.
void recoverInterruptedTasks(Store &store);

} // namespace vesk
