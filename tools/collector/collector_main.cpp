// information_collector: a local stand-in for the information web service,
// for development, demos and tests. See README.md beside this file.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <QCalendar>
#include <QCoreApplication>
#include <QDir>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "collector_options.h"
#include "dashboard/dashboard_routes.h"
#include "server/collector_server.h"
#include "server/host_routes.h"
#include "storage/collector_database.h"

namespace {

void say(const QString& line) {
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stdout);
}

void complain(const QString& line) {
    std::fprintf(stderr, "information_collector: %s\n", line.toLocal8Bit().constData());
}

void warn_beyond_loopback(const QString& host) {
    complain("warning: listening on " + host +
             " lets other machines reach this service. What protects it: the X-Auth-AppID "
             "check (the ids are built into every host, so it keeps out mistakes, not "
             "attackers), the request deadlines (--timeout), the limit of connections per address "
             "(--connections-per-address) and the body limit (--max-body). "
             "What does not: there is no login, so anyone who reaches the port can store "
             "records and files (filling the disk), read every descriptor and file served, and "
             "read every record and uploaded file through the dashboard; "
             "without --cert everything crosses the network in clear text.");
}

// After the first stop signal: a second one ends the process at once, and so
// does a clean stop that has not ended within two seconds.
void end_at_second_signal(const sigset_t& stop_signals, const std::atomic<bool>& stopped) {
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::milliseconds(1900);
    while (!stopped) {
        const timespec slice{0, 50 * 1000 * 1000};
        const int signal_number = sigtimedwait(&stop_signals, nullptr, &slice);
        if (signal_number > 0) {
            say(QString("information_collector: a second signal (%1), stopping at once")
                    .arg(strsignal(signal_number)));
            _exit(128 + signal_number);
        }
        if (std::chrono::steady_clock::now() >= give_up) {
            complain("could not stop cleanly within two seconds");
            _exit(1);
        }
    }
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
    // A client that goes away in the middle of an answer must not end the process.
    signal(SIGPIPE, SIG_IGN);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("information_collector");
    // Qt 5 fills its calendar registry on the first date formatted, without a
    // lock: request threads formatting their first times at once got empty
    // texts. Filled here, before any of them starts.
    QCalendar();
    collector_options options;
    const int parsed = parse_options(app.arguments(), options);
    if (parsed >= 0) return parsed;
    if (!is_loopback(options.host)) warn_beyond_loopback(options.host);

    if (!QDir().mkpath(options.config.upload_dir)) {
        complain("cannot create the upload folder " + options.config.upload_dir);
        return 1;
    }
    std::unique_ptr<collector_database> database;
    try {
        database = collector_database::open(options.database);
    } catch (const database_error& e) {
        complain("cannot open the database " +
                 collector_database::without_password(options.database) + ": " + e.what());
        return 1;
    }
    if (database->facts_added_on_open() > 0)
        say(QString("information_collector: the dashboard's figures taken from %1 stored records")
                .arg(database->facts_added_on_open()));
    dashboard_queries queries(*database);
    // Each connection holds a file descriptor.
    const std::size_t open_files = collector_server::raise_open_files_limit();
    collector_server server(options.server);
    std::string tls_error;
    if (!options.cert.isEmpty() &&
        !server.use_tls(options.cert.toStdString(), options.key.toStdString(), tls_error)) {
        complain(QString("cannot load the certificate %1 or key %2: %3")
                     .arg(options.cert, options.key, QString::fromStdString(tls_error)));
        return 1;
    }
    host_routes service(options.config, *database);
    service.install(server.routes());
    dashboard_routes dashboard(queries, options.config.upload_dir);
    dashboard.install(server.routes());
    // One line at a time; the local time it shows is read under the same lock,
    // since the C library's time zone state is not made for many threads.
    std::mutex log_lock;
    server.routes().observe([&log_lock](const http_request& req, const http_response& res) {
        if (dashboard_routes::is_routine(req, res)) return;
        std::lock_guard<std::mutex> lock(log_lock);
        say(QString::fromStdString(host_routes::describe(req, res)));
    });
    const int port = server.bind(options.host.toStdString(), options.port);
    if (port <= 0) {
        complain(QString("cannot listen on %1:%2 (port in use, or not an address of this machine)")
                     .arg(options.host)
                     .arg(options.port));
        return 1;
    }

    // Connections that come before the server runs wait in the listening
    // socket's queue, and a stop before it runs is kept for it.
    std::thread listener([&] { server.run(); });
    say("information_collector: database " + database->description() + ", uploaded files in " +
        options.config.upload_dir);
    if (options.config.software.is_set())
        say("information_collector: descriptors from " + options.config.software.path());
    if (options.config.files.is_set())
        say("information_collector: files from " + options.config.files.path());
    const QString address =
        QString("%1://%2:%3").arg(server.uses_tls() ? "https" : "http", options.host).arg(port);
    say("information_collector listening on " + address);
    say("information_collector: dashboard at " + address + "/");
    say(QString("information_collector: up to %1 connections at once, %2 from one address")
            .arg(open_files)
            .arg(options.server.rules.per_address));

    int signal_number = 0;
    sigwait(&stop_signals, &signal_number);
    say(QString("information_collector: stopping (%1); a second signal ends it at once")
            .arg(strsignal(signal_number)));
    std::atomic<bool> stopped{false};
    std::thread watchdog([&] { end_at_second_signal(stop_signals, stopped); });
    server.shut_down();
    listener.join();
    database->close();
    stopped = true;
    watchdog.join();
    say(QString("information_collector: stopped (%1)").arg(strsignal(signal_number)));
    return 0;
}
