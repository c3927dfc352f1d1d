#include "recording_sink.h"

#include "event_wait.h"

namespace test_support {

void recording_sink::on_response(int connection_id, QVariant info) {
    call c{kind::response};
    c.connection_id = connection_id;
    c.has_info = info.canConvert<api::response_info_t>();
    if (c.has_info) c.info = info.value<api::response_info_t>();
    add(c);
}

void recording_sink::on_download_progress(qint64 received, qint64 total) {
    call c{kind::progress};
    c.received = received, c.total = total;
    add(c);
}

void recording_sink::on_download_finished(bool ok, int state, int net_error) {
    call c{kind::finished};
    c.ok = ok, c.state = state, c.net_error = net_error;
    add(c);
}

void recording_sink::add(const call& c) {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(c);
}

std::vector<recording_sink::call> recording_sink::calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<recording_sink::call> recording_sink::calls_of(kind what) const {
    std::vector<call> selected;
    for (const call& c : calls())
        if (c.what == what) selected.push_back(c);
    return selected;
}

bool recording_sink::wait_for(kind what, std::size_t n, int timeout_ms) const {
    return wait_until([&] { return count(what) >= n; }, timeout_ms);
}

}  // namespace test_support
