// How fast information_collector takes records, run by hand: curl and
// information_uploader post records of about 1 KB, 4 and 16 in flight, once
// to a collector that keeps connections alive and once to one that closes
// each after its answer; then one 1 GiB file upload, with the collector's
// peak resident memory.
//
//   collector_throughput [--records N] [--no-large-file] [--collector PATH]
//
// PATH is another information_collector to measure, an older one for instance.
// Works in a new folder under the current one, so the database lies where
// the current folder does (on disk, unless that is a tmpfs). Each run is
// checked: every record must be stored, else the run says so.
#include <sqlite3.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cstdio>
#include <memory>

#include "collector_process.h"

namespace {

const char* const app_id = "3c1f9a7e55d04b28a6e2f0b9d4c87a13";

// A collector on a free loopback port; stopped with SIGTERM when destroyed.
class collector {
public:
    collector(const QString& program, const QString& folder, bool keep_alive)
        : database_(folder + "/collector.sqlite"),
          process_(program,
                   QStringList{"--database", database_, "--upload-dir", folder + "/uploads"} +
                       (keep_alive ? QStringList() : QStringList{"--no-keep-alive"}),
                   folder + "/collector.log") {}

    bool started() const { return process_.port() > 0; }
    QString url(const QString& path) const { return process_.url(path); }
    long peak_resident_kib() const { return process_.status("VmHWM"); }

    // Rows in one of the collector's tables.
    long long rows(const char* table) const {
        sqlite3* db = nullptr;
        long long count = -1;
        if (sqlite3_open_v2(database_.toUtf8().constData(), &db, SQLITE_OPEN_READONLY, nullptr) ==
            SQLITE_OK) {
            sqlite3_stmt* statement = nullptr;
            const QByteArray sql = QByteArray("SELECT count(*) FROM ") + table;
            if (sqlite3_prepare_v2(db, sql.constData(), -1, &statement, nullptr) == SQLITE_OK &&
                sqlite3_step(statement) == SQLITE_ROW)
                count = sqlite3_column_int64(statement, 0);
            sqlite3_finalize(statement);
        }
        sqlite3_close(db);
        return count;
    }

private:
    QString database_;
    collector_process process_;
};

// Runs a program to its end; returns its wall time in seconds, or -1 when it
// did not end with exit code 0.
double timed_run(const QString& program, const QStringList& arguments) {
    QProcess process;
    // Failures show in the rows stored; curl -Z prints its progress even with -s.
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer clock;
    clock.start();
    process.start(program, arguments);
    if (!process.waitForFinished(10 * 60 * 1000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return -1;
    return clock.nsecsElapsed() / 1e9;
}

// A curl configuration that posts the record file `records` times.
QString curl_config(const QString& folder, const collector& service, const QString& record,
                    int records) {
    const QString path = folder + "/curl.config";
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) return QString();
    for (int i = 0; i < records; ++i)
        file.write(QString("%1url = \"%2\"\ndata-binary = \"@%3\"\n"
                           "header = \"X-Auth-AppID: %4\"\n"
                           "header = \"Content-Type: application/json\"\noutput = \"/dev/null\"\n")
                       .arg(i ? "next\n" : "", service.url("/dtta?type=usage"), record, app_id)
                       .toUtf8());
    return path;
}

// A host's working folder with `records` due records, as the library leaves them.
QString host_folder(const QString& folder, const QByteArray& record, int records) {
    const QString host = folder + "/host";
    QDir(host).removeRecursively();
    QDir().mkpath(host + "/keploinfo");
    QDir().mkpath(host + "/res");
    QFile settings(host + "/res/system.ini");
    if (!settings.open(QIODevice::WriteOnly) ||
        settings.write("[General]\nenable=1\nconnect_time=30\ntime_intval=60\ntest=1\n") < 0)
        return QString();
    for (int i = 0; i < records; ++i) {
        const QString path =
            QString("%1/keploinfo/record-%2.info2").arg(host).arg(i, 5, 10, QChar('0'));
        {
            QSettings ini(path, QSettings::IniFormat);
            ini.setValue("data", record);
            ini.setValue("type", "usage");
        }
        QFile aged(path);
        if (!aged.open(QIODevice::ReadWrite) ||
            !aged.setFileTime(QDateTime::currentDateTime().addSecs(-60),
                              QFileDevice::FileModificationTime))
            return QString();
    }
    return host;
}

void report(const char* client, bool keep_alive, int in_flight, double seconds, int records,
            long long stored) {
    if (seconds < 0 || stored != records)
        std::printf("%-9s %-11s %9d  failed: %lld of %d records stored\n", client,
                    keep_alive ? "keep-alive" : "one each", in_flight, stored, records);
    else
        std::printf("%-9s %-11s %9d %9.3f %10.0f\n", client, keep_alive ? "keep-alive" : "one each",
                    in_flight, seconds, records / seconds);
    std::fflush(stdout);
}

void large_file(const QString& program, const QString& curl, const QString& folder) {
    const qint64 size = qint64(1) << 30;
    QFile sparse(folder + "/large.bin");
    QDir().mkpath(folder + "/large");
    collector service(program, folder + "/large", true);
    if (!sparse.open(QIODevice::WriteOnly) || !sparse.resize(size) || !service.started()) {
        std::printf("file upload of 1 GiB: cannot prepare it in %s\n", qPrintable(folder));
        return;
    }
    sparse.close();
    const long before = service.peak_resident_kib();
    const double seconds = timed_run(
        curl, {"-s", "-f", "-o", "/dev/null", "-H", QString("X-Auth-AppID: ") + app_id, "-F",
               "file=@" + sparse.fileName(), service.url("/up?category=feedback&bucket=pub")});
    const long peak = service.peak_resident_kib();
    if (seconds < 0 || service.rows("files") != 1)
        std::printf("file upload of 1 GiB: failed\n");
    else
        std::printf(
            "file upload of 1 GiB: %.1f s (%.0f MiB/s); collector peak resident %ld MiB "
            "(%ld MiB before)\n",
            seconds, 1024 / seconds, peak / 1024, before / 1024);
    QFile::remove(sparse.fileName());
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int index = arguments.indexOf("--records");
    const int records =
        index > 0 && index + 1 < arguments.size() ? arguments[index + 1].toInt() : 1000;
    const QString curl = QStandardPaths::findExecutable("curl");
    const int at = arguments.indexOf("--collector");
    const QString program =
        at > 0 && at + 1 < arguments.size() ? arguments[at + 1] : INFORMATION_COLLECTOR_PATH;
    QTemporaryDir work(QDir::current().filePath("collector_throughput-XXXXXX"));
    if (records <= 0 || curl.isEmpty() || !work.isValid()) {
        std::fprintf(stderr,
                     "usage: collector_throughput [--records N] [--no-large-file] "
                     "[--collector PATH]\n"
                     "(needs curl and a writable current folder)\n");
        return 2;
    }
    // About 1 KB, as a usage record.
    const QByteArray record = "{\"record\":\"" + QByteArray(1000, 'r') + "\"}";
    QFile json(work.filePath("record.json"));
    if (!json.open(QIODevice::WriteOnly) || json.write(record) != record.size()) return 1;
    json.close();

    std::printf("%d records of %d bytes; database in %s\n\n", records, int(record.size()),
                qPrintable(work.path()));
    std::printf("%-9s %-11s %9s %9s %10s\n", "client", "connection", "in flight", "seconds",
                "records/s");
    int run = 0;
    for (const bool keep_alive : {true, false}) {
        for (const bool uploader : {false, true}) {
            for (const int in_flight : {4, 16}) {
                const QString folder = work.filePath(QString("run-%1").arg(++run));
                QDir().mkpath(folder);
                collector service(program, folder, keep_alive);
                if (!service.started()) return 1;
                double seconds = -1;
                if (uploader) {
                    const QString host = host_folder(folder, record, records);
                    seconds =
                        timed_run(INFORMATION_UPLOADER_PATH,
                                  {"upload", "--workdir", host, "--upload-url",
                                   service.url("/dtta"), "--parallel", QString::number(in_flight)});
                } else {
                    seconds = timed_run(
                        curl, {"-s", "-f", "-Z", "--parallel-max", QString::number(in_flight), "-K",
                               curl_config(folder, service, json.fileName(), records)});
                }
                report(uploader ? "uploader" : "curl", keep_alive, in_flight, seconds, records,
                       service.rows("information"));
            }
        }
    }
    std::printf("\n");
    if (!arguments.contains("--no-large-file")) large_file(program, curl, work.path());
    return 0;
}
