#include "server/client_connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <QString>
#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_range.hpp>
#include <boost/beast/core/flat_buffer.hpp>
// GCC 12 takes the empty boost::optional that Beast's parser returns for "no
// Content-Length" for an uninitialised one, where the sanitizers' code is inlined.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <boost/beast/http/parser.hpp>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
#include <limits>
#include <optional>
#include <tuple>
#include <type_traits>

#include "server/answer_head.h"
#include "server/collector_server.h"
#include "server/content_decoding.h"
#include "server/json_answer.h"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;
using clock_type = std::chrono::steady_clock;
using tls_stream = asio::ssl::stream<tcp::socket>;

const std::uint32_t header_limit = 16 * 1024;
const std::size_t target_limit = 8 * 1024;
// Reads start small, so that a slow or idle connection holds little, and
// grow while the client keeps them full; pieces of an answer are no larger.
const std::size_t first_read = 2 * 1024;
const std::size_t piece_size = 64 * 1024;

// A body as the parser hands it on: what one call of put() parsed.
struct piece_body {
    using value_type = std::string;
    struct reader {
        template <bool is_request, class Fields>
        reader(http::header<is_request, Fields>&, value_type& body) : body_(body) {}
        void init(const boost::optional<std::uint64_t>&, beast::error_code& ec) { ec = {}; }
        template <class Buffers>
        std::size_t put(const Buffers& buffers, beast::error_code& ec) {
            const std::size_t before = body_.size();
            for (const auto buffer : beast::buffers_range_ref(buffers))
                body_.append(static_cast<const char*>(buffer.data()), buffer.size());
            ec = {};
            return body_.size() - before;
        }
        void finish(beast::error_code& ec) { ec = {}; }
        value_type& body_;
    };
};

template <class Stream>
class client_connection : public connection_base,
                          public std::enable_shared_from_this<client_connection<Stream>> {
public:
    client_connection(collector_server& server, tcp::socket socket, const std::string& address,
                      bool counted)
        : server_(server),
          rules_(server.configuration().rules),
          stream_(make_stream(server, std::move(socket))),
          timer_(server.loop()),
          address_(address),
          counted_(counted) {}

    void start() {
        server_.opened(this);
        const int yes = 1;
        // An answer goes out when it is written, not when the client
        // acknowledges the packet before it.
        setsockopt(socket().native_handle(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        if constexpr (std::is_same_v<Stream, tls_stream>) {
            // Asio has OpenSSL give a session's buffers back whenever they are
            // empty: a body or an answer would take and give back 17 KiB a record.
            SSL_clear_mode(stream_.native_handle(), SSL_MODE_RELEASE_BUFFERS);
            expect_client(clock_type::now() + rules_.timeout);
            stream_.async_handshake(asio::ssl::stream_base::server,
                                    [self = this->shared_from_this()](beast::error_code ec) {
                                        self->client_answered();
                                        if (ec || self->server_.stopping()) return self->close();
                                        self->next_request(self->rules_.timeout);
                                    });
        } else {
            next_request(rules_.timeout);
        }
    }

    void stop() override {
        stop_at_ = clock_type::now();
        switch (phase_) {
            case phase::idle:
            case phase::reading:
            case phase::closing:
                cancel();
                break;
            case phase::answering:
                if (waiting_) expect_client(std::min(timer_.expiry(), stop_at_ + rules_.grace));
                break;
            default:
                break;  // a worker has the request: what comes next looks
        }
    }

private:
    enum class phase { idle, reading, working, answering, closing, closed };

    static Stream make_stream(collector_server& server, tcp::socket socket) {
        if constexpr (std::is_same_v<Stream, tls_stream>)
            return Stream(std::move(socket), *server.tls());
        else
            return socket;
    }
    tcp::socket& socket() {
        if constexpr (std::is_same_v<Stream, tls_stream>)
            return stream_.next_layer();
        else
            return stream_;
    }

    // Waits for the client until limit at most; on_time_up() cuts the wait.
    void expect_client(clock_type::time_point limit) {
        waiting_ = true;
        timed_out_ = false;
        timer_.expires_at(limit);
        timer_.async_wait([self = this->shared_from_this()](beast::error_code ec) {
            if (!ec) self->on_time_up();
        });
    }
    void client_answered() {
        waiting_ = false;
        timer_.cancel();
    }
    void on_time_up() {
        if (!waiting_ || timer_.expiry() > clock_type::now()) return;  // an earlier wait's
        timed_out_ = true;
        cancel();
    }
    void cancel() {
        beast::error_code ignored;
        socket().cancel(ignored);
    }

    // The request's deadline grows with every byte it moves.
    clock_type::time_point deadline() const {
        return started_ + rules_.timeout +
               std::chrono::milliseconds(moved_ * 1000 / std::max<std::size_t>(rules_.min_rate, 1));
    }
    clock_type::time_point reading_limit() const {
        return std::min(clock_type::now() + rules_.timeout, deadline());
    }
    // An answer gets at least a moment, also when it says that time ran out,
    // and no more than the grace once the service stops.
    clock_type::time_point answer_limit() const {
        const auto now = clock_type::now();
        const auto limit = std::max(reading_limit(), now + std::min(rules_.grace, rules_.timeout));
        return server_.stopping() ? std::min(limit, stop_at_ + rules_.grace) : limit;
    }

    // Runs work on a worker thread, then next on the loop; the loop keeps
    // running until next has.
    template <class Work, class Next>
    void on_worker(Work work, Next next) {
        phase_ = phase::working;
        server_.workers().post([self = this->shared_from_this(), work = std::move(work),
                                next = std::move(next),
                                hold = asio::make_work_guard(server_.loop())]() mutable {
            try {
                work();
            } catch (const std::exception& e) {
                self->receiver_.reset();
                self->res_ = http_response();
                answer_failed(self->res_, QString("could not answer: ") + e.what(), 500);
                self->res_.close_connection = true;
                self->failed_ = true;
            }
            asio::post(self->server_.loop(), [self, next = std::move(next)]() mutable {
                if (!self->failed_) return next();
                // Half an answer cannot be taken back.
                if (self->phase_ == phase::answering || self->answer_started_) return self->close();
                self->write_answer();
            });
        });
    }

    void next_request(std::chrono::milliseconds wait) {
        phase_ = phase::idle;
        req_ = http_request();
        res_ = http_response();
        receiver_.reset();
        head_read_ = false;
        failed_ = false;
        answer_started_ = false;
        std::string().swap(out_);
        parser_.emplace();
        parser_->header_limit(header_limit);
        // The routes set their own. (Boost 1.74 takes boost::none for no limit at all.)
        parser_->body_limit(std::numeric_limits<std::uint64_t>::max());
        room_ = first_read;
        if (buffer_.size() > 0) {  // the next request came with the last one
            begin_request();
            return parse_head();
        }
        buffer_.shrink_to_fit();
        read(clock_type::now() + wait);
    }

    void begin_request() {
        phase_ = phase::reading;
        started_ = clock_type::now();
        moved_ = 0;
    }

    void read(clock_type::time_point limit) {
        expect_client(limit);
        stream_.async_read_some(buffer_.prepare(room_),
                                [self = this->shared_from_this()](
                                    beast::error_code ec, std::size_t n) { self->on_read(ec, n); });
    }

    void on_read(beast::error_code ec, std::size_t n) {
        client_answered();
        buffer_.commit(n);
        if (n > 0) {
            // Acknowledged at once: a client that writes a request's head and
            // body apart would otherwise wait for the delayed acknowledgement.
            const int yes = 1;
            setsockopt(socket().native_handle(), IPPROTO_TCP, TCP_QUICKACK, &yes, sizeof yes);
            if (phase_ == phase::idle) begin_request();
            moved_ += n;
            if (n == room_) room_ = std::min(room_ * 2, piece_size);
        }
        if (timed_out_ || server_.stopping()) {
            if (phase_ != phase::reading) return close();
            return refuse(timed_out_ ? 408 : 503);
        }
        if (ec) {
            // The client said all it will say, and may still listen.
            const bool said_all =
                ec == asio::error::eof || ec == asio::ssl::error::stream_truncated;
            if (head_read_ && n == 0 && said_all)
                return on_worker([this] { finish_body(false); }, [this] { write_answer(); });
            return close();
        }
        if (head_read_) return take_body();
        parse_head();
    }

    // The head is read on the loop, until it is whole.
    void parse_head() {
        for (;;) {
            beast::error_code ec = http::error::need_more;
            buffer_.consume(buffer_.size() > 0 ? parser_->put(buffer_.data(), ec) : 0);
            if (parser_->is_header_done()) return head();
            if (ec == http::error::need_more) return read(reading_limit());
            if (ec == http::error::header_limit)
                return refuse(head_line_length() > target_limit ? 414 : 431);
            if (ec) return refuse(400);
        }
    }

    // On a worker: hands the receiver what the buffer holds of the body and,
    // once the body has ended, has it answer. True when the answer is ready,
    // false when more of the body must be read.
    bool feed() {
        for (;;) {
            if (parser_->is_done()) return finish_body(true), true;
            beast::error_code ec = http::error::need_more;
            // A body's parser takes nothing, and says nothing, from no bytes.
            const std::size_t used = buffer_.size() > 0 ? parser_->put(buffer_.data(), ec) : 0;
            buffer_.consume(used);
            std::string& piece = parser_->get().body();
            if (!piece.empty()) {
                const bool taken = receiver_->take(piece.data(), piece.size(), res_);
                piece.clear();  // its memory takes the next piece
                if (!taken) return receiver_.reset(), true;
            }
            if (ec == http::error::need_more || (!ec && used == 0)) return false;
            if (ec) return finish_body(false), true;
        }
    }

    void finish_body(bool complete) {
        receiver_->finish(req_, complete, res_);
        receiver_.reset();
    }

    // What has come of the body goes to the receiver; then the answer, or more.
    void take_body() {
        on_worker([this] { answer_ready_ = feed(); }, [this] { after_taking(); });
    }

    void after_taking() {
        if (answer_ready_) return write_answer();
        if (server_.stopping()) return refuse(503);
        phase_ = phase::reading;
        read(reading_limit());
    }

    // How long the request line is, as far as it has come.
    std::size_t head_line_length() const {
        const auto data = static_cast<const char*>(buffer_.data().data());
        const std::string_view text(data, buffer_.size());
        const std::size_t end = text.find("\r\n");
        return end == std::string_view::npos ? text.size() : end;
    }

    void head() {
        head_read_ = true;
        const auto& head = parser_->get();
        req_.method = std::string(head.method_string());
        req_.version = head.version();
        for (const auto& field : head)
            req_.headers.add(std::string(field.name_string()), std::string(field.value()));
        if (head.target().size() > target_limit) return refuse(414);
        if (!req_.set_target(std::string(head.target()))) return refuse(400);
        req_.remote_address = address_;
        if (!counted_ && req_.has_header("X-Forwarded-For")) {  // from a trusted proxy
            req_.remote_address = forwarded_client();
            if (!server_.count(req_.remote_address))
                return refuse(429, "too many connections from " +
                                       QString::fromStdString(req_.remote_address));
            forwarded_ = req_.remote_address;
        }
        parser_->eager(true);
        // The client may wait for a word before it sends the body.
        const bool waits = !parser_->is_done() && asks_to_continue();
        on_worker(
            [this, waits] {
                receiver_ = server_.routes().begin(req_, res_);
                receiver_ =
                    decoding(std::move(receiver_), req_.get_header_value("Content-Encoding"), res_);
                // What came with the head is taken at once.
                answer_ready_ = !receiver_ || (!waits && feed());
            },
            [this, waits] {
                if (!waits) return after_taking();
                if (answer_ready_) return write_answer();
                if (server_.stopping()) return refuse(503);
                out_ = "HTTP/1.1 100 Continue\r\n\r\n";
                write_out([this] { take_body(); });
            });
    }

    bool asks_to_continue() const {
        const std::string expect = req_.get_header_value("Expect");
        return req_.version >= 11 && expect.size() == 12 &&
               QString::fromStdString(expect).compare("100-continue", Qt::CaseInsensitive) == 0;
    }

    // The last address in X-Forwarded-For that is not a trusted proxy's.
    std::string forwarded_client() const {
        const QStringList hops =
            QString::fromStdString(req_.get_header_value("X-Forwarded-For")).split(',');
        QString client;
        for (auto hop = hops.rbegin(); hop != hops.rend(); ++hop) {
            client = hop->trimmed().left(64);
            if (!server_.is_trusted_proxy(client.toStdString())) break;
        }
        return client.isEmpty() ? address_ : client.toStdString();
    }

    void refuse(int status, const QString& why = QString()) {
        receiver_.reset();
        res_ = http_response();
        answer_failed(res_, why.isEmpty() ? refusal_reason(status) : why, status);
        res_.close_connection = true;
        write_answer();
    }

    void write_answer() {
        phase_ = phase::answering;
        answer_started_ = true;
        std::tie(out_at_, out_end_) = shape_answer(req_, res_);
        keep_alive_ = !res_.close_connection && rules_.keep_alive && parser_ &&
                      parser_->is_done() && parser_->keep_alive() && !server_.stopping() &&
                      served_ + 1 < rules_.requests_per_connection;
        out_ = answer_head(res_, out_end_ - out_at_, keep_alive_, req_.version);
        if (req_.method == "HEAD") out_end_ = out_at_;
        if (!res_.reader) {
            const auto first = std::min<std::uint64_t>(out_end_ - out_at_, piece_size);
            out_.append(res_.body, out_at_, first);
            out_at_ += first;
        }
        write_out([this] { send_rest(); });
    }

    // The rest of the answer's body, a piece at a time; files are read on a worker.
    void send_rest() {
        const std::uint64_t left = out_end_ - out_at_;
        if (left == 0) return answered();
        const std::size_t most = std::size_t(std::min<std::uint64_t>(left, piece_size));
        if (!res_.reader) {
            out_.assign(res_.body, out_at_, most);
            out_at_ += most;
            return write_out([this] { send_rest(); });
        }
        out_.resize(most);
        on_worker([this, most] { out_.resize(res_.reader(out_at_, &out_[0], most)); },
                  [this] {
                      phase_ = phase::answering;
                      if (out_.empty() || out_.size() > out_end_ - out_at_) return close();
                      out_at_ += out_.size();
                      write_out([this] { send_rest(); });
                  });
    }

    template <class Next>
    void write_out(Next next) {
        expect_client(answer_limit());
        asio::async_write(stream_, asio::buffer(out_),
                          [self = this->shared_from_this(), next = std::move(next)](
                              beast::error_code ec, std::size_t n) mutable {
                              self->client_answered();
                              self->moved_ += n;
                              if (ec || self->timed_out_) return self->close();
                              next();
                          });
    }

    void answered() {
        ++served_;
        if (!forwarded_.empty()) server_.uncount(forwarded_);
        forwarded_.clear();
        const bool linger = res_.close_connection;
        server_.workers().post([server = &server_, req = std::move(req_), res = std::move(res_)] {
            server->routes().answered(req, res);
        });
        if (keep_alive_) return next_request(rules_.idle);
        end(linger);
    }

    // Ends the connection after its last answer. After a refusal the client
    // may still be sending: what it sends is read and dropped for a moment,
    // so that closing does not reset the connection before the answer is read.
    void end(bool linger) {
        phase_ = phase::closing;
        if (server_.stopping()) return close();
        expect_client(clock_type::now() + std::min(rules_.grace, rules_.timeout));
        if constexpr (std::is_same_v<Stream, tls_stream>) {
            stream_.async_shutdown([self = this->shared_from_this()](beast::error_code) {
                self->client_answered();
                self->close();
            });
        } else if (linger) {
            beast::error_code ignored;
            socket().shutdown(tcp::socket::shutdown_send, ignored);
            drain();
        } else {
            close();
        }
    }

    void drain() {
        buffer_.clear();
        stream_.async_read_some(
            buffer_.prepare(piece_size),
            [self = this->shared_from_this()](beast::error_code ec, std::size_t) {
                if (ec || self->timed_out_ || self->server_.stopping()) return self->close();
                self->drain();
            });
    }

    void close() {
        if (phase_ == phase::closed) return;
        phase_ = phase::closed;
        client_answered();
        beast::error_code ignored;
        socket().close(ignored);
        if (counted_) server_.uncount(address_);
        if (!forwarded_.empty()) server_.uncount(forwarded_);
        forwarded_.clear();
        server_.closed(this);
    }

    collector_server& server_;
    const connection_rules& rules_;
    Stream stream_;
    asio::steady_timer timer_;
    const std::string address_;
    const bool counted_;
    std::string forwarded_;  // counted while a request from it is under way

    phase phase_ = phase::idle;
    bool waiting_ = false;
    bool timed_out_ = false;
    clock_type::time_point stop_at_;
    clock_type::time_point started_;
    std::size_t moved_ = 0;
    std::size_t served_ = 0;

    beast::flat_buffer buffer_;
    std::size_t room_ = first_read;
    std::optional<http::request_parser<piece_body>> parser_;
    bool head_read_ = false;
    http_request req_;
    http_response res_;
    std::unique_ptr<body_receiver> receiver_;
    bool answer_ready_ = false;
    bool failed_ = false;  // a route threw
    bool answer_started_ = false;
    bool keep_alive_ = false;
    std::string out_;
    std::uint64_t out_at_ = 0;
    std::uint64_t out_end_ = 0;
};

}  // namespace

void serve_connection(collector_server& server, tcp::socket socket, const std::string& address,
                      bool counted) {
    if (server.tls())
        std::make_shared<client_connection<tls_stream>>(server, std::move(socket), address, counted)
            ->start();
    else
        std::make_shared<client_connection<tcp::socket>>(server, std::move(socket), address,
                                                         counted)
            ->start();
}

std::string address_text(const asio::ip::address& address) {
    if (address.is_v6() && address.to_v6().is_v4_mapped())
        return address.to_v6().to_v4().to_string();
    return address.to_string();
}
