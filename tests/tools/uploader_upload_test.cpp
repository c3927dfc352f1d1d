// information_uploader upload: for each way a service answers, what the user
// reads, the exit code, which records are deleted and what the service
// stored; and --watch, which repeats it until interrupted.
#include <signal.h>

#include <atomic>

#include "local_server.h"
#include "uploader_fixture.h"

namespace {

using tool_test::collector_process;

struct upload_row {
    QString to;  // "collector" and its options, "none" (test mode, no test address), or an address
    QStringList arguments;
    int enable, connect_time, exit_code;
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
    other.answer_json("/refuse", R"({"status":"failed"})");
    // "/silent" never answers; "/late" once the library has reported the
    // time-out, within the uploader's grace.
    other.answer_silently("/(silent|late)", R"({"status":"success"})");
    // The first two requests are held until both are in flight, and then a
    // moment for a third, which --parallel 2 must not send.
    std::mutex mutex;
    std::condition_variable arrival;
    std::atomic<int> in_flight{0}, most{0};
    other.on_post("/parallel", [&](const httplib::Request&, httplib::Response& res) {
        std::unique_lock<std::mutex> lock(mutex);
        most = std::max(most.load(), ++in_flight);
        arrival.notify_all();
        arrival.wait_for(lock, std::chrono::seconds(10), [&] { return most >= 2; });
        arrival.wait_for(lock, std::chrono::milliseconds(500), [&] { return most > 2; });
        --in_flight;
        res.set_content(R"({"status":"success"})", "application/json");
    });
    other.start();
    const QString closed = QString("http://127.0.0.1:%1/dtta").arg(test_support::closed_port());
    // clang-format off
    const upload_row rows[] = {
        {"collector", {}, 1, 5, 0, true, {"sent       " + usage, summary(3, 0, 0, 0)}},
        {"collector --app-id 00000000000000000000000000000000", {"upload"}, 1, 5, 1, false, {"rejected   " + usage + ": unknown application id", summary(0, 3, 0, 0) + ", 3 kept"}},
        {other.url("/refuse"), {}, 1, 5, 1, false, {"rejected   " + usage + ": the service did not answer \"success\"",
            "failed     keploinfo/d.info2 (a&type=b): the record's type would change the upload address"}},
        {closed, {}, 1, 5, 1, false, {"failed     " + usage + ": Connection refused", summary(0, 0, 3, 0)}},
        {"collector", {}, 0, 5, 0, false, {"uploading is switched off"}},
        {"collector", {"--force"}, 0, 5, 0, true, {summary(3, 0, 0, 0) + ", 0 kept"}},
        {"collector", {"--dry-run"}, 1, 5, 0, false, {"would send " + usage.chopped(1) + ", ",
            "would send keploinfo/c.score2 (score, ", "dry run: 3 record(s) would be sent"}},
        {"none", {}, 1, 5, 1, false, {"no information-upload address is configured"}},
        {other.url("/parallel"), {"--parallel", "2"}, 1, 5, 0, true, {summary(3, 0, 0, 0)}},
        // One connect time to the report, one of grace; not the three of the cap.
        {other.url("/silent"), {}, 1, 1, 1, false, {"timed out  " + usage + ": no answer within 2 s", summary(0, 0, 3, 3) + ", 3 kept"}},
        {other.url("/late"), {"--parallel", "1", "--verbose"}, 1, 2, 0, true, {" (answered after a time-out report)", summary(3, 0, 0, 0)}},
    };
    // clang-format on
    const QStringList due{"2024-01-01T10-00-00.info2", "b_scan.info2", "c.score2"};
    const QStringList types{"usage", "scan", "score"};
    table stored;  // in type order, each with the release service's application id
    for (const int i : {1, 2, 0})
        stored.push_back({types[i].toStdString(), "a94e07b3c2d851f6e0b7a4c39d2f6e58",
                          R"({"record":")" + due[i].toStdString() + R"("})"});
    for (const upload_row& row : rows) {
        SCOPED_TRACE(row.to.toStdString() + " " + row.arguments.join(' ').toStdString());
        std::unique_ptr<collector_process> collector;
        if (row.to.startsWith("collector"))
            collector.reset(
                new collector_process(QString("c%1").arg(&row - rows), row.to.split(' ').mid(1)));
        configure(row.enable, row.connect_time, collector ? collector->url("/dtta") : row.to, 60,
                  row.to == "none");
        QStringList paths;
        for (int i = 0; i < 3; ++i) paths << add_record(due[i], types[i]);
        if (row.to.endsWith("/refuse")) add_record("d.info2", "a&type=b");
        // Written as this run starts: the running session's, not due.
        const QString fresh = add_record("fresh.info2", "share", 0);

        tool_test::running_tool run(INFORMATION_UPLOADER_PATH,
                                    QStringList{"--workdir", host} + row.arguments);
        if (row.to.endsWith("/late") && run.wait_for_output("net connect time out", 20000))
            other.release_silent();
        EXPECT_TRUE(ended(run.stop(0, 20000), row.exit_code, row.lines));
        for (const QString& path : paths)
            EXPECT_NE(QFile::exists(path), row.sent) << path.toStdString();
        EXPECT_TRUE(QFile::exists(fresh));
        EXPECT_TRUE(!row.to.endsWith("/parallel") || most == 2) << most;
        if (!collector) continue;
        EXPECT_EQ(collector->query("SELECT type, app_id, body FROM information ORDER BY type"),
                  row.sent ? stored : table{});
    }
}

TEST_F(uploader_upload, watch_sends_records_written_between_passes_and_stops_on_sigint) {
    collector_process collector("collector");
    configure(1, 5, collector.url("/dtta"), /*interval=*/1);
    add_record("first.info2", "usage");

    tool_test::running_tool run(INFORMATION_UPLOADER_PATH,
                                {"upload", "--watch", "--workdir", host});
    ASSERT_TRUE(run.wait_for_output("upload: next pass in 1 s")) << run.output().toStdString();
    EXPECT_TRUE(run.output().contains("sent       keploinfo/first.info2 (usage)"));
    // Written by the host meanwhile, long enough before the next pass.
    const QString second = add_record("second.info2", "scan", 30);
    ASSERT_TRUE(run.wait_for_output("sent       keploinfo/second.info2 (scan)"))
        << run.output().toStdString();
    EXPECT_TRUE(ended(run.stop(SIGINT), 0, {"upload: interrupted"}));
    EXPECT_FALSE(QFile::exists(second));
    EXPECT_EQ(collector.query("SELECT id FROM information").size(), 2u);
}

}  // namespace
