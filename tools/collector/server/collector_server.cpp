#include "server/collector_server.h"

#include <openssl/err.h>
#include <sys/resource.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <cctype>
#include <thread>

#include "server/client_connection.h"
#include "server/json_answer.h"

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

namespace {

// Routes wait for the database and the disk: more threads than cores keep
// the cores busy, and uploads that wait together are written together.
std::size_t workers_for(std::size_t asked) {
    return asked ? asked : std::clamp<std::size_t>(8 * std::thread::hardware_concurrency(), 16, 64);
}

// Files that are not connections: the database's, uploads and downloads under
// way, the listening socket.
const std::size_t reserved_files = 64;

}  // namespace

collector_server::collector_server(const settings& settings)
    : settings_(settings), workers_(workers_for(settings.workers)) {
    for (std::string& proxy : settings_.trusted_proxies)
        proxy = address_text(asio::ip::make_address(proxy));
    // Other methods would have their body read before any route sees them.
    routes_.guard([this](const http_request& req, http_response& res) {
        if (!for_this_host(req))
            answer_failed(res, "unknown host", 421);
        else if (req.method != "GET" && req.method != "HEAD" && req.method != "POST")
            answer_failed(res, "method not allowed", 405);
        else
            return false;
        return true;
    });
}

collector_server::~collector_server() = default;

bool collector_server::use_tls(const std::string& certificate, const std::string& key,
                               std::string& error) {
    tls_.emplace(asio::ssl::context::tls_server);
    SSL_CTX* ctx = tls_->native_handle();
    if (SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION) != 1 ||
        SSL_CTX_use_certificate_chain_file(ctx, certificate.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(ctx, key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(ctx) != 1) {
        const char* why = ERR_reason_error_string(ERR_peek_last_error());
        error = why ? why : "unknown error";
        ERR_clear_error();
        tls_.reset();
        return false;
    }
    return true;
}

int collector_server::bind(const std::string& host, int port) {
    boost::system::error_code ec;
    tcp::resolver resolver(loop_);
    const auto found = resolver.resolve(host, std::to_string(port), tcp::resolver::passive, ec);
    for (const auto& entry : found) {
        acceptor_.close(ec);
        // SO_REUSEADDR and not SO_REUSEPORT, which would let a second
        // collector share a port that is in use instead of failing.
        if (acceptor_.open(entry.endpoint().protocol(), ec) ||
            acceptor_.set_option(tcp::acceptor::reuse_address(true), ec) ||
            acceptor_.bind(entry.endpoint(), ec) ||
            acceptor_.listen(asio::socket_base::max_listen_connections, ec))
            continue;
        accept();
        return acceptor_.local_endpoint().port();
    }
    acceptor_.close(ec);
    return -1;
}

void collector_server::run() {
    loop_.run();
    workers_.join();  // what observers still have to say
}

void collector_server::shut_down() {
    asio::post(loop_, [this] {
        stopping_ = true;
        boost::system::error_code ignored;
        acceptor_.close(ignored);
        accept_pause_.cancel();
        const std::vector<connection_base*> open(connections_.begin(), connections_.end());
        for (connection_base* connection : open) connection->stop();
    });
}

std::size_t collector_server::raise_open_files_limit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    if (limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        getrlimit(RLIMIT_NOFILE, &limit);
    }
    return limit.rlim_cur > reserved_files ? std::size_t(limit.rlim_cur - reserved_files) : 0;
}

bool collector_server::is_trusted_proxy(const std::string& address) const {
    return std::find(settings_.trusted_proxies.begin(), settings_.trusted_proxies.end(), address) !=
           settings_.trusted_proxies.end();
}

bool collector_server::count(const std::string& address) {
    if (++per_address_[address] <= settings_.rules.per_address) return true;
    uncount(address);
    return false;
}

void collector_server::uncount(const std::string& address) {
    const auto found = per_address_.find(address);
    if (found != per_address_.end() && --found->second == 0) per_address_.erase(found);
}

void collector_server::accept() {
    acceptor_.async_accept(loop_, [this](boost::system::error_code ec, tcp::socket socket) {
        if (!acceptor_.is_open()) return;
        if (ec) {
            // Out of files, most likely: the connections that end make room.
            accept_pause_.expires_after(std::chrono::milliseconds(50));
            accept_pause_.async_wait([this](boost::system::error_code ec) {
                if (!ec) accept();
            });
            return;
        }
        const auto peer = socket.remote_endpoint(ec);
        if (!ec) {
            const std::string address = address_text(peer.address());
            // A proxy's connections count for the clients it names.
            const bool counted = !is_trusted_proxy(address);
            if (!counted || count(address))
                serve_connection(*this, std::move(socket), address, counted);
        }
        accept();
    });
}

// A page of another site that a browser on this machine was made to send here
// (its name resolved to a loopback address: DNS rebinding) names its own host.
bool collector_server::for_this_host(const http_request& req) const {
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
