#include "compare_servers.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QThread>
#include <stdexcept>

#include "compare_fixtures.h"

namespace bench {

namespace {

// Polls until ready() holds, five seconds at most.
bool wait_for(const std::function<bool()>& ready) {
    QElapsedTimer clock;
    clock.start();
    while (!ready()) {
        if (clock.elapsed() > 5000) return false;
        QThread::msleep(20);
    }
    return true;
}

// A loopback port that was free a moment ago.
int free_port() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                       ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    ::close(fd);
    return bound ? ntohs(address.sin_port) : 0;
}

bool accepts_connections(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    const bool connected =
        ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
}

const char* const upload_answer = R"({"status":"success","result":{"dfs_id":"bench"}})";

}  // namespace

collector_server::collector_server(const QString& program, const QString& folder) {
    QDir().mkpath(folder);
    const QString log = folder + "/collector.log";
    QFile::remove(log);
    process_.setStandardOutputFile(log);
    process_.setStandardErrorFile(folder + "/collector.err");
    process_.start(program, {"--port", "0", "--database", folder + "/collector.sqlite",
                             "--upload-dir", folder + "/collector_files"});
    const QRegularExpression listening("listening on (http://127\\.0\\.0\\.1:\\d+)");
    process_.waitForStarted(5000);
    wait_for([&] {
        QFile file(log);
        if (file.open(QIODevice::ReadOnly))
            url_ = listening.match(QString::fromUtf8(file.readAll())).captured(1);
        return !url_.isEmpty() || process_.waitForFinished(0);
    });
    if (url_.isEmpty()) throw std::runtime_error("the collector did not start");
}

collector_server::~collector_server() {
    process_.terminate();
    if (!process_.waitForFinished(5000)) process_.kill();
    process_.waitForFinished(5000);
}

transfer_server::transfer_server(const QString& folder, qint64 file_size)
    : server_(new httplib::Server) {
    QDir().mkpath(folder);
    server_->Post("/up", [](const httplib::Request&, httplib::Response& res,
                            const httplib::ContentReader& reader) {
        qint64 bytes = 0;
        reader([](const httplib::MultipartFormData&) { return true; },
               [&bytes](const char*, size_t n) {
                   bytes += qint64(n);
                   return true;
               });
        res.set_content(upload_answer, "application/json");
    });
    server_->Get("/files/big.bin", [file_size](const httplib::Request&, httplib::Response& res) {
        res.set_content_provider(size_t(file_size), "application/octet-stream",
                                 [](size_t, size_t length, httplib::DataSink& sink) {
                                     static const std::string block(64 * 1024, 'x');
                                     return sink.write(block.data(),
                                                       std::min(length, block.size()));
                                 });
    });
    const int port = server_->bind_to_any_port("127.0.0.1");
    if (port <= 0) throw std::runtime_error("the transfer server could not bind");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    wait_for([this] { return server_->is_running(); });
    const QString base = QString("http://127.0.0.1:%1").arg(port);
    upload_url_ = base + "/up";
    download_url_ = base + "/files/big.bin";
    nginx_port_ = start_nginx(folder, file_size);
    if (nginx_port_) download_url_ = QString("http://127.0.0.1:%1/files/big.bin").arg(nginx_port_);
}

int transfer_server::start_nginx(const QString& folder, qint64 file_size) {
    QString nginx = QStandardPaths::findExecutable("nginx");
    if (nginx.isEmpty()) nginx = QStandardPaths::findExecutable("nginx", {"/usr/sbin"});
    const int port = free_port();
    if (nginx.isEmpty() || port <= 0) return 0;
    const QString prefix = folder + "/nginx";
    QDir().mkpath(prefix + "/files");
    if (!write_sparse_file(prefix + "/files/big.bin", file_size)) return 0;
    QFile conf(prefix + "/nginx.conf");
    if (!conf.open(QIODevice::WriteOnly)) return 0;
    conf.write(QString("daemon off;\nworker_processes 1;\npid %1/nginx.pid;\n"
                       "error_log %1/error.log;\nevents {}\n"
                       "http {\n  access_log off;\n  sendfile on;\n"
                       "  client_body_temp_path %1/body;\n  proxy_temp_path %1/proxy;\n"
                       "  fastcgi_temp_path %1/fastcgi;\n  uwsgi_temp_path %1/uwsgi;\n"
                       "  scgi_temp_path %1/scgi;\n"
                       "  server {\n    listen 127.0.0.1:%2;\n    root %1;\n  }\n}\n")
                   .arg(prefix)
                   .arg(port)
                   .toUtf8());
    conf.close();
    nginx_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    nginx_.setStandardOutputFile(QProcess::nullDevice());
    nginx_.start(nginx, {"-p", prefix, "-c", prefix + "/nginx.conf"});
    const bool up = nginx_.waitForStarted(5000) && wait_for([&] {
                        return accepts_connections(port) || nginx_.waitForFinished(0);
                    });
    return up && nginx_.state() == QProcess::Running ? port : 0;
}

transfer_server::~transfer_server() {
    if (nginx_.state() != QProcess::NotRunning) {
        nginx_.terminate();
        if (!nginx_.waitForFinished(5000)) nginx_.kill();
        nginx_.waitForFinished(5000);
    }
    server_->stop();
    if (thread_.joinable()) thread_.join();
}

}  // namespace bench
