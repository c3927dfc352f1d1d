// Moves one large file through the library on loopback, as a host would, and
// prints how far the process's resident memory grew while it did.
//
//   transfer_memory upload   <MiB> <folder>   upload_file of a sparse file
//   transfer_memory download <MiB> <folder>   downLoadApp of a generated file
//   transfer_memory answer   <MiB> <folder>   upload_information answered with
//                                             MiB of JSON, or endlessly for 0
//
// The server runs in this process on 127.0.0.1 and never holds the payload:
// it streams the upload into a byte counter and generates the download on the
// fly, so the growth measured is the library's.
#include <glog/logging.h>
#include <httplib.h>

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "information_api/information_api.h"

namespace api = TarvoConsumerScanner::information_api;

namespace {

// Resident and peak resident set of this process, in KiB.
struct memory_figures {
    long rss_kib = 0;
    long hwm_kib = 0;
};

memory_figures read_memory() {
    memory_figures m;
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) m.rss_kib = std::atol(line.c_str() + 6);
        if (line.rfind("VmHWM:", 0) == 0) m.hwm_kib = std::atol(line.c_str() + 6);
    }
    return m;
}

class bench_sink : public api::information_sink {
public:
    void on_response(int, QVariant info) override {
        const auto record = info.value<api::response_info_t>();
        ok = record.ok;
        state = record.state;
        error_string = record.error_string.toStdString();
        done = true;
    }
    void on_download_progress(qint64, qint64) override {}
    void on_download_finished(bool ok_, int state_, int) override {
        ok = ok_;
        state = state_;
        done = true;
    }

    std::atomic<bool> done{false};
    std::atomic<bool> ok{false};
    std::atomic<int> state{-1};
    std::string error_string;  // written before done is set
};

// Runs the host's event loop until the sink has its answer (ten minutes at
// most), sampling the resident set meanwhile.
long wait_sampling_peak(const bench_sink& sink, long peak_rss_kib) {
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        peak_rss_kib = std::max(peak_rss_kib, read_memory().rss_kib);
        if (sink.done) loop.quit();
    });
    poll.start(20);
    QTimer::singleShot(10 * 60 * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    return peak_rss_kib;
}

void drop_debug_lines(QtMsgType type, const QMessageLogContext&, const QString& msg) {
    if (type != QtDebugMsg) fprintf(stderr, "%s\n", msg.toLocal8Bit().constData());
}

int usage() {
    fprintf(stderr, "usage: transfer_memory upload|download|answer <MiB> <folder>\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return usage();
    const std::string mode = argv[1];
    const qint64 size = std::atoll(argv[2]) * 1024 * 1024;
    const QString folder = QString::fromLocal8Bit(argv[3]);
    const bool answer = mode == "answer";
    if ((mode != "upload" && mode != "download" && !answer) || (size <= 0 && !answer))
        return usage();

    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    google::InitGoogleLogging(argv[0]);
    FLAGS_logtostderr = true;
    FLAGS_minloglevel = google::GLOG_WARNING;  // one trace line per chunk otherwise
    qInstallMessageHandler(drop_debug_lines);
    QApplication app(argc, argv);
    QDir().mkpath(folder);

    httplib::Server server;
    std::atomic<qint64> uploaded{0};
    server.Post("/up", [&](const httplib::Request&, httplib::Response& res,
                           const httplib::ContentReader& reader) {
        reader([](const httplib::MultipartFormData&) { return true; },
               [&](const char*, size_t n) {
                   uploaded += static_cast<qint64>(n);
                   return true;
               });
        res.set_content(R"({"status":"success","result":{"dfs_id":"bench"}})", "application/json");
    });
    server.Get("/app/setup.exe", [&](const httplib::Request&, httplib::Response& res) {
        res.set_content_provider(static_cast<size_t>(size), "application/octet-stream",
                                 [](size_t, size_t length, httplib::DataSink& sink) {
                                     static const std::string block(64 * 1024, 'x');
                                     return sink.write(block.data(),
                                                       std::min(length, block.size()));
                                 });
    });
    // An answer of size bytes of nested arrays, or one without end.
    server.Post("/dtta", [&](const httplib::Request&, httplib::Response& res) {
        const auto chunk = [](size_t, size_t length, httplib::DataSink& sink) {
            static const std::string block(64 * 1024, '[');
            return sink.write(block.data(), std::min(length, block.size()));
        };
        if (size > 0)
            res.set_content_provider(static_cast<size_t>(size), "application/json", chunk);
        else
            res.set_chunked_content_provider("application/json",
                                             [chunk](size_t offset, httplib::DataSink& sink) {
                                                 return chunk(offset, 64 * 1024, sink);
                                             });
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread server_thread([&] { server.listen_after_bind(); });
    while (!server.is_running()) QThread::msleep(5);
    const QString base = QString("http://127.0.0.1:%1").arg(port);

    api::information_init();
    bench_sink sink;
    const memory_figures before = read_memory();
    QElapsedTimer clock;
    clock.start();

    QString file_path;
    if (answer) {
        api::upload_information(base + "/dtta", "{}", "bench", "usage", &sink, 1, 30000);
    } else if (mode == "upload") {
        file_path = QDir(folder).filePath("bench_upload.bin");
        QFile file(file_path);
        if (!file.open(QIODevice::WriteOnly) || !file.resize(size)) return 3;  // sparse
        file.close();
        api::upload_file(base + "/up", file_path, "bench", "", &sink, 1, 30000);
    } else {
        file_path = QDir(folder).filePath("setup.exe");
        api::downLoadApp(1, &sink, base + "/app/setup.exe", file_path);
    }
    const long peak = wait_sampling_peak(sink, before.rss_kib);
    const qint64 elapsed_ms = clock.elapsed();
    const memory_figures after = read_memory();

    const qint64 moved = answer             ? 0
                         : mode == "upload" ? uploaded.load()
                                            : QFileInfo(file_path).size();
    printf("%s of %lld MiB: ok=%d state=%d %s, %lld bytes arrived, %.1f s\n", mode.c_str(),
           static_cast<long long>(size >> 20), sink.ok.load(), sink.state.load(),
           sink.error_string.c_str(), static_cast<long long>(moved), elapsed_ms / 1000.0);
    printf("resident before %ld KiB, peak during %ld KiB, after %ld KiB: growth %ld KiB\n",
           before.rss_kib, peak, after.rss_kib, peak - before.rss_kib);
    printf("peak resident (VmHWM) before %ld KiB, after %ld KiB\n", before.hwm_kib, after.hwm_kib);

    api::release_connect(1);
    api::information_clean();
    server.stop();
    server_thread.join();
    if (!file_path.isEmpty()) QFile::remove(file_path);
    return answer || moved >= size ? 0 : 1;
}
