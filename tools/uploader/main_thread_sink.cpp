#include "main_thread_sink.h"

namespace uploader {

main_thread_sink::main_thread_sink(QObject* parent) : QObject(parent) {}

void main_thread_sink::on_response(int connection_id, QVariant info) {
    QMetaObject::invokeMethod(
        this,
        [this, connection_id, info] {
            emit response(connection_id, info.value<response_info_t>());
        },
        Qt::QueuedConnection);
}

void main_thread_sink::on_download_progress(qint64 received, qint64 total) {
    QMetaObject::invokeMethod(
        this, [this, received, total] { emit download_progress(received, total); },
        Qt::QueuedConnection);
}

void main_thread_sink::on_download_finished(bool ok, int state, int net_error) {
    QMetaObject::invokeMethod(
        this, [this, ok, state, net_error] { emit download_finished(ok, state, net_error); },
        Qt::QueuedConnection);
}

}  // namespace uploader
