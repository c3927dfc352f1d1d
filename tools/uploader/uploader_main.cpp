// information_uploader: a host of the library that sends the records another
// host left in its working folder, and runs the library's other requests from
// the command line. Built on the public header only.
#include <glog/logging.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTimer>
#include <cstdio>
#include <memory>

#include "information_api/information_api.h"
#include "main_thread_sink.h"
#include "request_tracker.h"
#include "uploader_command.h"
#include "uploader_options.h"

namespace api = TarvoConsumerScanner::information_api;

namespace uploader {

void say(const QString& line) {
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stdout);
}

void complain(const QString& line) {
    std::fprintf(stderr, "information_uploader: %s\n", line.toLocal8Bit().constData());
    std::fflush(stderr);
}

QString shown_path(const QString& path) {
    // The working folder is entered once, before any command runs.
    static const QDir working_folder = QDir::current();
    return working_folder.relativeFilePath(path);
}

}  // namespace uploader

namespace {

using namespace uploader;

QtMessageHandler qt_default_handler = nullptr;

// The library traces with qDebug(); that is noise for the tool's user.
void quiet_debug(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    if (type != QtDebugMsg && type != QtInfoMsg) qt_default_handler(type, context, text);
}

void set_up_logging(const char* program, bool verbose) {
    google::InitGoogleLogging(program);
    FLAGS_logtostderr = true;
    if (verbose) return;
    FLAGS_minloglevel = google::GLOG_ERROR;
    qt_default_handler = qInstallMessageHandler(quiet_debug);
}

uploader_command* make_command(uploader_context& context) {
    const QString& command = context.options.command;
    if (command == "descriptor") return make_descriptor_command(context);
    if (command == "send-file") return make_send_file_command(context);
    if (command == "download") return make_download_command(context);
    if (command == "status") return make_status_command(context);
    return make_upload_command(context);
}

}  // namespace

int main(int argc, char** argv) {
    // Records last written at least three seconds before this are due.
    const QDateTime process_start = QDateTime::currentDateTime();
    QCoreApplication app(argc, argv);
    // Under this name the library's manager runs no machine probes and keeps
    // no session of its own.
    QCoreApplication::setApplicationName("information_uploader");
    app.setProperty("start_time", process_start);

    uploader_options options;
    const parse_result parsed = parse_command_line(app.arguments(), options);
    if (parsed.what == parse_result::help) {
        std::fputs(parsed.text.toLocal8Bit().constData(), stdout);
        return exit_done;
    }
    if (parsed.what == parse_result::bad) {
        std::fprintf(stderr, "information_uploader: %s", parsed.text.toLocal8Bit().constData());
        return exit_usage;
    }
    set_up_logging(argv[0], options.verbose);
    // The manager reads ./res/system.ini and ./url_config.ini and keeps
    // ./keploinfo/ relative to the working folder.
    if (!QDir::setCurrent(options.workdir)) {
        complain("cannot enter the working folder " + options.workdir);
        return exit_failed;
    }

    // The library reads its TLS switches from the environment at each request.
    if (options.verify_tls) qputenv("INFORMATION_API_VERIFY_TLS", "1");
    if (!options.ca_file.isEmpty())
        qputenv("INFORMATION_API_CA_FILE", QFile::encodeName(options.ca_file));

    api::KeploInfoMgr* manager = api::information_init();
    if (!options.upload_url.isEmpty())
        manager->set_upload_urls(options.upload_url, options.upload_url);
    if (!options.file_url.isEmpty())
        manager->set_file_upload_urls(options.file_url, options.file_url);
    int exit_code = exit_failed;
    {
        main_thread_sink sink;
        // A time-out below a second would make the library's watchdog spin.
        request_tracker tracker(sink, qMax(1, manager->get_connect_time()));
        uploader_context context{options, *manager, sink, tracker};
        std::unique_ptr<uploader_command> command(make_command(context));
        QObject::connect(
            command.get(), &uploader_command::finished, &app,
            [&](int code) { QCoreApplication::exit(code); }, Qt::QueuedConnection);
        QTimer::singleShot(0, command.get(), [&] { command->start(); });
        exit_code = app.exec();
        tracker.release_all();
        // Stops the worker thread before the sink goes: no call can reach it
        // afterwards.
        api::information_clean();
    }
    return exit_code;
}
