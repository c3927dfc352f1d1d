#include "event_wait.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

namespace test_support {

bool wait_until(const std::function<bool()>& condition, int timeout_ms) {
    QDeadlineTimer deadline(timeout_ms);
    while (!condition()) {
        if (deadline.hasExpired()) return condition();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::msleep(2);
    }
    return true;
}

void pump_events_for(int duration_ms) {
    wait_until([] { return false; }, duration_ms);
}

}  // namespace test_support
