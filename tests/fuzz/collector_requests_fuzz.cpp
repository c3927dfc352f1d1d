// The collector's handling of one connection: arbitrary bytes arrive on a
// socket as one client's requests (routes, multipart uploads, JSON bodies,
// the dashboard's queries) and the answers are read to the end.
#include <sys/socket.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

#include "storage/collector_database.h"
#include "server/collector_server.h"
#include "server/host_routes.h"
#include "dashboard/dashboard_queries.h"
#include "dashboard/dashboard_routes.h"
#include "fuzz_support.h"

namespace {

// A collector as its main() sets one up, on an SQLite file in a folder of its
// own with one descriptor and one installer to serve.
class fuzzed_collector : public collector_server {
public:
    explicit fuzzed_collector(const QString& folder)
        : collector_server(settings_for_fuzzing()),
          database_(collector_database::open(folder + "/collector.sqlite")),
          queries_(*database_),
          service_(config_in(folder), *database_),
          dashboard_(queries_, folder + "/uploads") {
        service_.install(*this);
        dashboard_.install(*this);
        set_logger([](const httplib::Request& req, const httplib::Response& res) {
            if (!dashboard_routes::is_routine(req, res)) host_routes::describe(req, res);
        });
    }

    void serve(socket_t sock) { process_and_close_socket(sock); }

private:
    static settings settings_for_fuzzing() {
        settings s;
        s.rules.timeout = std::chrono::milliseconds(500);
        s.hosts = {"127.0.0.1", "localhost"};
        return s;
    }

    static collector_config config_in(const QString& folder) {
        QDir(folder).mkpath("software/x");
        QDir(folder).mkpath("files");
        QDir(folder).mkpath("uploads");
        QFile descriptor(folder + "/software/x/interface.json");
        if (descriptor.open(QIODevice::WriteOnly)) descriptor.write(R"({"version":"1"})");
        QFile installer(folder + "/files/setup.exe");
        if (installer.open(QIODevice::WriteOnly)) installer.write(QByteArray(3000, 'x'));
        collector_config config;
        config.app_ids = default_app_ids();
        config.software = served_folder(folder + "/software");
        config.files = served_folder(folder + "/files");
        config.upload_dir = folder + "/uploads";
        config.max_body = 1 << 20;
        return config;
    }

    std::unique_ptr<collector_database> database_;
    dashboard_queries queries_;
    host_routes service_;
    dashboard_routes dashboard_;
};

// What the collector stores grows with every input: both start again now and then.
constexpr int inputs_per_collector = 2000;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    fuzz_quiet();
    static QCoreApplication app(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::unique_ptr<QTemporaryDir> folder;
    static std::unique_ptr<fuzzed_collector> collector;
    static int served = 0;
    if (served++ % inputs_per_collector == 0) {
        collector.reset();
        folder = std::make_unique<QTemporaryDir>();
        collector = std::make_unique<fuzzed_collector>(folder->path());
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return 0;
    // The client sends everything, says it has no more, and reads every answer.
    std::thread client([&] {
        for (size_t sent = 0; sent < size;) {
            const ssize_t n = ::send(ends[0], data + sent, size - sent, MSG_NOSIGNAL);
            if (n <= 0) break;
            sent += size_t(n);
        }
        ::shutdown(ends[0], SHUT_WR);
        char answer[16384];
        while (::recv(ends[0], answer, sizeof answer, 0) > 0) {
        }
    });
    collector->serve(ends[1]);  // closes its end
    client.join();
    ::close(ends[0]);
    return 0;
}
