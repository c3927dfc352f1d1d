#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "server/route_table.h"
#include "server/worker_threads.h"

class connection_base;

// How long a client may take and how many connections it may hold.
struct connection_rules {
    // A request, from its first byte to the last byte of its answer, gets
    // `timeout` plus one second for every `min_rate` bytes it moves; no
    // single wait for the client lasts longer than `timeout`.
    std::chrono::milliseconds timeout{10000};
    std::size_t min_rate = 16 * 1024;
    // How long a kept-alive connection waits for its next request.
    std::chrono::milliseconds idle{5000};
    // What answers under way get once the service is stopping.
    std::chrono::milliseconds grace{1000};
    bool keep_alive = true;
    std::size_t requests_per_connection = 1000;
    // Open connections from one client address (the forwarded one for
    // connections from a trusted proxy, while they carry a request).
    std::size_t per_address = 256;
};

// The HTTP(S) server under the collector's routes, made to be left running
// with many slow or idle clients: one thread moves the bytes of every
// connection (reading, writing, TLS, deadlines), so that a connection that is
// reading, idle or slow costs memory and no thread; worker threads, as many
// as the work needs up to what suits the machine, run the routes, which may
// wait for the database or the disk. Only GET, HEAD and POST are served,
// other methods are refused before their body is read; every refusal gets a
// JSON body, and a request that ran out of time is answered 408 when the
// client still listens.
class collector_server {
public:
    struct settings {
        connection_rules rules;
        // The names a request's Host header may give, without the port, in
        // lower case; empty: any.
        std::vector<std::string> hosts;
        // Addresses of proxies whose X-Forwarded-For names the client.
        std::vector<std::string> trusted_proxies;
        std::size_t workers = 0;  // at most; 0: sized to the machine
    };
    explicit collector_server(const settings& settings);
    ~collector_server();

    // Where the routes, guards and observers go, before run().
    route_table& routes() { return routes_; }
    // HTTPS with a PEM certificate (chain) and key; false and why when they
    // cannot be used.
    bool use_tls(const std::string& certificate, const std::string& key, std::string& error);
    bool uses_tls() const { return tls_.has_value(); }
    // Binds to host and port (0: a free one) and listens; returns the port, or -1.
    int bind(const std::string& host, int port);
    // Serves until shut_down() and every connection has closed.
    void run();
    // From any thread: stops accepting, ends the reading of every request at
    // once (503 where the client listens) and gives answers under way the
    // grace to go out; idle connections close.
    void shut_down();

    // The soft limit of open files raised to the hard one; returns how many
    // connections it leaves room for.
    static std::size_t raise_open_files_limit();

    // For the connections, on the loop thread.
    const settings& configuration() const { return settings_; }
    boost::asio::io_context& loop() { return loop_; }
    worker_threads& workers() { return workers_; }
    std::optional<boost::asio::ssl::context>& tls() { return tls_; }
    bool stopping() const { return stopping_; }
    bool is_trusted_proxy(const std::string& address) const;
    // Counts a connection from address; false when that is one too many.
    bool count(const std::string& address);
    void uncount(const std::string& address);
    void opened(connection_base* connection) { connections_.insert(connection); }
    void closed(connection_base* connection) { connections_.erase(connection); }

private:
    void accept();
    bool for_this_host(const http_request& req) const;

    settings settings_;
    route_table routes_;
    boost::asio::io_context loop_{1};
    worker_threads workers_;
    std::optional<boost::asio::ssl::context> tls_;
    boost::asio::ip::tcp::acceptor acceptor_{loop_};
    boost::asio::steady_timer accept_pause_{loop_};
    bool stopping_ = false;
    std::map<std::string, std::size_t> per_address_;
    std::set<connection_base*> connections_;
};
