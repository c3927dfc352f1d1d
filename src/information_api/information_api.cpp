#include "information_api/information_api.h"

#include <QAbstractEventDispatcher>
#include <QCalendar>

#include "http/http_connector.h"
#include "library_state.h"
#include "windows_information_imp/windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

library_state& state() {
    static library_state instance;
    return instance;
}

information_sink::information_sink() = default;
information_sink::information_sink(const information_sink&) = default;
information_sink& information_sink::operator=(const information_sink&) {
    return *this;
}
information_sink::~information_sink() = default;

KeploInfoMgr* information_init() {
    library_state& s = state();
    // Qt 5 fills its calendar registry on the first date formatted, without a
    // lock, and threads racing there get empty dates. Filled here, on the
    // host's thread, before the manager names or stamps any record.
    QCalendar();
    if (!s.worker) {
        s.worker = new api_thread();
        s.worker->start_thread();
    }
    if (s.manager) return s.manager;
    s.manager = new windows_information_imp();
    return s.manager;
}

int information_clean() {
    library_state& s = state();
    s.connections.release_all();
    if (s.worker && s.worker->isRunning()) {
        // Lets the worker take up what was posted to it before it stops: an
        // object moved to it re-registers its timers through a queued call,
        // whose bookkeeping is lost if the loop quits before it ran.
        QMetaObject::invokeMethod(
            QAbstractEventDispatcher::instance(s.worker), [] {}, Qt::BlockingQueuedConnection);
    }
    if (s.worker) {
        s.worker->stop_thread();
        s.worker->deleteLater();
        s.worker = nullptr;
    }
    if (s.manager) {
        // KeploInfoMgr's destructor is not virtual; the implementation's is.
        delete static_cast<windows_information_imp*>(s.manager);
        s.manager = nullptr;
    }
    return 0;
}

int release_connect(int connection_id) {
    return state().connections.release(connection_id) ? 0 : -1;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
