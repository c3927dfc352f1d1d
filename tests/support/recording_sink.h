#pragma once

#include <QThread>
#include <QVariant>
#include <mutex>
#include <vector>

#include "information_api/information_api.h"

namespace test_support {

namespace api = TarvoConsumerScanner::information_api;

// An information_sink that records every call with its arguments and the
// thread it arrived on.
class recording_sink : public api::information_sink {
public:
    enum class kind { response, progress, finished };

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

    void on_response(int connection_id, QVariant info) override;
    void on_download_progress(qint64 received, qint64 total) override;
    void on_download_finished(bool ok, int state, int net_error) override;

    std::vector<call> calls() const;
    std::vector<call> calls_of(kind what) const;
    std::vector<call> responses() const { return calls_of(kind::response); }
    std::size_t count(kind what) const { return calls_of(what).size(); }

    // Waits, running the caller's event loop, until at least n calls of the
    // kind have arrived.
    bool wait_for(kind what, std::size_t n, int timeout_ms = 10000) const;
    bool wait_for_responses(std::size_t n) const { return wait_for(kind::response, n); }

private:
    void add(const call& c);

    mutable std::mutex mutex_;
    std::vector<call> calls_;
};

}  // namespace test_support
