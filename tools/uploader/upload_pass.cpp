#include "upload_pass.h"

#include <QFile>
#include <QRegularExpression>

namespace uploader {

namespace api = TarvoConsumerScanner::information_api;

namespace {

// An information upload gets its time-out report after one connect time and
// one connect time of grace; three is the most it may take in all.
const int record_max_wait = 3;

}  // namespace

upload_pass::upload_pass(uploader_context& context, target to, QStringList records, QObject* parent)
    : QObject(parent), context_(context), to_(std::move(to)), records_(std::move(records)) {
    summary_.records = records_.size();
}

void upload_pass::start() {
    start_more();
}

void upload_pass::start_more() {
    while (in_flight_ < context_.options.parallel && next_ < records_.size())
        start_record(records_.at(next_++));
    if (in_flight_ == 0 && next_ == records_.size()) emit finished();
}

void upload_pass::start_record(const QString& path) {
    QString data;
    QString type;
    if (context_.manager.read_record_file(path, data, type) != 0)
        return keep("failed", path, type, "the record file is gone");
    if (data.isEmpty() || type.isEmpty())
        return keep("failed", path, type, "the record has no data or no type");
    // The library puts the type into the address as it is: "&", "#", "?" or
    // a blank would change where the record goes.
    static const QRegularExpression plain_word("^[A-Za-z0-9_-]+$");
    if (!plain_word.match(type).hasMatch())
        return keep("failed", path, type, "the record's type would change the upload address");

    ++in_flight_;
    const int id = context_.tracker.watch(
        record_max_wait,
        [this, path, type](const request_outcome& outcome) { settle(path, type, outcome); });
    api::upload_information(to_.address, data, to_.app_id, type, &context_.sink, id,
                            context_.tracker.connect_seconds() * 1000);
}

void upload_pass::settle(const QString& path, const QString& type, const request_outcome& outcome) {
    --in_flight_;
    switch (outcome.kind) {
        case request_outcome::succeeded: {
            ++summary_.sent;
            QFile record(path);
            const QString note =
                outcome.after_time_out ? " (answered after a time-out report)" : QString();
            if (record.remove()) {
                say(QString("sent       %1 (%2)%3").arg(shown_path(path), type, note));
            } else {
                // Kept, so it will be sent again: say so rather than hide it.
                ++summary_.kept;
                say(QString("sent       %1 (%2)%3, but could not delete it: %4")
                        .arg(shown_path(path), type, note, record.errorString()));
            }
            break;
        }
        case request_outcome::rejected:
            ++summary_.rejected;
            ++summary_.kept;
            say(QString("rejected   %1 (%2): %3")
                    .arg(shown_path(path), type, describe_failure(outcome)));
            break;
        case request_outcome::timed_out:
            ++summary_.timed_out;
            keep("timed out", path, type, describe_failure(outcome));
            break;
        case request_outcome::failed:
            keep("failed", path, type, describe_failure(outcome));
            break;
    }
    start_more();
}

void upload_pass::keep(const QString& verdict, const QString& path, const QString& type,
                       const QString& why) {
    ++summary_.failed;
    ++summary_.kept;
    say(QString("%1 %2 (%3): %4")
            .arg(verdict.leftJustified(10), shown_path(path), type.isEmpty() ? "?" : type, why));
}

}  // namespace uploader
