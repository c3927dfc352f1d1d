#pragma once

#include <QObject>
#include <QStringList>

#include "request_tracker.h"
#include "uploader_command.h"

namespace uploader {

// Counts of one pass.
struct pass_summary {
    int records = 0;
    int sent = 0;
    int rejected = 0;
    int failed = 0;     // network errors, time-outs, unreadable records
    int timed_out = 0;  // the part of failed that timed out
    int kept = 0;       // still on disk for the next run
};

// Sends one list of record files with at most `parallel` requests in flight,
// deleting each record the service accepted. Emits finished once all are
// decided.
class upload_pass : public QObject {
    Q_OBJECT
public:
    struct target {
        QString address;
        QString app_id;
    };

    upload_pass(uploader_context& context, target to, QStringList records,
                QObject* parent = nullptr);
    void start();
    const pass_summary& summary() const { return summary_; }

signals:
    void finished();

private:
    void start_more();
    void start_record(const QString& path);
    void settle(const QString& path, const QString& type, const request_outcome& outcome);
    void keep(const QString& verdict, const QString& path, const QString& type, const QString& why);

    uploader_context& context_;
    target to_;
    QStringList records_;
    int next_ = 0;
    int in_flight_ = 0;
    pass_summary summary_;
};

}  // namespace uploader
