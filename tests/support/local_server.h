#pragma once

#include <httplib.h>

#include <QString>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "event_wait.h"

namespace test_support {

// What a local server received, as its own parser saw it.
struct received_request {
    std::string method;
    std::string target;  // path and query as sent
    httplib::Headers headers;
    std::string body;
    httplib::MultipartFormDataMap files;

    std::string header(const std::string& name) const {
        auto it = headers.find(name);
        return it == headers.end() ? std::string() : it->second;
    }
};

// Paths of a self-signed certificate and its key, made for 127.0.0.1.
struct tls_files {
    std::string certificate;
    std::string key;
};

// Makes a fresh self-signed certificate in folder.
tls_files make_self_signed_certificate(const std::string& folder);

// A cpp-httplib server on 127.0.0.1 and a free port, on a thread of its own.
// Register handlers before start().
class local_server {
public:
    using handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    local_server() : server_(new httplib::Server) {}
    explicit local_server(const tls_files& tls);
    ~local_server() { stop(); }

    void start();
    void stop();

    int port() const { return port_; }
    // "http://127.0.0.1:<port>" (or https) followed by path.
    QString url(const std::string& path = "") const;

    void on_get(const std::string& pattern, handler h) { server_->Get(pattern, h); }
    void on_post(const std::string& pattern, handler h) { server_->Post(pattern, h); }

    // Canned answers, for GET and POST alike.
    void answer_json(const std::string& pattern, const std::string& body, int status = 200) {
        answer(pattern, body, "application/json", status);
    }
    void answer(const std::string& pattern, const std::string& body, const std::string& type,
                int status = 200);
    // Accepts and says nothing until release_silent() (or stop()), then
    // answers late_body.
    void answer_silently(const std::string& pattern, const std::string& late_body);
    void release_silent();
    // Serves content chunked, with no length announced, pausing between
    // chunks: the toolkit reports progress at most every 100 ms, so a loopback
    // transfer that ends sooner would show only the closing report.
    void answer_chunked(const std::string& pattern, std::string content, std::size_t chunk_size,
                        int pause_ms);
    // Announces content's full length but sends only its first sent_bytes,
    // then drops the connection.
    void answer_truncated(const std::string& pattern, std::string content, std::size_t sent_bytes);
    // Answers without end, chunk after chunk, until the client goes away.
    void answer_endlessly(const std::string& pattern);

    // Requests are recorded once they have been answered.
    std::vector<received_request> requests() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }
    bool wait_for_requests(std::size_t n, int timeout_ms = 10000) const {
        return wait_until([&] { return requests().size() >= n; }, timeout_ms);
    }

private:
    void on_any(const std::string& pattern, const handler& h) {
        on_get(pattern, h), on_post(pattern, h);
    }

    std::unique_ptr<httplib::Server> server_;
    bool tls_ = false;
    int port_ = 0;
    std::thread thread_;

    mutable std::mutex mutex_;
    std::condition_variable silent_cv_;
    bool silent_released_ = false;
    std::vector<received_request> requests_;
};

// A loopback port with nothing listening on it.
int closed_port();

}  // namespace test_support
