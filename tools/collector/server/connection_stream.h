#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

// How long a client may take. A request, from its first byte to the last byte
// of its answer, gets `timeout` plus one second for every `min_rate` bytes it
// moves; no single wait for the client lasts longer than `timeout`. Once
// `stopping` is set, reads end at once and answers under way get `grace`.
struct connection_rules {
    std::chrono::milliseconds timeout{10000};
    size_t min_rate = 16 * 1024;
    std::chrono::milliseconds grace{1000};
    const std::atomic<bool>* stopping = nullptr;
};

// One client connection as the server library reads and writes it: a
// non-blocking socket, its TLS session when there is one, a read-ahead buffer,
// and the clock that bounds each request. Closes the socket when destroyed.
class connection_stream : public httplib::Stream {
public:
    connection_stream(socket_t sock, SSL_CTX* tls, const connection_rules& rules);
    ~connection_stream() override;
    connection_stream(const connection_stream&) = delete;
    connection_stream& operator=(const connection_stream&) = delete;

    // The TLS handshake, within one timeout; true at once without TLS.
    bool handshake();
    // Waits at most idle for the first byte of the next request, and starts
    // its clock. False when the client is gone or slow, when the service is
    // stopping, or when let_go() says so after the first moments.
    bool wait_for_request(std::chrono::milliseconds idle, const std::function<bool()>& let_go);
    bool timed_out() const { return timed_out_; }
    // Whether a read ended because the service is stopping.
    bool cut_short() const { return cut_short_; }
    // Ends TLS and, when asked, reads what the client still sends for a
    // moment, so that closing does not reset the connection before the
    // client has read the answer.
    void finish(bool linger);

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* ptr, size_t size) override;
    ssize_t write(const char* ptr, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return sock_; }

private:
    using clock = std::chrono::steady_clock;
    struct io {
        ssize_t bytes;   // > 0 moved, 0 end of stream, -1 failure or would block
        short wait_for;  // events to wait for when it would block, else 0
    };
    io receive(char* ptr, size_t size) const;
    io send(const char* ptr, size_t size) const;
    io tls_outcome(int result) const;
    bool wait(short events, bool answering) const;
    clock::time_point deadline() const;
    bool stopping() const { return rules_.stopping && rules_.stopping->load(); }

    socket_t sock_;
    connection_rules rules_;
    struct ssl_free {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };
    std::unique_ptr<SSL, ssl_free> ssl_;
    std::vector<char> buffer_;
    size_t buffer_begin_ = 0;
    size_t buffer_end_ = 0;
    clock::time_point request_start_;
    size_t moved_ = 0;
    mutable bool timed_out_ = false;
    mutable bool cut_short_ = false;
    bool broken_ = false;
    mutable clock::time_point stop_seen_{};
};
