// bench_compare: the side-by-side table behind bench/compare. It starts its
// own servers on loopback, runs each piece of work through the library (or
// information_uploader) and through its peer in separate processes, runs
// after run interleaved, and prints a Markdown table: median, min and max of
// the runs, the ratio to the peer, and each side's peak resident memory.
//
//   bench_compare --build BUILD_DIR [--runs N] [--mib N] [--sweep] [--keep-alive]
//   bench_compare client ...        (the library's side of one run)
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QLocale>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QThread>
#include <cstdio>
#include <functional>
#include <vector>

#include "compare_clients.h"
#include "compare_fixtures.h"
#include "compare_runner.h"
#include "compare_servers.h"

namespace bench {
namespace {

// One side of a row: its command, the folder it runs in, what must be set up
// before each run (not timed), and whether the figure is the whole process's
// wall time or the time the process reports for its call ("ms=...").
struct side {
    QString label;
    QStringList command;
    QString folder;
    std::function<void()> prepare = [] {};
    bool reports_own_time = false;
    std::vector<double> seconds{};
    long peak_kib = 0;
    int failures = 0;
};

struct row {
    QString work;
    QString target;
    side ours;
    side peer{};  // no command: no peer
};

void run_side(side& s, const QString& error_log) {
    if (s.command.isEmpty()) return;
    s.prepare();
    const process_run run = run_process(s.command, s.folder, error_log);
    if (run.exit_code != 0) ++s.failures;
    double seconds = run.seconds;
    if (s.reports_own_time) {
        const int at = run.output.indexOf("ms=");
        seconds = at < 0 ? -1 : run.output.mid(at + 3).split(' ').first().toDouble() / 1000;
        if (at < 0) ++s.failures;
    }
    s.seconds.push_back(seconds);
    s.peak_kib = std::max(s.peak_kib, run.peak_kib);
}

QString time_text(double seconds) {
    if (seconds < 1) return QString("%1 ms").arg(seconds * 1000, 0, 'f', seconds < 0.1 ? 1 : 0);
    return QString("%1 s").arg(seconds, 0, 'f', 2);
}

QString spread_text(const side& s) {
    if (s.seconds.empty()) return "—";
    const spread figures = spread_of(s.seconds);
    QString text =
        QString("%1 (%2–%3)")
            .arg(time_text(figures.median), time_text(figures.min), time_text(figures.max));
    if (s.failures) text += QString(", %1 failed").arg(s.failures);
    return text;
}

QString memory_text(long kib) {
    return kib >= 10240 ? QString("%1 MiB").arg(kib / 1024) : QString("%1 KiB").arg(kib);
}

void print_table(const std::vector<row>& rows) {
    std::printf(
        "| Work | Ours: median (min–max) | Peer | Peer: median (min–max) | Ratio | "
        "Peak RSS ours / peer | Target |\n|---|---|---|---|---|---|---|\n");
    for (const row& r : rows) {
        const bool peer = !r.peer.seconds.empty();
        const QString ratio = peer ? QString("%1×").arg(spread_of(r.ours.seconds).median /
                                                            spread_of(r.peer.seconds).median,
                                                        0, 'f', 2)
                                   : "—";
        const QString memory = memory_text(r.ours.peak_kib) +
                               (peer ? " / " + memory_text(r.peer.peak_kib) : QString());
        std::printf("| %s | %s: %s | %s | %s | %s | %s | %s |\n", qPrintable(r.work),
                    qPrintable(r.ours.label), qPrintable(spread_text(r.ours)),
                    qPrintable(peer ? r.peer.label : "—"), qPrintable(spread_text(r.peer)),
                    qPrintable(ratio), qPrintable(memory), qPrintable(r.target));
    }
}

QString first_line_of(const QStringList& command) {
    const process_run run = run_process(command, QDir::tempPath(), "/dev/null");
    return QString::fromUtf8(run.output).section('\n', 0, 0).trimmed();
}

QString cpu_model() {
    QFile file("/proc/cpuinfo");
    if (!file.open(QIODevice::ReadOnly)) return "unknown CPU";
    for (const QByteArray& line : file.readAll().split('\n'))
        if (line.startsWith("model name"))
            return QString(line.mid(line.indexOf(':') + 1)).trimmed();
    return "unknown CPU";
}

void print_machine(const transfer_server& transfer, int runs) {
    std::printf("Machine: %s, %s, %d cores; %s %s; Qt %s; %s; downloads served by %s.\n",
                qPrintable(QSysInfo::prettyProductName()), qPrintable(cpu_model()),
                QThread::idealThreadCount(), qPrintable(QSysInfo::kernelType()),
                qPrintable(QSysInfo::kernelVersion()), qVersion(),
                qPrintable(first_line_of({"curl", "--version"}).section(' ', 0, 1)),
                qPrintable(transfer.download_server()));
    std::printf("%s, %d interleaved runs per figure.\n\n",
                qPrintable(QDateTime::currentDateTimeUtc().toString("yyyy-MM-dd hh:mm 'UTC'")),
                runs);
}

int usage() {
    std::fprintf(
        stderr,
        "usage: bench_compare --build BUILD_DIR [--runs N] [--mib N] [--sweep] [--keep-alive]\n");
    return 2;
}

// Builds the rows, runs them and prints the table; arguments as in usage().
int compare(QStringList arguments) {
    QString build;
    int runs = 5;
    qint64 mib = 1024;
    bool sweep = false;
    bool keep_alive = false;
    while (!arguments.isEmpty()) {
        const QString option = arguments.takeFirst();
        if (option == "--sweep")
            sweep = true;
        else if (option == "--keep-alive")
            keep_alive = true;
        else if (arguments.isEmpty())
            return usage();
        else if (option == "--build")
            build = QDir(arguments.takeFirst()).absolutePath();
        else if (option == "--runs")
            runs = arguments.takeFirst().toInt();
        else if (option == "--mib")
            mib = arguments.takeFirst().toLongLong();
        else
            return usage();
    }
    if (build.isEmpty() || runs < 1 || mib < 1) return usage();
    const QString self = QCoreApplication::applicationFilePath();
    const QString uploader = build + "/tools/uploader/information_uploader";
    QTemporaryDir scratch;
    const QString work = scratch.path();
    // nginx's workers run as another user; they must reach the file they serve.
    QFile::setPermissions(work, QFile::permissions(work) | QFile::ReadOther | QFile::ExeOther);
    const QString errors = work + "/errors.log";

    collector_server collector(build + "/tools/collector/information_collector", work + "/service");
    transfer_server transfer(work + "/transfer", mib << 20);
    const QString body = work + "/body.json";
    write_text(body, sample_body());
    const QString posts_url = collector.url() + "/dtta";
    for (int count : {1000, 10000})
        write_curl_posts(QString("%1/posts%2.curl").arg(work).arg(count), posts_url, body, count,
                         keep_alive);
    const QString big = work + "/upload.bin";
    write_sparse_file(big, mib << 20);
    const QString download_target = work + "/downloads/setup.exe";
    QDir().mkpath(work + "/downloads");

    const QString posting_curl = keep_alive ? "curl, keep-alive" : "curl, a connection per post";
    auto curl_posts = [&](int count, int in_flight) {
        return QStringList{"curl",
                           "-s",
                           "--parallel",
                           "--parallel-max",
                           QString::number(qMin(in_flight, 300)),
                           "-K",
                           QString("%1/posts%2.curl").arg(work).arg(count)};
    };
    // A host folder for the uploader, its records written anew before each run.
    auto uploader_host = [&](int count) {
        const QString host = QString("%1/host%2").arg(work).arg(count);
        write_text(host + "/res/system.ini", "[General]\nenable=1\nconnect_time=20\n");
        write_text(host + "/url_config.ini", ("[General]\nupload_url=" + posts_url).toUtf8());
        return host;
    };
    auto fresh_records = [](const QString& host, int count) {
        return [host, count] { write_records(host, count, ".info2", [](int) { return 60; }); };
    };
    const QString listing = work + "/listing";
    const QString scores = work + "/scores";
    write_text(listing + "/res/system.ini", "[General]\nremain=30\n");
    // A tenth of the records are older than "remain" (30 days): delete_old_records removes them.
    auto listing_records = [listing] {
        write_records(listing, 10000, ".info2",
                      [](int i) { return i % 10 == 0 ? 40 * 86400 + i : 60 + i; });
    };
    listing_records();
    write_records(scores, 10000, ".score2", [](int i) { return 60 + i; });
    const QString sh = "/bin/sh";
    // information_uploader's default.
    const int uploader_parallel = 8;

    std::vector<row> rows;
    auto add = [&rows](QString work_text, QString target, side ours, side peer) {
        rows.push_back({std::move(work_text), std::move(target), std::move(ours), std::move(peer)});
    };
    add(QString("download, %1 MiB (library: downLoadApp, with the contract's 2 s pause)").arg(mib),
        "level with curl apart from the pause",
        {"library",
         {self, "client", "download", transfer.download_url(), download_target},
         work,
         [=] { QFile::remove(download_target); }},
        {"curl", {"curl", "-s", "-f", "-o", download_target, transfer.download_url()}, work, [=] {
             QFile::remove(download_target);
         }});
    add(QString("multipart upload, %1 MiB (library: upload_file)").arg(mib),
        "no slower than the peer",
        {"library", {self, "client", "upload", transfer.upload_url(), big}, work},
        {"curl",
         {"curl", "-s", "-o", "/dev/null", "-H", "X-Auth-AppID: bench", "-F",
          "file=@" + big + ";type=application/octet-stream",
          transfer.upload_url() + "?category=feedback&bucket=pub"},
         work});
    add("1,000 posts to the collector, all at once (curl: 300, its most)", "—",
        {"library", {self, "client", "posts", posts_url, "1000", "1000", body}, work},
        {posting_curl, curl_posts(1000, 1000), work});
    add("1,000 posts to the collector, 8 in flight", "—",
        {"library", {self, "client", "posts", posts_url, "1000", "8", body}, work},
        {posting_curl, curl_posts(1000, 8), work});
    for (const int count : {1000, 10000}) {
        const QString host = uploader_host(count);
        add(QString("information_uploader upload, %1 records, %2 in flight")
                .arg(QLocale(QLocale::English).toString(count))
                .arg(uploader_parallel),
            count == 1000 ? "within 1.2× of curl" : "under 5 s",
            {"uploader",
             {uploader, "upload", "--parallel", QString::number(uploader_parallel), "--workdir",
              host},
             work,
             fresh_records(host, count)},
            {posting_curl, curl_posts(count, uploader_parallel), work});
    }
    if (sweep) {
        const QString host = uploader_host(1000);
        for (const int parallel : {1, 2, 4, 16, 32})
            add(QString("information_uploader upload, 1,000 records, %1 in flight").arg(parallel),
                "—",
                {"uploader",
                 {uploader, "upload", "--parallel", QString::number(parallel), "--workdir", host},
                 work,
                 fresh_records(host, 1000)},
                {posting_curl, curl_posts(1000, parallel), work});
    }
    add("list_due_records, 10,000 records (library: the call; peer: the whole process)",
        "under 50 ms", {"library", {self, "client", "due", listing}, work, [] {}, true},
        {"find + sort",
         {sh, "-c",
          "find keploinfo -name '*.info2' ! -newermt '-3 seconds' -printf '%T@ %p\\n' | sort -n > "
          "/dev/null"},
         listing});
    add("delete_old_records, 10,000 records, 1,000 old (as above)", "under 50 ms",
        {"library", {self, "client", "delete", listing}, work, listing_records, true},
        {"find -delete",
         {sh, "-c", "find keploinfo -name '*.info2' -mtime +30 -delete"},
         listing,
         listing_records});
    add("list_score_files, 10,000 records (as above)", "under 50 ms",
        {"library", {self, "client", "scores", scores}, work, [] {}, true},
        {"find + sort",
         {sh, "-c", "find keploinfo -name '*.score2' -printf '%T@ %p\\n' | sort -n > /dev/null"},
         scores});
    add("information_init with the machine probes (the call)", "under 20 ms",
        {"library",
         {self, "client", "init", work + "/init"},
         work,
         [=] { QDir().mkpath(work + "/init"); },
         true},
        {});

    for (int run = 0; run < runs; ++run) {
        std::fprintf(stderr, "bench_compare: run %d of %d\n", run + 1, runs);
        for (row& r : rows) {
            // Which side goes first alternates, so that neither always meets a warm cache.
            side& first = run % 2 ? r.peer : r.ours;
            side& second = run % 2 ? r.ours : r.peer;
            run_side(first, errors);
            run_side(second, errors);
        }
    }
    print_machine(transfer, runs);
    print_table(rows);
    int failures = 0;
    for (const row& r : rows) failures += r.ours.failures + r.peer.failures;
    QFile log(errors);
    if (failures > 0 && log.open(QIODevice::ReadOnly))
        std::fprintf(stderr, "bench_compare: what the runs said on standard error:\n%s",
                     log.readAll().right(4000).constData());
    return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    if (argc > 1 && QByteArray(argv[1]) == "client") return run_client(argc, argv);
    QCoreApplication app(argc, argv);
    try {
        return compare(app.arguments().mid(1));
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_compare: %s\n", e.what());
        return 1;
    }
}
