#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <functional>

namespace test_support {

// Runs the calling thread's event loop until condition holds or timeout_ms
// has passed; returns whether the condition held.
inline bool wait_until(const std::function<bool()>& condition, int timeout_ms = 10000) {
    QDeadlineTimer deadline(timeout_ms);
    while (!condition()) {
        if (deadline.hasExpired()) return condition();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::msleep(2);
    }
    return true;
}

// Runs the calling thread's event loop for duration_ms, for assertions that
// something does NOT happen within a window.
inline void pump_events_for(int duration_ms) {
    wait_until([] { return false; }, duration_ms);
}

}  // namespace test_support
