#pragma once

#include <QThread>
#include <QVariant>
#include <mutex>
#include <vector>

#include "event_wait.h"
#include "information_api/information_api.h"

namespace test_support {

namespace api = TarvoConsumerScanner::information_api;

// An information_sink that records every call with its arguments and the
// thread it arrived on.
class recording_sink : public api::information_sink {
public:
    enum class kind { response, progress, finished };
    static constexpr int any_id = -1;

    struct call {
        kind what;
        QThread* thread = QThread::currentThread();
        int connection_id = 0;           // response
        api::response_info_t info{};     // response
        bool has_info = false;           // the QVariant held a response_info_t
        qint64 received = 0, total = 0;  // progress
        bool ok = false;                 // finished
        int state = 0, net_error = 0;    // finished
    };

    void on_response(int connection_id, QVariant info) override {
        call c{kind::response};
        c.connection_id = connection_id;
        c.has_info = info.canConvert<api::response_info_t>();
        if (c.has_info) c.info = info.value<api::response_info_t>();
        add(c);
    }
    void on_download_progress(qint64 received, qint64 total) override {
        call c{kind::progress};
        c.received = received, c.total = total;
        add(c);
    }
    void on_download_finished(bool ok, int state, int net_error) override {
        call c{kind::finished};
        c.ok = ok, c.state = state, c.net_error = net_error;
        add(c);
    }

    // The calls of a kind; of responses, those for connection_id unless any_id.
    std::vector<call> calls_of(kind what, int connection_id = any_id) const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<call> selected;
        for (const call& c : calls_)
            if (c.what == what && (connection_id == any_id || c.connection_id == connection_id))
                selected.push_back(c);
        return selected;
    }
    std::vector<call> responses(int connection_id = any_id) const {
        return calls_of(kind::response, connection_id);
    }
    std::size_t count(kind what) const { return calls_of(what).size(); }

    // Waits, running the caller's event loop, until at least n such calls
    // have arrived.
    bool wait_for(kind what, std::size_t n, int connection_id = any_id) const {
        return wait_until([&] { return calls_of(what, connection_id).size() >= n; });
    }
    bool wait_for_responses(std::size_t n, int connection_id = any_id) const {
        return wait_for(kind::response, n, connection_id);
    }

private:
    void add(const call& c) {
        std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back(c);
    }

    mutable std::mutex mutex_;
    std::vector<call> calls_;
};

}  // namespace test_support
