// information_collector: a local stand-in for the information web service,
// for development, demos and tests. See README.md beside this file.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>

#include "collector_database.h"
#include "collector_service.h"

namespace {

struct collector_options {
    QString host;
    int port = 0;
    QString database;
    QString cert;
    QString key;
    collector_config config;
};

void say(const QString& line) {
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stdout);
}

int usage_error(const QCommandLineParser& parser, const QString& why) {
    std::fprintf(stderr, "information_collector: %s\n\n%s", why.toLocal8Bit().constData(),
                 parser.helpText().toLocal8Bit().constData());
    return 2;
}

// Parses the command line; returns -1 to go on, or the exit code.
int parse_options(QCoreApplication& app, collector_options& out) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "A local stand-in for the information web service: accepts information and file "
        "uploads into an SQLite database, serves software descriptors and installer files.");
    parser.addHelpOption();
    const QCommandLineOption host({"H", "host"}, "Address to listen on (default 127.0.0.1).",
                                  "address", "127.0.0.1");
    const QCommandLineOption port(
        {"p", "port"}, "Port to listen on; 0 picks a free one (default 8080).", "port", "8080");
    const QCommandLineOption database({"d", "database"},
                                      "SQLite file to store into (default collector.sqlite).",
                                      "file", "collector.sqlite");
    const QCommandLineOption upload_dir("upload-dir",
                                        "Folder for uploaded files (default collector_files).",
                                        "folder", "collector_files");
    const QCommandLineOption software_dir("software-dir",
                                          "Folder with <id>/interface.json descriptors.", "folder");
    const QCommandLineOption files_dir("files-dir", "Folder served under /files/.", "folder");
    const QCommandLineOption app_id(
        "app-id", "Accepted X-Auth-AppID; repeat for several (default: the library's two).", "id");
    const QCommandLineOption cert("cert", "TLS certificate (PEM); serve HTTPS.", "file");
    const QCommandLineOption key("key", "TLS private key (PEM) for --cert.", "file");
    parser.addOptions(
        {host, port, database, upload_dir, software_dir, files_dir, app_id, cert, key});

    if (!parser.parse(app.arguments())) return usage_error(parser, parser.errorText());
    if (parser.isSet("help")) {
        std::fputs(parser.helpText().toLocal8Bit().constData(), stdout);
        return 0;
    }
    if (!parser.positionalArguments().isEmpty())
        return usage_error(parser, "unexpected argument " + parser.positionalArguments().first());
    bool ok = false;
    out.port = parser.value(port).toInt(&ok);
    if (!ok || out.port < 0 || out.port > 65535)
        return usage_error(parser, "--port wants a number from 0 to 65535");
    out.host = parser.value(host);
    out.database = parser.value(database);
    out.cert = parser.value(cert);
    out.key = parser.value(key);
    if (out.cert.isEmpty() != out.key.isEmpty())
        return usage_error(parser, "--cert and --key go together");
    out.config.app_ids = parser.isSet(app_id) ? parser.values(app_id) : default_app_ids();
    out.config.upload_dir = QFileInfo(parser.value(upload_dir)).absoluteFilePath();
    for (const auto& folder : {std::make_pair(&software_dir, &out.config.software_dir),
                               std::make_pair(&files_dir, &out.config.files_dir)}) {
        if (!parser.isSet(*folder.first)) continue;
        const QFileInfo info(parser.value(*folder.first));
        if (!info.isDir())
            return usage_error(parser, QString("--%1: %2 is not a folder")
                                           .arg(folder.first->names().first(), info.filePath()));
        *folder.second = info.absoluteFilePath();
    }
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    // Signals are taken by sigwait below; block them before any thread starts
    // so that the server's threads inherit the mask.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("information_collector");
    collector_options options;
    const int parsed = parse_options(app, options);
    if (parsed >= 0) return parsed;

    if (!QDir().mkpath(options.config.upload_dir)) {
        std::fprintf(stderr, "information_collector: cannot create the upload folder %s\n",
                     options.config.upload_dir.toLocal8Bit().constData());
        return 1;
    }
    collector_database database;
    QString error;
    if (!database.open(options.database, error)) {
        std::fprintf(stderr, "information_collector: cannot open the database %s: %s\n",
                     options.database.toLocal8Bit().constData(), error.toLocal8Bit().constData());
        return 1;
    }

    const bool tls = !options.cert.isEmpty();
    std::unique_ptr<httplib::Server> server;
    if (tls) {
        server.reset(new httplib::SSLServer(options.cert.toLocal8Bit().constData(),
                                            options.key.toLocal8Bit().constData()));
        if (!server->is_valid()) {
            std::fprintf(
                stderr, "information_collector: cannot load the certificate %s or key %s\n",
                options.cert.toLocal8Bit().constData(), options.key.toLocal8Bit().constData());
            return 1;
        }
    } else {
        server.reset(new httplib::Server);
    }
    collector_service service(options.config, database);
    service.install(*server);
    server->set_logger([](const httplib::Request& req, const httplib::Response& res) {
        say(QString::fromStdString(collector_service::describe(req, res)));
    });

    // The server library's default also sets SO_REUSEPORT, which would let a
    // second collector share a port that is in use instead of failing.
    server->set_socket_options([](socket_t sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    const std::string host = options.host.toStdString();
    int port = options.port;
    if (port == 0)
        port = server->bind_to_any_port(host);
    else if (!server->bind_to_port(host, port))
        port = -1;
    if (port <= 0) {
        std::fprintf(stderr,
                     "information_collector: cannot listen on %s:%d (port in use, or not an "
                     "address of this machine)\n",
                     host.c_str(), options.port);
        return 1;
    }

    bool listening_failed = false;
    std::atomic<bool> stopping{false};
    std::atomic<bool> listener_done{false};
    std::thread listener([&] {
        if (!server->listen_after_bind()) listening_failed = true;
        listener_done = true;
        // Wakes the main thread also when the server ends on its own.
        if (!stopping) kill(getpid(), SIGTERM);
    });
    // stop() before the server runs would be lost; and scripts may connect as
    // soon as they read the "listening on" line.
    while (!server->is_running() && !listener_done)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    say("information_collector: database " + QFileInfo(options.database).absoluteFilePath() +
        ", uploaded files in " + options.config.upload_dir);
    if (!options.config.software_dir.isEmpty())
        say("information_collector: descriptors from " + options.config.software_dir);
    if (!options.config.files_dir.isEmpty())
        say("information_collector: files from " + options.config.files_dir);
    say(QString("information_collector listening on %1://%2:%3")
            .arg(tls ? "https" : "http", options.host)
            .arg(port));

    int signal_number = 0;
    sigwait(&stop_signals, &signal_number);
    stopping = true;
    server->stop();
    listener.join();
    database.close();
    if (listening_failed) {
        std::fprintf(stderr, "information_collector: the server stopped unexpectedly\n");
        return 1;
    }
    say(QString("information_collector: stopped (%1)").arg(strsignal(signal_number)));
    return 0;
}
