// The collector's handling of one connection: arbitrary bytes arrive on a
// loopback connection as one client's requests (routes, multipart uploads,
// JSON bodies, the dashboard's queries) and the answers are read to the end.
#include <arpa/inet.h>
#include <netinet/in.h>
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

#include "dashboard/dashboard_queries.h"
#include "dashboard/dashboard_routes.h"
#include "fuzz_support.h"
#include "server/collector_server.h"
#include "server/host_routes.h"
#include "storage/collector_database.h"

namespace {

// A collector as its main() sets one up, on an SQLite file in a folder of its
// own with one descriptor and one installer to serve, listening on a free
// loopback port.
class fuzzed_collector {
public:
    explicit fuzzed_collector(const QString& folder)
        : server_(settings_for_fuzzing()),
          database_(collector_database::open(folder + "/collector.sqlite")),
          queries_(*database_),
          service_(config_in(folder), *database_),
          dashboard_(queries_, folder + "/uploads") {
        service_.install(server_.routes());
        dashboard_.install(server_.routes());
        server_.routes().observe([](const http_request& req, const http_response& res) {
            if (!dashboard_routes::is_routine(req, res)) host_routes::describe(req, res);
        });
        port_ = server_.bind("127.0.0.1", 0);
        loop_ = std::thread([this] { server_.run(); });
    }
    ~fuzzed_collector() {
        server_.shut_down();
        loop_.join();
    }

    // Sends everything, says it has no more, and reads every answer.
    void serve(const uint8_t* data, size_t size) const {
        const int sock = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(uint16_t(port_));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (sock < 0 || ::connect(sock, reinterpret_cast<sockaddr*>(&address), sizeof address)) {
            ::close(sock);
            return;
        }
        std::thread reader([sock] {
            char answer[16384];
            while (::recv(sock, answer, sizeof answer, 0) > 0) {
            }
        });
        for (size_t sent = 0; sent < size;) {
            const ssize_t n = ::send(sock, data + sent, size - sent, MSG_NOSIGNAL);
            if (n <= 0) break;
            sent += size_t(n);
        }
        ::shutdown(sock, SHUT_WR);
        reader.join();
        ::close(sock);
    }

private:
    static collector_server::settings settings_for_fuzzing() {
        collector_server::settings s;
        s.rules.timeout = std::chrono::milliseconds(500);
        s.hosts = {"127.0.0.1", "localhost"};
        s.workers = 2;
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

    collector_server server_;
    std::unique_ptr<collector_database> database_;
    dashboard_queries queries_;
    host_routes service_;
    dashboard_routes dashboard_;
    int port_ = -1;
    std::thread loop_;
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
    collector->serve(data, size);
    return 0;
}
