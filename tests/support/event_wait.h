#pragma once

#include <functional>

namespace test_support {

// Runs the calling thread's event loop until condition holds or timeout_ms
// has passed; returns whether the condition held.
bool wait_until(const std::function<bool()>& condition, int timeout_ms = 10000);

// Runs the calling thread's event loop for duration_ms, for assertions that
// something does NOT happen within a window.
void pump_events_for(int duration_ms);

}  // namespace test_support
