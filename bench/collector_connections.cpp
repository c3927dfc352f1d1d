// How information_collector serves uploads while thousands of other clients
// hold connections, run by hand: N clients that send a request's header lines
// slowly (one every 2 s, reconnecting when cut off) and M clients that keep
// an idle kept-alive connection (after one request), from other loopback
// addresses (127.0.0.2 and on, at most 250 from each, as from many machines),
// while uploads of about 1 KB go from 127.0.0.1, K in flight on kept-alive
// connections, for S seconds. Prints the uploads' median and 99th-percentile
// times, the connections held, and the collector's threads and resident memory.
//
//   collector_connections [--slow N] [--idle M] [--in-flight K] [--seconds S]
//                         [--collector PATH]
//
// N and M are 5000 unless told, K is 4, S is 20. PATH is another
// information_collector to measure, an older one for instance. The
// collector's database lies in a new folder under the current one.
#include <sys/resource.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "collector_process.h"

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;
using clock_type = std::chrono::steady_clock;

const char* const app_id = "3c1f9a7e55d04b28a6e2f0b9d4c87a13";
const int per_address = 250;

struct counters {
    std::atomic<int> slow_open{0}, idle_open{0}, slow_cut{0}, idle_closed{0}, failed_connects{0};
};

// The n-th client's own loopback address after 127.0.0.1.
asio::ip::address_v4 address_of(int n) {
    return asio::ip::address_v4(0x7f000002u + unsigned(n / per_address));
}

// Keeps one connection from its address: slow clients drip header lines,
// idle ones ask once and then wait; both connect again when the collector
// closes the connection.
class holder : public std::enable_shared_from_this<holder> {
public:
    holder(asio::io_context& io, tcp::endpoint server, asio::ip::address_v4 from, bool slow,
           counters& count)
        : socket_(io), timer_(io), server_(server), from_(from), slow_(slow), count_(count) {}

    void connect() {
        boost::system::error_code ec;
        socket_ = tcp::socket(socket_.get_executor());
        socket_.open(tcp::v4(), ec);
        socket_.bind(tcp::endpoint(from_, 0), ec);
        socket_.async_connect(server_, [self = shared_from_this()](boost::system::error_code ec) {
            if (ec) {
                ++self->count_.failed_connects;
                return self->again(std::chrono::milliseconds(500));
            }
            ++(self->slow_ ? self->count_.slow_open : self->count_.idle_open);
            self->open_ = true;
            self->send(self->slow_ ? "POST /dtta?type=usage HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                   : "GET /dashboard/dashboard.css HTTP/1.1\r\nHost: "
                                     "127.0.0.1\r\n\r\n");
            self->listen();
            if (self->slow_) self->drip();
        });
    }

private:
    void send(const std::string& text) {
        auto out = std::make_shared<std::string>(text);
        asio::async_write(socket_, asio::buffer(*out),
                          [out](boost::system::error_code, std::size_t) {});
    }
    void drip() {
        timer_.expires_after(std::chrono::seconds(2));
        timer_.async_wait([self = shared_from_this()](boost::system::error_code ec) {
            if (ec || !self->open_) return;
            self->send("X-Slow: 1\r\n");
            self->drip();
        });
    }
    // Reads what comes (the idle client's one answer, a 408) until the collector closes.
    void listen() {
        socket_.async_read_some(
            asio::buffer(scratch_),
            [self = shared_from_this()](boost::system::error_code ec, std::size_t) {
                if (!ec) return self->listen();
                self->open_ = false;
                --(self->slow_ ? self->count_.slow_open : self->count_.idle_open);
                ++(self->slow_ ? self->count_.slow_cut : self->count_.idle_closed);
                self->timer_.cancel();
                self->again(std::chrono::milliseconds(10));
            });
    }
    void again(std::chrono::milliseconds after) {
        boost::system::error_code ignored;
        socket_.close(ignored);
        timer_.expires_after(after);
        timer_.async_wait([self = shared_from_this()](boost::system::error_code ec) {
            if (!ec) self->connect();
        });
    }

    tcp::socket socket_;
    asio::steady_timer timer_;
    tcp::endpoint server_;
    asio::ip::address_v4 from_;
    bool slow_;
    counters& count_;
    bool open_ = false;
    char scratch_[4096];
};

// Uploads over one kept-alive connection from 127.0.0.1 until told to stop,
// each timed from its first byte out to the last byte of its answer.
class uploader : public std::enable_shared_from_this<uploader> {
public:
    uploader(asio::io_context& io, tcp::endpoint server, const std::atomic<bool>& stop,
             std::vector<double>& times, std::atomic<int>& failed, std::mutex& lock)
        : socket_(io), server_(server), stop_(stop), times_(times), failed_(failed), lock_(lock) {
        request_.method(http::verb::post);
        request_.target("/dtta?type=usage");
        request_.set(http::field::host, "127.0.0.1");
        request_.set("X-Auth-AppID", app_id);
        request_.set(http::field::content_type, "application/json");
        request_.body() = "{\"record\":\"" + std::string(1000, 'r') + "\"}";
        request_.prepare_payload();
    }

    // How long the upload under way has waited for its answer, if one is.
    double waiting_ms() const {
        return busy_
                   ? std::chrono::duration<double, std::milli>(clock_type::now() - started_).count()
                   : 0;
    }

    void start() {
        socket_ = tcp::socket(socket_.get_executor());
        socket_.async_connect(server_, [self = shared_from_this()](boost::system::error_code ec) {
            if (ec) return self->fail();
            self->next();
        });
    }

private:
    void next() {
        if (stop_) return;
        busy_ = true;
        started_ = clock_type::now();
        http::async_write(socket_, request_,
                          [self = shared_from_this()](boost::system::error_code ec, std::size_t) {
                              if (ec) return self->fail();
                              self->answer_ = {};
                              http::async_read(self->socket_, self->buffer_, self->answer_,
                                               [self](boost::system::error_code ec, std::size_t) {
                                                   self->answered(ec);
                                               });
                          });
    }
    void answered(boost::system::error_code ec) {
        busy_ = false;
        if (ec || answer_.result_int() != 200 || answer_.body() != R"({"status":"success"})")
            return fail();
        {
            std::lock_guard<std::mutex> hold(lock_);
            times_.push_back(
                std::chrono::duration<double, std::milli>(clock_type::now() - started_).count());
        }
        if (!answer_.keep_alive()) return start();
        next();
    }
    void fail() {
        busy_ = false;
        ++failed_;
        boost::system::error_code ignored;
        socket_.close(ignored);
        if (!stop_) start();
    }

    tcp::socket socket_;
    tcp::endpoint server_;
    const std::atomic<bool>& stop_;
    std::vector<double>& times_;
    std::atomic<int>& failed_;
    std::mutex& lock_;
    http::request<http::string_body> request_;
    http::response<http::string_body> answer_;
    boost::beast::flat_buffer buffer_;
    clock_type::time_point started_;
    bool busy_ = false;
};

// The collector's arguments: a database in folder, and idle connections
// kept for the whole run where the collector lets them.
QStringList arguments_in(const QString& program, const QString& folder) {
    QProcess help;
    help.start(program, {"--help"});
    help.waitForFinished(10000);
    QStringList arguments{"--database", folder + "/collector.sqlite", "--upload-dir",
                          folder + "/uploads"};
    if (help.readAllStandardOutput().contains("--idle-timeout"))
        arguments << "--idle-timeout"
                  << "600";
    return arguments;
}

int option(const QStringList& arguments, const char* name, int fallback) {
    const int at = arguments.indexOf(name);
    return at > 0 && at + 1 < arguments.size() ? arguments[at + 1].toInt() : fallback;
}

double percentile(std::vector<double> values, double p) {
    if (values.empty()) return -1;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, std::size_t(p * double(values.size())))];
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int slow = option(arguments, "--slow", 5000);
    const int idle = option(arguments, "--idle", 5000);
    const int in_flight = option(arguments, "--in-flight", 4);
    const int seconds = option(arguments, "--seconds", 20);
    const int at = arguments.indexOf("--collector");
    const QString program =
        at > 0 && at + 1 < arguments.size() ? arguments[at + 1] : INFORMATION_COLLECTOR_PATH;
    // Each connection is a file here and in the collector, which inherits the limit.
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    if (slow < 0 || idle < 0 || in_flight < 1 || seconds < 1 ||
        rlim_t(slow + idle + in_flight + 100) > files.rlim_cur) {
        std::fprintf(stderr,
                     "usage: collector_connections [--slow N] [--idle M] [--in-flight K] "
                     "[--seconds S] [--collector PATH]\n(N + M + K must fit in the open files "
                     "limit, %ld here)\n",
                     long(files.rlim_cur));
        return 2;
    }
    QTemporaryDir work(QDir::current().filePath("collector_connections-XXXXXX"));
    collector_process service(program, arguments_in(program, work.path()),
                              work.filePath("collector.log"));
    if (service.port() <= 0) {
        std::fprintf(stderr, "the collector did not start (see %s)\n", qPrintable(work.path()));
        work.setAutoRemove(false);
        return 1;
    }
    const tcp::endpoint server(asio::ip::make_address("127.0.0.1"), quint16(service.port()));
    const long threads_before = service.status("Threads");

    asio::io_context io(1);
    counters count;
    for (int i = 0; i < slow + idle; ++i)
        std::make_shared<holder>(io, server, address_of(i), i < slow, count)->connect();
    std::thread clients([&] { io.run(); });

    // Until every connection is open, or for a minute at most.
    QElapsedTimer clock;
    clock.start();
    while ((count.slow_open < slow || count.idle_open < idle) && clock.elapsed() < 60000)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const double ramp = clock.elapsed() / 1000.0;

    std::atomic<bool> stop{false};
    std::vector<double> times;
    std::atomic<int> failed{0};
    std::mutex lock;
    asio::io_context upload_io(1);
    std::vector<std::shared_ptr<uploader>> uploaders;
    for (int i = 0; i < in_flight; ++i) {
        uploaders.push_back(
            std::make_shared<uploader>(upload_io, server, stop, times, failed, lock));
        uploaders.back()->start();
    }
    std::thread uploads([&] { upload_io.run(); });
    long most_threads = 0, most_resident = 0, samples = 0;
    double slow_open = 0, idle_open = 0;
    for (clock.restart(); clock.elapsed() < seconds * 1000; ++samples) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        most_threads = std::max(most_threads, service.status("Threads"));
        most_resident = std::max(most_resident, service.status("VmRSS"));
        slow_open += count.slow_open;
        idle_open += count.idle_open;
    }
    stop = true;
    upload_io.stop();
    uploads.join();
    io.stop();
    clients.join();
    // Answers still awaited are not among the times: how long they waited is said apart.
    int unanswered = 0;
    double longest_wait = 0;
    for (const auto& one : uploaders) {
        unanswered += one->waiting_ms() > 0;
        longest_wait = std::max(longest_wait, one->waiting_ms());
    }

    std::printf("collector %s\n", qPrintable(program));
    std::printf(
        "connections: %d slow-header and %d idle kept-alive asked, open after %.1f s; "
        "during the uploads %.0f and %.0f open on average\n",
        slow, idle, ramp, slow_open / std::max(samples, 1L), idle_open / std::max(samples, 1L));
    std::printf("slow-header connections cut off: %d; idle ones closed: %d; failed connects: %d\n",
                count.slow_cut.load(), count.idle_closed.load(), count.failed_connects.load());
    std::printf(
        "uploads: %zu answered in %d s (%.0f/s) with %d in flight, %d failed; "
        "p50 %.1f ms, p99 %.1f ms, slowest %.1f ms; %d unanswered at the end, "
        "waiting %.1f s at most\n",
        times.size(), seconds, times.size() / double(seconds), in_flight, failed.load(),
        percentile(times, 0.5), percentile(times, 0.99), percentile(times, 1.0), unanswered,
        longest_wait / 1000);
    std::printf(
        "collector: %ld threads before the clients, %ld at most; resident %ld MiB at most\n",
        threads_before, most_threads, most_resident / 1024);
    return 0;
}
