#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>
#include <functional>

#include "main_thread_sink.h"

namespace uploader {

// How one request ended, as far as this run is concerned.
struct request_outcome {
    enum kind_t { succeeded, rejected, failed, timed_out } kind = failed;
    QString message;              // why, in words, when not succeeded
    response_info_t info{};       // the deciding report (empty for timed_out)
    bool after_time_out = false;  // a time-out report came before the answer
};

// Decides the outcome of one request from the library's reports.
//
// The library reports a time-out (state 6) without ending the request, and
// repeats it every connect time; a real answer may still follow. So a
// time-out report only starts a grace period of one more connect time: a
// success, rejection or network error within it decides as usual, and only
// when the grace ends without one is the request counted as timed out. A
// request that never reports at all (the library's timer is stopped by the
// first sign of life) ends as timed out after max_wait_ms.
class answer_watch : public QObject {
    Q_OBJECT
public:
    using done_t = std::function<void(const request_outcome&)>;

    answer_watch(int connect_ms, int max_wait_ms, done_t done, QObject* parent);

    void take(const response_info_t& info);

private:
    void settle(request_outcome::kind_t kind, const QString& message,
                const response_info_t& info = response_info_t{});
    void settle_failure(const response_info_t& info);

    int connect_ms_;
    done_t done_;
    QTimer grace_;
    QTimer cap_;
    QTimer error_text_;  // see take(): waits briefly for the error's text
    response_info_t pending_failure_{};
    bool after_time_out_ = false;
    bool settled_ = false;
};

// Hands out connection ids, routes the sink's reports to the watch of each
// id, and releases a connection as soon as its outcome is known. Reports for
// ids already released (late repeats) are dropped.
class request_tracker : public QObject {
    Q_OBJECT
public:
    request_tracker(main_thread_sink& sink, int connect_seconds, QObject* parent = nullptr);

    int connect_seconds() const { return connect_seconds_; }
    // A fresh connection id, never used before in this run, for a request
    // whose outcome the caller follows itself.
    int new_id() { return next_id_++; }
    // A fresh connection id whose outcome goes to done once decided; start the
    // library request with it right after. max_wait is in connect times.
    int watch(int max_wait_connect_times, answer_watch::done_t done);
    // Releases every connection still open (after an interruption).
    void release_all();

private:
    void route(int connection_id, const response_info_t& info);

    int connect_seconds_;
    int next_id_ = 1;
    QMap<int, answer_watch*> open_;
};

// The outcome in words for one line of output.
QString describe_failure(const request_outcome& outcome);

}  // namespace uploader
