#pragma once

#include <mutex>

#include "information_api/information_api.h"

namespace TarvoConsumerScanner {
namespace information_api {

// Stands between a connector and the host's sink. Once the host has released
// the connection, closing the guard, no call reaches the sink any more; and
// closing waits for a call under way on the worker thread, so that the host
// may free its sink as soon as release_connect or information_clean returns.
// The lock is recursive: a sink that releases its own connection from inside
// a callback (on the host's thread, when there is no worker) does not block.
class sink_guard : public information_sink {
public:
    explicit sink_guard(information_sink* sink) : sink_(sink) {}

    void close();

    void on_response(int connection_id, QVariant info) override;
    void on_download_progress(qint64 received, qint64 total) override;
    void on_download_finished(bool ok, int state, int net_error) override;

private:
    std::recursive_mutex mutex_;
    information_sink* sink_;
};

}  // namespace information_api
}  // namespace TarvoConsumerScanner
