#pragma once

#include <chrono>
#include <functional>

/// Lets everything that waits for the main thread happen there for so long, and returns.
void BRRunEventLoop(std::chrono::milliseconds time);

/// Does work that takes long on a thread of its own, and lets everything else happen on the main
/// thread until it is done. `work` must not throw.
void BRRunEventLoopDuring(const std::function<void()> &work);
