// How much of a service's answer information_uploader holds when the answer
// never ends, is 100 MiB long, or is gzip that inflates to 2 GiB, sent as
// fast as loopback takes it: peak resident memory of one uploader process
// per run, for an information upload (upload), a file upload (send-file) and
// a descriptor (descriptor), whether the library refused the answer with its
// size failure ("answer larger than N bytes"), and how soon it was done.
//
//   answer_memory [--runs N]
//
// The service runs in a child process on 127.0.0.1 and never holds an
// answer: it generates each chunk as it goes. An uploader that grows past
// 1.5 GiB is killed and shown as such. Target: under 100 MB in every row.
#include <httplib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <vector>

#include "compare_fixtures.h"
#include "compare_runner.h"

namespace bench {
namespace {

constexpr size_t chunk_size = 64 * 1024;
constexpr size_t hundred_mib = 100 << 20;
constexpr long ceiling_kib = 1536 * 1024;

enum class shape { endless, announced, chunked, gzip_bomb };

struct answer_kind {
    const char* label;
    shape what;
};

const answer_kind answers[] = {{"endless, 64 KiB chunks", shape::endless},
                               {"100 MiB, length announced", shape::announced},
                               {"100 MiB, chunked", shape::chunked},
                               {"2 MiB of gzip inflating to 2 GiB, unasked", shape::gzip_bomb}};

// 2 GiB of zeros as gzip, which a server may send whatever it was asked.
std::string gzip_bomb() {
    z_stream stream{};
    std::string out;
    if (deflateInit2(&stream, 9, Z_DEFLATED, 16 + MAX_WBITS, 9, Z_DEFAULT_STRATEGY) != Z_OK)
        return out;
    std::string zeros(1 << 20, '\0');
    char buffer[1 << 16];
    for (int block = 0; block <= 2048; ++block) {
        stream.next_in = reinterpret_cast<Bytef*>(zeros.data());
        stream.avail_in = block < 2048 ? uInt(zeros.size()) : 0;
        do {
            stream.next_out = reinterpret_cast<Bytef*>(buffer);
            stream.avail_out = sizeof buffer;
            deflate(&stream, block < 2048 ? Z_NO_FLUSH : Z_FINISH);
            out.append(buffer, sizeof buffer - stream.avail_out);
        } while (stream.avail_out == 0);
    }
    deflateEnd(&stream);
    return out;
}

// Serves one answer kind on every path the uploader's requests use, from a
// process of its own, so that it takes no time from the uploader's threads
// beyond what a fast service on another core would.
class answering_service {
public:
    answering_service(const answer_kind& kind, const std::string& bomb) {
        int port_pipe[2];
        if (::pipe(port_pipe) != 0) return;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(port_pipe[0]);
            serve(kind, bomb, port_pipe[1]);
            ::_exit(0);
        }
        ::close(port_pipe[1]);
        if (pid_ < 0 || ::read(port_pipe[0], &port_, sizeof port_) != sizeof port_) port_ = 0;
        ::close(port_pipe[0]);
    }
    ~answering_service() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    QString url(const char* path) const {
        return QString("http://127.0.0.1:%1%2").arg(port_).arg(path);
    }

private:
    static void serve(const answer_kind& kind, const std::string& bomb, int port_pipe) {
        httplib::Server server;
        const auto handler = [&](const httplib::Request&, httplib::Response& res) {
            const auto chunk = [](size_t offset, size_t length, httplib::DataSink& sink) {
                static const std::string block(chunk_size, '[');
                const size_t left = hundred_mib - offset;
                return sink.write(block.data(), std::min({length, block.size(), left}));
            };
            const char* const type = "application/octet-stream";  // never compressed
            switch (kind.what) {
                case shape::announced:
                    return res.set_content_provider(hundred_mib, type, chunk);
                case shape::gzip_bomb:
                    res.set_header("Content-Encoding", "gzip");
                    return res.set_content(bomb, type);
                default:
                    res.set_chunked_content_provider(
                        type, [&kind, chunk](size_t offset, httplib::DataSink& sink) {
                            const bool endless = kind.what == shape::endless;
                            if (!endless && offset >= hundred_mib) {
                                sink.done();
                                return true;
                            }
                            return chunk(endless ? 0 : offset, chunk_size, sink);
                        });
            }
        };
        server.Post("/dtta", handler);
        server.Post("/up", handler);
        server.Get("/cdn/software/x/interface.json", handler);
        const int port = server.bind_to_any_port("127.0.0.1");
        if (::write(port_pipe, &port, sizeof port) != sizeof port) return;
        ::close(port_pipe);
        server.listen_after_bind();
    }

    pid_t pid_ = -1;
    int port_ = 0;
};

struct figures {
    std::vector<double> peak_mib, seconds;
    int refused = 0, unusable = 0, killed = 0;
};

int usage() {
    std::fprintf(stderr, "usage: answer_memory [--runs N]\n");
    return 2;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    int runs = 3;
    if (arguments.size() == 2 && arguments[0] == "--runs") runs = arguments[1].toInt();
    if (runs < 1 || (arguments.size() != 0 && arguments.size() != 2)) return usage();

    QTemporaryDir scratch;
    const QString host = scratch.filePath("host");
    // A connect time of 10 s: the uploader gives an answer up after 30 s
    // (upload, descriptor) or 100 s (send-file).
    write_text(host + "/res/system.ini", "[General]\nenable=1\nconnect_time=10\n");
    const QString report = scratch.filePath("report.zip");
    write_text(report, QByteArray(4096, 'z'));
    const std::string bomb = gzip_bomb();
    const auto commands_for = [&](const answering_service& service) {
        return std::vector<QStringList>{{"upload", "--upload-url", service.url("/dtta")},
                                        {"send-file", report, "--file-url", service.url("/up")},
                                        {"descriptor", "x", "--cdn-url", service.url("/cdn")}};
    };
    const char* const command_labels[] = {"upload", "send-file", "descriptor"};
    const size_t command_count = std::size(command_labels);
    std::vector<figures> table(std::size(answers) * command_count);
    for (int run = 0; run < runs; ++run) {
        std::fprintf(stderr, "answer_memory: run %d of %d\n", run + 1, runs);
        for (size_t a = 0; a < std::size(answers); ++a) {
            const answering_service service(answers[a], bomb);
            const std::vector<QStringList> commands = commands_for(service);
            for (size_t c = 0; c < command_count; ++c) {
                write_records(host, 1, ".info2", [](int) { return 60; });
                const QString log = scratch.filePath("stderr.log");
                QFile::remove(log);
                const process_run ran =
                    run_process(QStringList{INFORMATION_UPLOADER_PATH} + commands[c] +
                                    QStringList{"--workdir", host, "--verbose"},
                                scratch.path(), log, ceiling_kib);
                QFile said(log);
                said.open(QIODevice::ReadOnly);
                figures& f = table[a * command_count + c];
                f.peak_mib.push_back(ran.peak_kib / 1024.0);
                f.seconds.push_back(ran.seconds);
                const QByteArray text = said.readAll();
                f.refused += text.contains("answer larger than");
                f.unusable += text.contains("json parse");
                f.killed += ran.killed;
            }
        }
    }
    std::printf(
        "| answer | command | peak resident MiB, median (min–max) | seconds, median | "
        "refused for its size | refused as not JSON | killed past 1.5 GiB |\n"
        "|---|---|---|---|---|---|---|\n");
    for (size_t a = 0; a < std::size(answers); ++a)
        for (size_t c = 0; c < command_count; ++c) {
            const figures& f = table[a * command_count + c];
            const spread peak = spread_of(f.peak_mib);
            std::printf("| %s | %s | %.0f (%.0f–%.0f) | %.1f | %d of %d | %d of %d | %d |\n",
                        answers[a].label, command_labels[c], peak.median, peak.min, peak.max,
                        spread_of(f.seconds).median, f.refused, runs, f.unusable, runs, f.killed);
        }
    return 0;
}
