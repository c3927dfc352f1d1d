#include "sink_guard.h"

namespace TarvoConsumerScanner {
namespace information_api {

void sink_guard::close() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    sink_ = nullptr;
}

void sink_guard::on_response(int connection_id, QVariant info) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (sink_) sink_->on_response(connection_id, std::move(info));
}

void sink_guard::on_download_progress(qint64 received, qint64 total) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (sink_) sink_->on_download_progress(received, total);
}

void sink_guard::on_download_finished(bool ok, int state, int net_error) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (sink_) sink_->on_download_finished(ok, state, net_error);
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
