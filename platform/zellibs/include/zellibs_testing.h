// Internal: lets tests drop the current source, as a new process would start,
// and shorten the simulator's wait for its writer lock.
#pragma once

#include <chrono>

namespace zif {
void resetSource();

// How long a simulator write waits for another writer of the same snapshot
// before it gives up with ZLC_WRITE_FAILED.
inline constexpr std::chrono::milliseconds kWriterLockWait{10000};
void setWriterLockWait(std::chrono::milliseconds wait);
}  // namespace zif
