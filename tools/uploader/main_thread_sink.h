#pragma once

#include <QObject>
#include <QVariant>

#include "information_api/information_api.h"

namespace uploader {

using TarvoConsumerScanner::information_api::response_info_t;

// The library calls its sink on its own worker thread. This sink re-posts
// every call to the thread it lives on (the main thread) and hands it on as a
// signal there, so the rest of the tool runs on one thread only.
class main_thread_sink : public QObject,
                         public TarvoConsumerScanner::information_api::information_sink {
    Q_OBJECT
public:
    explicit main_thread_sink(QObject* parent = nullptr);

    void on_response(int connection_id, QVariant info) override;
    void on_download_progress(qint64 received, qint64 total) override;
    void on_download_finished(bool ok, int state, int net_error) override;

signals:
    void response(int connection_id, const response_info_t& info);
    void download_progress(qint64 received, qint64 total);
    void download_finished(bool ok, int state, int net_error);
};

}  // namespace uploader
