// information_uploader upload: for each way a service answers, what the user
// reads, the exit code, which records are deleted and what the service
// stored; and --watch, which repeats it until interrupted.
#include <signal.h>

#include <QFile>
#include <atomic>
#include <memory>

#include "local_server.h"
#include "uploader_fixture.h"

namespace {

using tool_test::collector_process;

struct upload_row {
    QString to;  // "collector", "other-app", "closed", "none", or a path on the local server
    QStringList arguments;
    int enable;
    int connect_time;
    int exit_code;
    bool sent;          // the due records are gone, and with a collector stored
    QStringList lines;  // in the output
};

const QString usage = "keploinfo/2024-01-01T10-00-00.info2 (usage)";
QString summary(int sent, int rejected, int failed, int timed_out) {
    return QString::asprintf("summary: 3 record(s): %d sent, %d rejected, %d failed (%d timed out)",
                             sent, rejected, failed, timed_out);
}

class uploader_upload : public uploader_test {};

TEST_F(uploader_upload, each_answer_of_the_service_decides_the_records_fate) {
    test_support::local_server other;
    std::atomic<int> in_flight{0}, most{0};
    other.answer_json("/refuse", R"({"status":"failed"})");
    // "/count" is slow enough that the uploader would start more requests if
    // it were allowed to; "/slow" answers after one and a half connect times:
    // past the library's time-out report, within the uploader's grace.
    other.on_post("/(count|slow)", [&](const httplib::Request& req, httplib::Response& res) {
        const int now = ++in_flight;
        for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(req.path == "/slow" ? 3000 : 300));
        --in_flight;
        res.set_content(R"({"status":"success"})", "application/json");
    });
    other.answer_silently("/silent", R"({"status":"success"})");
    other.start();
    // clang-format off
    const upload_row rows[] = {
        {"collector", {}, 1, 5, 0, true, {"sent       " + usage, summary(3, 0, 0, 0)}},
        {"other-app", {"upload"}, 1, 5, 1, false,
         {"rejected   " + usage + ": unknown application id", summary(0, 3, 0, 0) + ", 3 kept"}},
        {"/refuse", {}, 1, 5, 1, false,
         {"rejected   " + usage + ": the service did not answer \"success\"",
          "failed     keploinfo/d.info2 (a&type=b): the record's type would change the upload address"}},
        {"closed", {}, 1, 5, 1, false,
         {"failed     " + usage + ": Connection refused", summary(0, 0, 3, 0)}},
        {"collector", {}, 0, 5, 0, false, {"uploading is switched off"}},
        {"collector", {"--force"}, 0, 5, 0, true, {summary(3, 0, 0, 0) + ", 0 kept"}},
        {"collector", {"--dry-run"}, 1, 5, 0, false,
         {"would send " + usage.chopped(1) + ", ", "would send keploinfo/c.score2 (score, ",
          "dry run: 3 record(s) would be sent"}},
        {"none", {}, 1, 5, 1, false, {"no information-upload address is configured"}},
        {"/count", {"--parallel", "2"}, 1, 5, 0, true, {summary(3, 0, 0, 0)}},
        {"/slow", {}, 1, 2, 0, true,
         {"sent       " + usage + " (answered after a time-out report)", summary(3, 0, 0, 0)}},
        {"/silent", {}, 1, 1, 1, false,
         {"timed out  " + usage + ": no answer within 2 s", summary(0, 0, 3, 3) + ", 3 kept"}},
    };
    // clang-format on
    int n = 0;
    for (const upload_row& row : rows) {
        use_host(QString("host%1").arg(++n));
        std::unique_ptr<collector_process> collector;
        QString address = other.url(row.to.toStdString());
        if (row.to == "collector" || row.to == "other-app") {
            const QStringList app{"--app-id", "00000000000000000000000000000000"};
            collector.reset(new collector_process(QString("collector%1").arg(n),
                                                  row.to == "other-app" ? app : QStringList()));
            address = collector->url("/dtta");
        }
        if (row.to == "closed")
            address = QString("http://127.0.0.1:%1/dtta").arg(test_support::closed_port());
        // Test mode without a test address: nothing to upload to.
        configure(row.enable, row.connect_time, address, 60, row.to == "none");
        const QStringList due{"2024-01-01T10-00-00.info2", "b_scan.info2", "c.score2"};
        const QStringList types{"usage", "scan", "score"};
        QStringList paths;
        for (int i = 0; i < 3; ++i) paths << add_record(due[i], types[i]);
        if (row.to == "/refuse") add_record("d.info2", "a&type=b");
        // Written while this run starts: the running session's, not due.
        const QString fresh = add_record("fresh.info2", "share", 0);

        const auto result = uploader(row.arguments);
        SCOPED_TRACE(shown(result));
        EXPECT_EQ(result.exit_code, row.exit_code);
        EXPECT_TRUE(holds_all(result.out + result.err, row.lines));
        for (const QString& path : paths)
            EXPECT_NE(QFile::exists(path), row.sent) << path.toStdString();
        EXPECT_TRUE(QFile::exists(fresh));
        EXPECT_TRUE(row.to != "/count" || most.exchange(0) == 2);
        if (!collector) continue;
        // In type order, each with the release service's application id.
        std::vector<std::vector<std::string>> stored;
        for (const int i : {1, 2, 0})
            if (row.sent)
                stored.push_back({types[i].toStdString(), "a94e07b3c2d851f6e0b7a4c39d2f6e58",
                                  R"({"record":")" + due[i].toStdString() + R"("})"});
        EXPECT_EQ(collector->query("SELECT type, app_id, body FROM information ORDER BY type"),
                  stored);
    }
}

// upload --watch: a pass every interval until interrupted.
TEST_F(uploader_upload, watch_sends_records_written_between_passes_and_stops_on_sigint) {
    collector_process collector("collector");
    configure(1, 5, collector.url("/dtta"), /*interval=*/1);
    add_record("first.info2", "usage");

    tool_test::running_tool uploader(INFORMATION_UPLOADER_PATH,
                                     {"upload", "--watch", "--workdir", host}, QString());
    ASSERT_TRUE(uploader.wait_for_output("upload: next pass in 1 s"))
        << uploader.output().toStdString();
    EXPECT_TRUE(uploader.output().contains("sent       keploinfo/first.info2 (usage)"));

    // Written by the host meanwhile, long enough before the next pass.
    const QString second = add_record("second.info2", "scan", 30);
    ASSERT_TRUE(uploader.wait_for_output("sent       keploinfo/second.info2 (scan)"))
        << uploader.output().toStdString();

    const auto result = uploader.stop(SIGINT);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0) << result.out.toStdString();
    EXPECT_TRUE(result.out.contains("upload: interrupted")) << result.out.toStdString();
    EXPECT_FALSE(QFile::exists(second));
    EXPECT_EQ(collector.query("SELECT id FROM information").size(), 2u);
}

}  // namespace
