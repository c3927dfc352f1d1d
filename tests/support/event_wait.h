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

// Frees what deleteLater left to this thread, as the host's event loop does
// on its next pass (information_clean leaves it the worker thread's object).
inline void free_deferred_objects() {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

}  // namespace test_support
