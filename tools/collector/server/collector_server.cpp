#include "server/collector_server.h"

#include <openssl/err.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>

#include "server/json_answer.h"
#include "server/worker_pool.h"

namespace {

// The connection that the calling thread serves, for the handlers below,
// which the server library calls without it.
struct connection_state {
    const connection_stream* stream;
    bool close_after_answer = false;
};
thread_local connection_state* current = nullptr;

QString reason(int status) {
    switch (status) {
        case 400:
            return "malformed request";
        case 404:
            return "not found";
        case 405:
            return "method not allowed";
        case 408:
            return "request took too long";
        case 413:
            return "request body too large";
        case 414:
            return "request line too long";
        case 416:
            return "bad range";
        default:
            return QString("HTTP status %1").arg(status);
    }
}

}  // namespace

collector_server::collector_server(const settings& settings) : settings_(settings) {
    settings_.rules.stopping = &stopping_;
    set_keep_alive_timeout(5);
    set_keep_alive_max_count(1000);
    new_task_queue = [this] { return pool_ = new worker_pool(settings_.threads); };
    // The server library's default also sets SO_REUSEPORT, which would let a
    // second collector share a port that is in use instead of failing.
    set_socket_options([](socket_t sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    // Other methods would have their body read into memory before any route sees them.
    set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        if (!for_this_host(req))
            answer_failed(res, "unknown host", 421);
        else if (req.method != "GET" && req.method != "HEAD" && req.method != "POST")
            answer_failed(res, reason(405), 405);
        else
            return HandlerResponse::Unhandled;
        return HandlerResponse::Handled;
    });
    set_error_handler(HandlerWithResponse([](const httplib::Request&, httplib::Response& res) {
        if (current && current->stream->timed_out())
            answer_failed(res, reason(408), 408);
        else if (current && current->stream->cut_short())
            answer_failed(res, reason(503), 503);
        else if (res.body.empty())
            answer_failed(res, reason(res.status), res.status);
        return HandlerResponse::Handled;
    }));
    // After a refusal the rest of the request may still be on its way: the
    // connection cannot carry another one.
    set_post_routing_handler([](const httplib::Request&, httplib::Response& res) {
        const bool closing = res.get_header_value("Connection") == "close";
        if (!current || (!closing && (res.status < 400 || res.status == 404))) return;
        current->close_after_answer = true;
        res.headers.erase("Keep-Alive");
        res.headers.erase("Connection");  // the route's and the server library's
        res.set_header("Connection", "close");
    });
}

collector_server::~collector_server() = default;

bool collector_server::use_tls(const std::string& certificate, const std::string& key,
                               std::string& error) {
    tls_.reset(SSL_CTX_new(TLS_server_method()));
    if (!tls_ || SSL_CTX_set_min_proto_version(tls_.get(), TLS1_2_VERSION) != 1 ||
        SSL_CTX_use_certificate_chain_file(tls_.get(), certificate.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(tls_.get(), key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(tls_.get()) != 1) {
        const char* why = ERR_reason_error_string(ERR_peek_last_error());
        error = why ? why : "unknown error";
        ERR_clear_error();
        tls_.reset();
        return false;
    }
    SSL_CTX_set_mode(tls_.get(), SSL_MODE_ENABLE_PARTIAL_WRITE);
    return true;
}

int collector_server::bind(const std::string& host, int port) {
    const int bound = port == 0 ? bind_to_any_port(host) : (bind_to_port(host, port) ? port : -1);
    // The server library listens with a backlog of five, too few for a burst
    // of new connections.
    if (bound > 0) ::listen(svr_sock_.load(), SOMAXCONN);
    return bound;
}

void collector_server::shut_down() {
    stopping_ = true;
    stop();
}

// A page of another site that a browser on this machine was made to send here
// (its name resolved to a loopback address: DNS rebinding) names its own host.
bool collector_server::for_this_host(const httplib::Request& req) const {
    if (settings_.hosts.empty() || !req.has_header("Host")) return true;
    std::string host = req.get_header_value("Host");
    const size_t colon = host.rfind(':');
    const size_t bracket = host.rfind(']');
    if (colon != std::string::npos && (bracket == std::string::npos || colon > bracket))
        host.erase(colon);
    std::transform(host.begin(), host.end(), host.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return std::find(settings_.hosts.begin(), settings_.hosts.end(), host) != settings_.hosts.end();
}

bool collector_server::process_and_close_socket(socket_t sock) {
    connection_stream stream(sock, tls_.get(), settings_.rules);
    connection_state state{&stream};
    current = &state;
    if (!stopping_ && stream.handshake()) {
        const auto idle = std::chrono::seconds(keep_alive_timeout_sec_);
        const auto others_wait = [this] { return pool_ && pool_->waiting() > 0; };
        for (size_t served = 0; served < keep_alive_max_count_; ++served) {
            // A new connection gets one timeout to send its request; an idle
            // one the keep-alive time, as long as no other connection waits.
            const bool ready = served == 0
                                   ? stream.wait_for_request(settings_.rules.timeout, nullptr)
                                   : stream.wait_for_request(idle, others_wait);
            if (!ready) break;
            const bool last =
                !settings_.keep_alive || stopping_ || served + 1 == keep_alive_max_count_;
            bool client_closes = false;
            const bool answered = process_request(stream, last, client_closes, nullptr);
            if (!answered || client_closes || last || state.close_after_answer) break;
        }
    }
    stream.finish(state.close_after_answer);
    current = nullptr;
    return true;
}
