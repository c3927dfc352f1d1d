// How fast information_collector's dashboard answers, run by hand: a database
// of N records (100,000 unless told) as hosts send them, written straight
// into the collector's table so that the collector takes their facts on
// start (timed too), then each JSON answer of the dashboard asked 20 times
// over one kept-alive connection. Prints the median and slowest time of each
// and exits 1 when a median misses 200 ms.
//
//   dashboard_api [--records N] [--keep]
//
// Works in a new folder under the current one, so the database lies where
// the current folder does; --keep leaves it there, to look at with
// information_collector --database FOLDER/collector.sqlite.
#include <httplib.h>
#include <signal.h>
#include <sqlite3.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

namespace {

const char* const app_ids[] = {"3c1f9a7e55d04b28a6e2f0b9d4c87a13",
                               "a94e07b3c2d851f6e0b7a4c39d2f6e58"};

template <size_t N>
QString pick(std::mt19937& random, const char* const (&values)[N]) {
    return values[random() % N];
}

// A record as the library writes it: the usage document, and content by type.
QByteArray record(std::mt19937& random, const QString& type) {
    static const char* const os[] = {"Windows 10 Pro", "Windows 11 Pro", "Windows 11 Home",
                                     "Windows 10 Home", "Windows 7"};
    static const char* const languages[] = {"en_US", "de_DE", "zh_CN", "ja_JP", "fr_FR"};
    static const char* const screens[] = {"1920*1080", "2560*1440", "3840*2160", "1366*768"};
    static const char* const cpus[] = {"Intel(R) Core(TM) i7-12700K", "AMD Ryzen 9 5950X",
                                       "Intel(R) Core(TM) i5-10400", "AMD Ryzen 7 7700X"};
    static const char* const gpus[] = {"NVIDIA GeForce RTX 3060", "NVIDIA GeForce RTX 4090",
                                       "AMD Radeon RX 6800", "Intel(R) UHD Graphics 770"};
    static const char* const versions[] = {"1.4.2", "1.5.0", "1.5.1", "2.0.0"};
    static const char* const models[] = {"scanner-a", "scanner-b", "scanner-c"};
    static const char* const modules[] = {"turntable", "handheld", "fixed"};
    const QString module = pick(random, modules);
    QJsonObject document{
        {"modelName", pick(random, models)},
        {"softwareName", "keplo-express-software"},
        {"softwareVer", pick(random, versions)},
        {"tracingType", type},
        {"startOn", "2026-11-23T09:00:00Z"},
        {"endOn", "2026-11-23T10:00:00Z"},
        {"enableGuide", "yes"},
        {"osSoftExt", QJsonObject{{"osName", pick(random, os)},
                                  {"lang", pick(random, languages)},
                                  {"resolution", pick(random, screens)},
                                  {"installPath", "C:/Program Files/Scanner"},
                                  {"browser", QJsonObject{{"name", "Edge"}, {"ver", "120"}}}}},
        {"osHdExt", QJsonObject{{"cpu", QJsonArray{QJsonObject{{"cpuCores", 16},
                                                               {"cpuModel", pick(random, cpus)}}}},
                                // What machines report: a little under their modules' size.
                                {"memSize", double((qint64(8) << (random() % 4)) * 1000 << 20)},
                                {"gpu", QJsonArray{QJsonObject{{"gpuModel", pick(random, gpus)},
                                                               {"gpuMemSize", 8589934592.0}}}},
                                {"hddSize", 1e12},
                                {"hddRemainSize", 4e11}}},
        {"modularExt",
         QJsonObject{
             {"ple", "scanner-R550.ple"},
             {"modular", QJsonArray{QJsonObject{
                             {"name", module}, {"sn", ""}, {"mple", module + "-01.ple"}}}}}}};
    if (type == "score")
        document["content"] = QJsonObject{{"score", int(random() % 11)}, {"industry", "art"}};
    if (type == "feedback")
        document["content"] = QJsonObject{{"email", "someone@example.com"},
                                          {"industry", "art"},
                                          {"content", "The texture looks great."},
                                          {"attachs", QJsonArray{"vase.png"}}};
    return QJsonDocument(document).toJson();
}

// N records received over the last 90 days, written in one transaction.
bool fill(const QString& path, int count) {
    static const char* const types[] = {"usage", "usage", "usage",   "usage", "usage",
                                        "usage", "scan",  "scan",    "scan",  "calibration",
                                        "share", "score", "feedback"};
    sqlite3* db = nullptr;
    sqlite3_open(path.toUtf8().constData(), &db);
    sqlite3_stmt* insert = nullptr;
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(db,
                       "INSERT INTO information (received_at, app_id, type, body) "
                       "VALUES (?, ?, ?, ?)",
                       -1, &insert, nullptr);
    std::mt19937 random(13);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < count; ++i) {
        const QString type = pick(random, types);
        const QByteArray received =
            now.addSecs(-qint64(90 * 86400) * (count - i) / count).toString(Qt::ISODate).toUtf8();
        const QByteArray body = record(random, type);
        const QByteArray type_text = type.toUtf8();
        sqlite3_bind_text(insert, 1, received.constData(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(insert, 2, app_ids[i % 5 == 0 ? 1 : 0], -1, SQLITE_STATIC);
        sqlite3_bind_text(insert, 3, type_text.constData(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(insert, 4, body.constData(), body.size(), SQLITE_TRANSIENT);
        if (sqlite3_step(insert) != SQLITE_DONE) break;
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    const bool done = sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(db);
    return done;
}

// Starts the collector on a free port; the port, or 0 when it did not start.
int start(QProcess& collector, const QString& folder) {
    collector.setProcessChannelMode(QProcess::MergedChannels);
    collector.start(INFORMATION_COLLECTOR_PATH,
                    {"--port", "0", "--database", folder + "/collector.sqlite", "--upload-dir",
                     folder + "/uploads"});
    QByteArray said;
    const QRegularExpression listening("listening on http://127.0.0.1:(\\d+)");
    while (!listening.match(said).hasMatch() && collector.waitForReadyRead(120000))
        said += collector.readAll();
    std::fputs(said.constData(), stdout);
    return listening.match(said).captured(1).toInt();
}

void stop(QProcess& collector) {
    ::kill(pid_t(collector.processId()), SIGTERM);
    collector.waitForFinished(5000);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int at = arguments.indexOf("--records");
    const int count = at > 0 && at + 1 < arguments.size() ? arguments[at + 1].toInt() : 100000;
    const QString folder =
        QDir::current().absoluteFilePath("dashboard_api_" + QString::number(app.applicationPid()));
    QDir().mkpath(folder);

    QProcess collector;
    if (start(collector, folder) == 0) return 1;  // makes the tables
    stop(collector);
    QElapsedTimer clock;
    clock.start();
    if (!fill(folder + "/collector.sqlite", count)) return 1;
    std::printf("%d records written in %.1f s\n", count, clock.elapsed() / 1000.0);
    clock.restart();
    const int port = start(collector, folder);
    if (port == 0) return 1;
    std::printf("collector listening %.1f s after its start, facts taken from every record\n\n",
                clock.elapsed() / 1000.0);

    const std::string week_ago =
        QDateTime::currentDateTimeUtc().addDays(-7).toString(Qt::ISODate).toStdString();
    const std::pair<const char*, std::string> calls[] = {
        {"summary", "/api/summary"},
        {"summary, last 7 days, one app", "/api/summary?since=" + week_ago + "&app=" + app_ids[1]},
        {"distributions (usage)", "/api/distributions"},
        {"distributions, scan, one app",
         std::string("/api/distributions?type=scan&app=") + app_ids[0]},
        {"records, first page", "/api/records?limit=25"},
        {"records, page at 90,000", "/api/records?limit=25&offset=90000"},
        {"records, feedback, last 7 days", "/api/records?type=feedback&since=" + week_ago},
        {"feedback", "/api/feedback"},
        {"files", "/api/files"},
        {"one record's JSON", "/api/records/" + std::to_string(count / 2)},
    };
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(30);
    bool met = true;
    std::printf("| answer | median ms | slowest ms | bytes |\n|---|---|---|---|\n");
    for (const auto& call : calls) {
        std::vector<double> times;
        size_t size = 0;
        for (int i = 0; i < 20; ++i) {
            clock.restart();
            const auto res = client.Get(call.second.c_str());
            times.push_back(clock.nsecsElapsed() / 1e6);
            if (!res || res->status != 200) {
                std::printf("%s failed\n", call.first);
                return 1;
            }
            size = res->body.size();
        }
        std::sort(times.begin(), times.end());
        met = met && times[times.size() / 2] < 200;
        std::printf("| %s | %.1f | %.1f | %zu |\n", call.first, times[times.size() / 2],
                    times.back(), size);
    }
    const auto summary = client.Get("/api/summary");
    const qint64 records = summary
                               ? QJsonDocument::fromJson(QByteArray::fromStdString(summary->body))
                                     .object()["records"]
                                     .toInt()
                               : -1;
    std::printf("\nsummary counts %lld records of %d; every median under 200 ms: %s\n",
                static_cast<long long>(records), count, met ? "yes" : "NO");
    stop(collector);
    if (!arguments.contains("--keep")) QDir(folder).removeRecursively();
    return met && records == count ? 0 : 1;
}
