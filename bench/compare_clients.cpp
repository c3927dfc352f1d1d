// The library's side of bench/compare: one piece of work per process, as a
// host would do it, so that the runner sees its time and peak memory alone.
//
//   bench_compare client download URL PATH
//   bench_compare client upload URL FILE
//   bench_compare client posts URL COUNT IN_FLIGHT BODY_FILE
//   bench_compare client due|delete|scores FOLDER   (prints the call's ms)
//   bench_compare client init FOLDER                (prints information_init's ms)
#include "compare_clients.h"

#include <glog/logging.h>

#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSet>
#include <QTimer>
#include <cstdio>
#include <functional>

#include "information_api/information_api.h"

namespace api = TarvoConsumerScanner::information_api;

namespace bench {

namespace {

// Hands every report to the main thread, where the client keeps its state.
class main_thread_sink : public api::information_sink {
public:
    std::function<void(int, const api::response_info_t&)> response;
    std::function<void(qint64, qint64)> progress;
    std::function<void(bool)> finished;

    void on_response(int id, QVariant info) override {
        const auto record = info.value<api::response_info_t>();
        post([this, id, record] { response(id, record); });
    }
    void on_download_progress(qint64 received, qint64 total) override {
        post([this, received, total] { progress(received, total); });
    }
    void on_download_finished(bool ok, int, int) override {
        post([this, ok] { finished(ok); });
    }

private:
    static void post(std::function<void()> call) {
        QMetaObject::invokeMethod(qApp, std::move(call), Qt::QueuedConnection);
    }
};

// Quiet like information_uploader: the library's trace lines are the host's
// to keep or drop, and a benchmark drops them.
void quiet_debug(QtMsgType type, const QMessageLogContext&, const QString& text) {
    if (type != QtDebugMsg && type != QtInfoMsg)
        std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
}

// Runs the event loop until the work ends it (exit code 0 or 1) or no report
// came for a minute (1), then stops the library while the sink still lives.
int run_until_done(QTimer& watchdog) {
    watchdog.setSingleShot(true);
    QObject::connect(&watchdog, &QTimer::timeout, [] {
        std::fprintf(stderr, "bench_compare: no report for a minute\n");
        QCoreApplication::exit(1);
    });
    watchdog.start(60000);
    const int code = QCoreApplication::exec();
    api::information_clean();
    return code;
}

int download(const QString& url, const QString& path) {
    api::information_init();
    main_thread_sink sink;
    QTimer watchdog;
    sink.progress = [&](qint64, qint64) { watchdog.start(60000); };
    sink.finished = [](bool ok) { QCoreApplication::exit(ok ? 0 : 1); };
    api::downLoadApp(1, &sink, url, path);
    return run_until_done(watchdog);
}

int upload(const QString& url, const QString& file) {
    api::information_init();
    main_thread_sink sink;
    QTimer watchdog;
    sink.response = [](int, const api::response_info_t& info) {
        if (info.state != 6) QCoreApplication::exit(info.ok ? 0 : 1);
    };
    api::upload_file(url, file, "bench", QString(), &sink, 1, 60000);
    return run_until_done(watchdog);
}

// count posts of the body, at most in_flight at once; the next starts as
// soon as one is answered.
int posts(const QString& url, int count, int in_flight, const QString& body_file) {
    QFile file(body_file);
    if (!file.open(QIODevice::ReadOnly)) return 2;
    const QString body = QString::fromUtf8(file.readAll());
    api::information_init();
    main_thread_sink sink;
    QTimer watchdog;
    int started = 0;
    int failed = 0;
    QSet<int> settled;
    auto start_next = [&] {
        ++started;
        api::upload_information(url, body, "a94e07b3c2d851f6e0b7a4c39d2f6e58", "usage", &sink,
                                started, 20000);
    };
    sink.response = [&](int id, const api::response_info_t& info) {
        // A failure is reported more than once, a time-out is not final.
        if (info.state == 6 || settled.contains(id)) return;
        settled.insert(id);
        api::release_connect(id);
        watchdog.start(60000);
        if (!info.ok && failed++ == 0)
            std::fprintf(stderr, "bench_compare: post %d: state %d, network error %d %s\n", id,
                         info.state, info.net_error, qPrintable(info.error_string));
        if (started < count) start_next();
        if (settled.size() == count) QCoreApplication::exit(failed == 0 ? 0 : 1);
    };
    while (started < qMin(count, in_flight)) start_next();
    return run_until_done(watchdog);
}

// One record-store call in folder, timed alone.
int record_store_call(const QString& which, const QString& folder) {
    if (!QDir::setCurrent(folder)) return 2;
    qApp->setProperty("start_time", QDateTime::currentDateTime());
    api::KeploInfoMgr* manager = api::information_init();
    QStringList listed;
    QElapsedTimer clock;
    clock.start();
    if (which == "due") manager->list_due_records(listed);
    if (which == "delete") manager->delete_old_records();
    if (which == "scores") manager->list_score_files(listed);
    const double ms = clock.nsecsElapsed() / 1e6;
    std::printf("ms=%.3f listed=%d\n", ms, int(listed.size()));
    api::information_clean();
    return 0;
}

int init(const QString& folder) {
    if (!QDir::setCurrent(folder)) return 2;
    QElapsedTimer clock;
    clock.start();
    api::information_init();
    std::printf("ms=%.3f\n", clock.nsecsElapsed() / 1e6);
    api::information_clean();
    return 0;
}

}  // namespace

int run_client(int argc, char** argv) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    google::InitGoogleLogging(argv[0]);
    FLAGS_logtostderr = true;
    FLAGS_minloglevel = google::GLOG_ERROR;
    qInstallMessageHandler(quiet_debug);
    QApplication app(argc, argv);
    const QStringList a = app.arguments().mid(2);  // after "client"
    const QString mode = a.value(0);
    if (mode == "download" && a.size() == 3) return download(a[1], a[2]);
    if (mode == "upload" && a.size() == 3) return upload(a[1], a[2]);
    if (mode == "posts" && a.size() == 5) return posts(a[1], a[2].toInt(), a[3].toInt(), a[4]);
    if ((mode == "due" || mode == "delete" || mode == "scores") && a.size() == 2)
        return record_store_call(mode, a[1]);
    if (mode == "init" && a.size() == 2) return init(a[1]);
    std::fprintf(stderr, "bench_compare client: unknown work %s\n", qPrintable(a.join(' ')));
    return 2;
}

}  // namespace bench
