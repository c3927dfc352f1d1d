#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "server/connection_stream.h"

class worker_pool;

// The HTTP(S) server under the collector's routes, made to be left running:
// every connection is held to the deadlines of connection_rules and served by
// a pool of threads that grows as connections come; a connection idle between
// requests lets go of its thread when others wait for one. Only GET, HEAD and
// POST are served, other methods are refused before their body is read; every
// refusal that the routes leave without a body gets a JSON one, and a request
// that ran out of time is answered 408 when the client still listens.
class collector_server : public httplib::Server {
public:
    struct settings {
        connection_rules rules;  // its stopping flag is set to the server's own
        size_t threads = 64;
        bool keep_alive = true;
        // The names a request's Host header may give, without the port, in
        // lower case; empty: any.
        std::vector<std::string> hosts;
    };
    explicit collector_server(const settings& settings);
    ~collector_server() override;

    // HTTPS with a PEM certificate (chain) and key; false and why when they
    // cannot be used.
    bool use_tls(const std::string& certificate, const std::string& key, std::string& error);
    bool uses_tls() const { return tls_ != nullptr; }
    // Binds to host and port (0: a free one); returns the port, or -1.
    int bind(const std::string& host, int port);
    // Stops accepting and ends every connection: reading ones at once, answers
    // under way within the grace. listen_after_bind() returns once all are closed.
    void shut_down();

protected:
    // Serves one connection to its end; without listen() (the fuzz target
    // feeds a socket pair) no other connection ever waits.
    bool process_and_close_socket(socket_t sock) override;

private:
    bool for_this_host(const httplib::Request& req) const;

    settings settings_;
    std::atomic<bool> stopping_{false};
    struct ctx_free {
        void operator()(SSL_CTX* ctx) const { SSL_CTX_free(ctx); }
    };
    std::unique_ptr<SSL_CTX, ctx_free> tls_;
    worker_pool* pool_ = nullptr;  // owned by the server library while it listens
};
