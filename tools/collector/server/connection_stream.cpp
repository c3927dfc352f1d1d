#include "server/connection_stream.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

using std::chrono::milliseconds;

const size_t buffer_size = 64 * 1024;
// Waits are cut into slices so that a stopping service is noticed.
const milliseconds slice(100);

int poll_slice(socket_t sock, short events, std::chrono::steady_clock::duration left) {
    pollfd fd{sock, events, 0};
    const auto ms = std::chrono::duration_cast<milliseconds>(left) + milliseconds(1);
    return ::poll(&fd, 1, int(std::min(ms, slice).count()));
}

// The events to wait for after a failed call, or 0 when waiting would not help.
short would_block(short events) {
    return errno == EAGAIN || errno == EWOULDBLOCK ? events : 0;
}

void address_text(int (*get)(int, sockaddr*, socklen_t*), socket_t sock, std::string& ip,
                  int& port) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    char host[NI_MAXHOST] = "";
    char service[NI_MAXSERV] = "";
    if (get(sock, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
        getnameinfo(reinterpret_cast<sockaddr*>(&address), length, host, sizeof host, service,
                    sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) == 0) {
        ip = host;
        port = std::atoi(service);
    }
}

}  // namespace

connection_stream::connection_stream(socket_t sock, SSL_CTX* tls, const connection_rules& rules)
    : sock_(sock), rules_(rules), buffer_(buffer_size), request_start_(clock::now()) {
    fcntl(sock_, F_SETFL, fcntl(sock_, F_GETFL) | O_NONBLOCK);
    // An answer goes out when it is written, not when the client acknowledges
    // the packet before it: keep-alive clients would wait for that each time.
    const int yes = 1;
    setsockopt(sock_, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (tls) {
        ssl_.reset(SSL_new(tls));
        broken_ = !ssl_ || SSL_set_fd(ssl_.get(), sock_) != 1;
    }
}

connection_stream::~connection_stream() {
    ssl_.reset();
    ::close(sock_);
}

bool connection_stream::handshake() {
    if (!ssl_ || broken_) return !broken_;
    request_start_ = clock::now();
    for (;;) {
        ERR_clear_error();
        const io step = tls_outcome(SSL_accept(ssl_.get()));
        if (step.bytes > 0) return true;
        if (!step.wait_for || !wait(step.wait_for, false)) {
            broken_ = true;
            return false;
        }
    }
}

bool connection_stream::wait_for_request(milliseconds idle, const std::function<bool()>& let_go) {
    if (broken_ || timed_out_ || cut_short_) return false;
    if (buffer_begin_ == buffer_end_ && !(ssl_ && SSL_pending(ssl_.get()) > 0)) {
        const auto until = clock::now() + idle;
        for (bool first = true;; first = false) {
            const auto now = clock::now();
            if (stopping() || now >= until || (!first && let_go && let_go())) return false;
            const int ready = poll_slice(sock_, POLLIN, until - now);
            if (ready > 0) break;
            if (ready < 0 && errno != EINTR) return false;
        }
    }
    request_start_ = clock::now();
    moved_ = 0;
    return true;
}

void connection_stream::finish(bool linger) {
    if (broken_) return;
    if (ssl_) {
        ERR_clear_error();
        SSL_shutdown(ssl_.get());  // says goodbye; the client's own goodbye is not awaited
    }
    if (!linger) return;
    ::shutdown(sock_, SHUT_WR);
    const auto until = clock::now() + std::min(rules_.grace, rules_.timeout);
    char scratch[16 * 1024];
    for (auto now = clock::now(); now < until && !stopping(); now = clock::now()) {
        if (poll_slice(sock_, POLLIN, until - now) < 0 && errno != EINTR) return;
        const ssize_t n = ::recv(sock_, scratch, sizeof scratch, 0);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) return;
    }
}

bool connection_stream::is_readable() const {
    return buffer_begin_ < buffer_end_ || (ssl_ && SSL_pending(ssl_.get()) > 0) ||
           (!broken_ && wait(POLLIN, false));
}

bool connection_stream::is_writable() const {
    return !broken_ && wait(POLLOUT, true);
}

ssize_t connection_stream::read(char* ptr, size_t size) {
    if (buffer_begin_ == buffer_end_) {
        for (;;) {
            const io got = receive(buffer_.data(), buffer_.size());
            if (got.bytes > 0) {
                // Acknowledged at once: a client that writes a request's head and
                // body apart (Nagle's algorithm on) would otherwise wait for the
                // delayed acknowledgement, 40 ms per request on a kept-alive
                // connection. The flag does not stick, so it is set after each read.
                const int yes = 1;
                setsockopt(sock_, IPPROTO_TCP, TCP_QUICKACK, &yes, sizeof yes);
                buffer_begin_ = 0;
                buffer_end_ = size_t(got.bytes);
                moved_ += size_t(got.bytes);
                break;
            }
            if (got.bytes == 0 || !got.wait_for) {
                broken_ = true;
                return got.bytes;
            }
            // After a time-out or a stop the connection still carries the answer that says so.
            if (!wait(got.wait_for, false)) {
                broken_ = !timed_out_ && !cut_short_;
                return -1;
            }
        }
    }
    const size_t n = std::min(size, buffer_end_ - buffer_begin_);
    std::memcpy(ptr, buffer_.data() + buffer_begin_, n);
    buffer_begin_ += n;
    return ssize_t(n);
}

// Writes everything or fails: the server library does not retry short writes.
ssize_t connection_stream::write(const char* ptr, size_t size) {
    size_t done = 0;
    while (done < size && !broken_) {
        const io sent = send(ptr + done, size - done);
        if (sent.bytes > 0) {
            done += size_t(sent.bytes);
            moved_ += size_t(sent.bytes);
        } else if (!sent.wait_for || !wait(sent.wait_for, true)) {
            broken_ = true;
        }
    }
    return broken_ ? -1 : ssize_t(size);
}

void connection_stream::get_remote_ip_and_port(std::string& ip, int& port) const {
    address_text(getpeername, sock_, ip, port);
}

void connection_stream::get_local_ip_and_port(std::string& ip, int& port) const {
    address_text(getsockname, sock_, ip, port);
}

connection_stream::io connection_stream::receive(char* ptr, size_t size) const {
    if (ssl_) {
        ERR_clear_error();
        return tls_outcome(SSL_read(ssl_.get(), ptr, int(std::min<size_t>(size, INT_MAX))));
    }
    for (;;) {
        const ssize_t n = ::recv(sock_, ptr, size, 0);
        if (n >= 0) return {n, 0};
        if (errno != EINTR) return {-1, would_block(POLLIN)};
    }
}

connection_stream::io connection_stream::send(const char* ptr, size_t size) const {
    if (ssl_) {
        ERR_clear_error();
        return tls_outcome(SSL_write(ssl_.get(), ptr, int(std::min<size_t>(size, INT_MAX))));
    }
    for (;;) {
        const ssize_t n = ::send(sock_, ptr, size, MSG_NOSIGNAL);
        if (n >= 0) return {n, 0};
        if (errno != EINTR) return {-1, would_block(POLLOUT)};
    }
}

// What a TLS call's result means: bytes moved, the end of the stream, what
// to wait for, or failure.
connection_stream::io connection_stream::tls_outcome(int result) const {
    if (result > 0) return {result, 0};
    switch (SSL_get_error(ssl_.get(), result)) {
        case SSL_ERROR_WANT_READ:
            return {-1, POLLIN};
        case SSL_ERROR_WANT_WRITE:
            return {-1, POLLOUT};
        case SSL_ERROR_ZERO_RETURN:
            return {0, 0};
        default:
            return {-1, 0};
    }
}

// Waits for the socket within the request's deadline and one timeout.
bool connection_stream::wait(short events, bool answering) const {
    const auto started = clock::now();
    for (;;) {
        const auto now = clock::now();
        if (stopping()) {
            cut_short_ = cut_short_ || !answering;
            if (!answering) return false;
            if (stop_seen_ == clock::time_point{}) stop_seen_ = now;
            if (now - stop_seen_ >= rules_.grace) return false;
        }
        const auto limit = std::min(started + rules_.timeout, deadline());
        if (now >= limit) {
            timed_out_ = true;
            return false;
        }
        const int ready = poll_slice(sock_, events, limit - now);
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
}

connection_stream::clock::time_point connection_stream::deadline() const {
    return request_start_ + rules_.timeout + milliseconds(moved_ * 1000 / rules_.min_rate);
}
