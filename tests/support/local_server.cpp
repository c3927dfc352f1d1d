#include "local_server.h"

#include <QProcess>
#include <QTcpServer>
#include <chrono>
#include <stdexcept>

namespace test_support {

tls_files make_self_signed_certificate(const std::string& folder) {
    tls_files files{folder + "/server.crt", folder + "/server.key"};
    QProcess openssl;
    openssl.start(
        "openssl",
        {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days",
         "1", "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
         QString::fromStdString(files.key), "-out", QString::fromStdString(files.certificate)});
    if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0)
        throw std::runtime_error("openssl could not make a certificate: " +
                                 openssl.readAllStandardError().toStdString());
    return files;
}

local_server::local_server(const tls_files& tls)
    : server_(new httplib::SSLServer(tls.certificate.c_str(), tls.key.c_str())), tls_(true) {
    if (!server_->is_valid()) throw std::runtime_error("TLS server could not load its certificate");
}

void local_server::start() {
    server_->set_keep_alive_timeout(1);
    // Enough threads that silent handlers do not hold up the other answers.
    server_->new_task_queue = [] { return new httplib::ThreadPool(48); };
    // The logger sees every request, also those the server rejects before
    // routing (its parser refuses some query texts with 400).
    server_->set_logger([this](const httplib::Request& req, const httplib::Response&) {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back({req.method, req.target, req.headers, req.body, req.files});
    });
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ <= 0) throw std::runtime_error("local server could not bind to 127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    if (!wait_until([this] { return server_->is_running(); }, 5000))
        throw std::runtime_error("local server did not start");
}

void local_server::stop() {
    release_silent();
    if (thread_.joinable()) {
        server_->stop();
        thread_.join();
    }
}

QString local_server::url(const std::string& path) const {
    return QString("%1://127.0.0.1:%2").arg(tls_ ? "https" : "http").arg(port_) +
           QString::fromStdString(path);
}

void local_server::answer(const std::string& pattern, const std::string& body,
                          const std::string& type, int status) {
    on_any(pattern, [body, type, status](const httplib::Request&, httplib::Response& res) {
        res.status = status;
        res.set_content(body, type.c_str());
    });
}

void local_server::answer_silently(const std::string& pattern, const std::string& late_body) {
    on_any(pattern, [this, late_body](const httplib::Request&, httplib::Response& res) {
        std::unique_lock<std::mutex> lock(mutex_);
        silent_cv_.wait_for(lock, std::chrono::seconds(60), [this] { return silent_released_; });
        res.set_content(late_body, "application/json");
    });
}

void local_server::release_silent() {
    std::lock_guard<std::mutex> lock(mutex_);
    silent_released_ = true;
    silent_cv_.notify_all();
}

void local_server::answer_chunked(const std::string& pattern, std::string content,
                                  std::size_t chunk_size, int pause_ms) {
    auto shared = std::make_shared<std::string>(std::move(content));
    on_get(pattern, [=](const httplib::Request&, httplib::Response& res) {
        res.set_chunked_content_provider(
            "application/octet-stream", [=](size_t offset, httplib::DataSink& sink) {
                if (offset >= shared->size()) {
                    sink.done();
                    return true;
                }
                if (offset > 0) std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
                const std::size_t n = std::min(chunk_size, shared->size() - offset);
                return sink.write(shared->data() + offset, n);
            });
    });
}

void local_server::answer_truncated(const std::string& pattern, std::string content,
                                    std::size_t sent_bytes) {
    auto shared = std::make_shared<std::string>(std::move(content));
    on_get(pattern, [shared, sent_bytes](const httplib::Request&, httplib::Response& res) {
        res.set_content_provider(
            shared->size(), "application/octet-stream",
            [shared, sent_bytes](size_t offset, size_t length, httplib::DataSink& sink) {
                if (offset >= sent_bytes) return false;  // drops the connection
                return sink.write(shared->data() + offset, std::min(length, sent_bytes - offset));
            });
    });
}

void local_server::answer_endlessly(const std::string& pattern) {
    on_any(pattern, [](const httplib::Request&, httplib::Response& res) {
        res.set_chunked_content_provider("application/json", [](size_t, httplib::DataSink& sink) {
            static const std::string chunk(64 * 1024, '[');
            return sink.write(chunk.data(), chunk.size());
        });
    });
}

int closed_port() {
    QTcpServer probe;  // closed again on return: connections are refused
    if (!probe.listen(QHostAddress::LocalHost)) throw std::runtime_error("no free loopback port");
    return probe.serverPort();
}

}  // namespace test_support
