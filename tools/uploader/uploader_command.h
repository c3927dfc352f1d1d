#pragma once

#include <QObject>
#include <QString>

#include "information_api/information_api.h"
#include "main_thread_sink.h"
#include "request_tracker.h"
#include "uploader_options.h"

namespace uploader {

// What every command works with. The manager is the library's; the tracker
// owns the connection ids of this run.
struct uploader_context {
    const uploader_options& options;
    TarvoConsumerScanner::information_api::KeploInfoMgr& manager;
    main_thread_sink& sink;
    request_tracker& tracker;
};

// Exit codes.
const int exit_done = 0;
const int exit_failed = 1;  // something failed, or records were kept
const int exit_usage = 2;

// One line on standard output / on standard error (prefixed with the tool's
// name), flushed at once so that a reading process sees it.
void say(const QString& line);
void complain(const QString& line);

// A path as the user sees it: relative to the working folder.
QString shown_path(const QString& path);

// One subcommand, run on the main thread's event loop; it emits finished once.
class uploader_command : public QObject {
    Q_OBJECT
public:
    explicit uploader_command(uploader_context& context) : context_(context) {}
    virtual void start() = 0;

signals:
    void finished(int exit_code);

protected:
    uploader_context& context_;
};

uploader_command* make_upload_command(uploader_context& context);
uploader_command* make_descriptor_command(uploader_context& context);
uploader_command* make_send_file_command(uploader_context& context);
uploader_command* make_download_command(uploader_context& context);
uploader_command* make_status_command(uploader_context& context);

}  // namespace uploader
