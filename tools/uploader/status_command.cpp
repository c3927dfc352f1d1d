// status: what an upload would use, and how many records wait.
#include <QDir>

#include "uploader_command.h"

namespace uploader {

namespace {

class status_command : public uploader_command {
public:
    using uploader_command::uploader_command;

    void start() override {
        auto& manager = context_.manager;
        int enable = 0;
        int interval = 0;
        QString address;
        QString app_id;
        manager.get_upload_config(enable, interval, address, app_id);
        QString file_address = context_.options.file_url;
        if (file_address.isEmpty()) manager.get_file_upload_url(file_address);
        QString cdn = context_.options.cdn_url;
        if (cdn.isEmpty()) manager.get_cdn_url(cdn);
        QStringList due;
        manager.list_due_records(due);
        QStringList scores;
        manager.list_score_files(scores);

        auto row = [](const char* label, const QString& value) {
            say(QString("%1 %2").arg(QString(label).leftJustified(18), value));
        };
        row("working folder:", QDir::currentPath());
        row("uploading:", enable ? "on" : "off (\"enable\" is 0 in res/system.ini)");
        row("interval:", QString("%1 s").arg(interval));
        row("time-out:", QString("%1 s").arg(context_.tracker.connect_seconds()));
        row("information URL:", address.isEmpty() ? "(none)" : address);
        row("application id:", app_id);
        row("file upload URL:", file_address);
        row("descriptor base:", cdn);
        row("due records:", QString::number(due.size()));
        row("score files:", QString::number(scores.size()));
        emit finished(exit_done);
    }
};

}  // namespace

uploader_command* make_status_command(uploader_context& context) {
    return new status_command(context);
}

}  // namespace uploader
