// descriptor and send-file: one request each, decided like an upload record.
// Their result alone goes to standard output, so that scripts can take it.
#include <QFileInfo>
#include <QJsonDocument>

#include "uploader_command.h"

namespace uploader {

namespace api = TarvoConsumerScanner::information_api;

namespace {

void note(const QString& line) {
    complain(line);
}

class descriptor_command : public uploader_command {
public:
    using uploader_command::uploader_command;

    void start() override {
        QString base = context_.options.cdn_url;
        if (base.isEmpty()) context_.manager.get_cdn_url(base);
        const QString software = context_.options.arguments.at(0);
        const QString address = base + "/software/" + software + "/interface.json";
        note("descriptor: fetching " + address);
        const int id = context_.tracker.watch(
            3, [this, address](const request_outcome& outcome) { done(address, outcome); });
        api::get_url_json_file(base, software, &context_.sink, id,
                               context_.tracker.connect_seconds() * 1000);
    }

private:
    void done(const QString& address, const request_outcome& outcome) {
        switch (outcome.kind) {
            case request_outcome::succeeded:
                std::fputs(outcome.info.content.toJsonDocument().toJson().constData(), stdout);
                std::fflush(stdout);
                return emit finished(exit_done);
            case request_outcome::rejected:
                complain("descriptor: the answer from " + address + " is not a JSON document");
                break;
            default:
                complain("descriptor: cannot fetch " + address + ": " + describe_failure(outcome));
        }
        emit finished(exit_failed);
    }
};

class send_file_command : public uploader_command {
public:
    using uploader_command::uploader_command;

    void start() override {
        const QFileInfo file(context_.options.arguments.at(0));
        // The library would only log an unreadable file and never answer.
        if (!file.isFile() || !file.isReadable()) {
            complain("send-file: cannot read " + file.filePath());
            return emit finished(exit_failed);
        }
        QString address = context_.options.file_url;
        if (address.isEmpty()) context_.manager.get_file_upload_url(address);
        int enable = 0;
        int interval = 0;
        QString information_address;
        QString app_id;
        context_.manager.get_upload_config(enable, interval, information_address, app_id);

        note(QString("send-file: sending %1 (%2 bytes) to %3")
                 .arg(file.filePath())
                 .arg(file.size())
                 .arg(address));
        // A large file may take long to go up; the watch ends only a silent one.
        const int id = context_.tracker.watch(
            10, [this, file](const request_outcome& outcome) { done(file.filePath(), outcome); });
        api::upload_file(address, file.absoluteFilePath(), app_id, QString(), &context_.sink, id,
                         context_.tracker.connect_seconds() * 1000);
    }

private:
    void done(const QString& path, const request_outcome& outcome) {
        if (outcome.kind == request_outcome::succeeded && !outcome.info.result.isEmpty()) {
            say(outcome.info.result);
            return emit finished(exit_done);
        }
        if (outcome.kind == request_outcome::succeeded)
            complain("send-file: the service took " + path + " but gave no file id");
        else if (outcome.kind == request_outcome::rejected)
            // The library passes no text of the service's for a refused file.
            complain("send-file: the service refused " + path + " (it did not answer \"success\")");
        else
            complain("send-file: cannot send " + path + ": " + describe_failure(outcome));
        emit finished(exit_failed);
    }
};

}  // namespace

uploader_command* make_descriptor_command(uploader_context& context) {
    return new descriptor_command(context);
}

uploader_command* make_send_file_command(uploader_context& context) {
    return new send_file_command(context);
}

}  // namespace uploader
