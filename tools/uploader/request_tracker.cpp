#include "request_tracker.h"

#include <QMetaEnum>
#include <QNetworkReply>

#include "information_api/information_api.h"

namespace uploader {

namespace api = TarvoConsumerScanner::information_api;

namespace {

// Library outcome codes (response_info_t::state).
const int state_success = 0;
const int state_time_out = 6;
const int state_network_error = 7;
const int state_rejected = 10;

// A rejected answer carries the service's "result" text when it gave one, and
// otherwise the toolkit's text for a reply without error.
QString rejection_text(const response_info_t& info) {
    if (info.error_string.isEmpty() || info.error_string == "Unknown error")
        return "the service did not answer \"success\"";
    return info.error_string;
}

QString network_error_name(int code) {
    const char* key = QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(code);
    return key ? QString("%1 (%2)").arg(key).arg(code) : QString("network error %1").arg(code);
}

}  // namespace

answer_watch::answer_watch(int connect_ms, int max_wait_ms, done_t done, QObject* parent)
    : QObject(parent), connect_ms_(connect_ms), done_(std::move(done)) {
    for (QTimer* timer : {&grace_, &cap_, &error_text_}) timer->setSingleShot(true);
    connect(&grace_, &QTimer::timeout, this, [this] {
        settle(request_outcome::timed_out,
               QString("no answer within %1 s").arg(2 * connect_ms_ / 1000));
    });
    connect(&cap_, &QTimer::timeout, this, [this] {
        settle(request_outcome::timed_out,
               QString("no answer within %1 s").arg(cap_.interval() / 1000));
    });
    connect(&error_text_, &QTimer::timeout, this, [this] { settle_failure(pending_failure_); });
    cap_.start(max_wait_ms);
}

void answer_watch::take(const response_info_t& info) {
    if (settled_) return;
    switch (info.state) {
        case state_success:
            settle(request_outcome::succeeded, QString(), info);
            break;
        case state_rejected:
            settle(request_outcome::rejected, rejection_text(info), info);
            break;
        case state_time_out:
            after_time_out_ = true;
            if (!grace_.isActive()) grace_.start(connect_ms_);
            break;
        case state_network_error:
            // A network error is reported first without its text and then
            // again with it; wait a moment for the second report.
            if (!info.error_string.isEmpty()) {
                settle_failure(info);
            } else if (!error_text_.isActive()) {
                pending_failure_ = info;
                error_text_.start(250);
            }
            break;
        default:
            settle(request_outcome::failed, QString("unexpected outcome %1").arg(info.state), info);
    }
}

void answer_watch::settle_failure(const response_info_t& info) {
    settle(request_outcome::failed,
           info.error_string.isEmpty() ? network_error_name(info.net_error) : info.error_string,
           info);
}

void answer_watch::settle(request_outcome::kind_t kind, const QString& message,
                          const response_info_t& info) {
    if (settled_) return;
    settled_ = true;
    for (QTimer* timer : {&grace_, &cap_, &error_text_}) timer->stop();
    request_outcome outcome;
    outcome.kind = kind;
    outcome.message = message;
    outcome.info = info;
    outcome.after_time_out = after_time_out_;
    done_(outcome);
}

request_tracker::request_tracker(main_thread_sink& sink, int connect_seconds, QObject* parent)
    : QObject(parent), connect_seconds_(connect_seconds) {
    connect(&sink, &main_thread_sink::response, this, &request_tracker::route);
}

int request_tracker::watch(int max_wait_connect_times, answer_watch::done_t done) {
    const int id = new_id();
    const int connect_ms = connect_seconds_ * 1000;
    auto finish = [this, id, done](const request_outcome& outcome) {
        api::release_connect(id);
        if (answer_watch* watch = open_.take(id)) watch->deleteLater();
        done(outcome);
    };
    open_.insert(id,
                 new answer_watch(connect_ms, max_wait_connect_times * connect_ms, finish, this));
    return id;
}

void request_tracker::release_all() {
    for (auto it = open_.begin(); it != open_.end(); ++it) {
        api::release_connect(it.key());
        it.value()->deleteLater();
    }
    open_.clear();
}

void request_tracker::route(int connection_id, const response_info_t& info) {
    if (answer_watch* watch = open_.value(connection_id)) watch->take(info);
}

QString describe_failure(const request_outcome& outcome) {
    QString text = outcome.message;
    if (outcome.after_time_out && outcome.kind != request_outcome::timed_out)
        text += " (after a time-out report)";
    return text;
}

}  // namespace uploader
