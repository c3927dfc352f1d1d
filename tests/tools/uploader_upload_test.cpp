// information_uploader upload against the collector: what is sent, deleted
// and kept, and the exit codes.
#include <QFile>

#include "local_server.h"
#include "uploader_fixture.h"

namespace {

using tool_test::collector_process;

class uploader_upload : public uploader_test {};

TEST_F(uploader_upload, sends_due_records_and_score_files_and_deletes_them) {
    collector_process collector("collector");
    system_settings(1, 5);
    upload_address(collector.url("/dtta"));
    add_record("2024-01-01T10-00-00.info2", "usage");
    add_record("2024-01-01T10-05-00_scan.info2", "scan");
    add_record("2024-01-01T10-06-00.score2", "score");
    // Written while this run starts: the running session's, not due.
    const QString fresh = add_record("fresh.info2", "share", 0);

    const auto result = uploader({"upload"});
    EXPECT_EQ(result.exit_code, 0) << shown(result);
    EXPECT_TRUE(result.out.contains("sent       keploinfo/2024-01-01T10-00-00.info2 (usage)"))
        << shown(result);
    EXPECT_TRUE(result.out.contains(
        "summary: 3 record(s): 3 sent, 0 rejected, 0 failed (0 timed out), 0 kept"))
        << shown(result);
    EXPECT_FALSE(QFile::exists(record("2024-01-01T10-00-00.info2")));
    EXPECT_FALSE(QFile::exists(record("2024-01-01T10-05-00_scan.info2")));
    EXPECT_FALSE(QFile::exists(record("2024-01-01T10-06-00.score2")));
    EXPECT_TRUE(QFile::exists(fresh));

    const auto rows = collector.query("SELECT type, app_id, body FROM information ORDER BY type");
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0][0], "scan");
    EXPECT_EQ(rows[1][0], "score");
    EXPECT_EQ(rows[2][0], "usage");
    EXPECT_EQ(rows[2][1], "a94e07b3c2d851f6e0b7a4c39d2f6e58");  // the release service's id
    EXPECT_EQ(rows[2][2], R"({"record":"2024-01-01T10-00-00.info2"})");
}

TEST_F(uploader_upload, is_the_default_command) {
    collector_process collector("collector");
    system_settings(1, 5);
    upload_address(collector.url("/dtta"));
    add_record("a.info2", "usage");
    const auto result = uploader({});
    EXPECT_EQ(result.exit_code, 0) << shown(result);
    EXPECT_FALSE(QFile::exists(record("a.info2")));
}

TEST_F(uploader_upload, keeps_rejected_records_and_exits_1) {
    // A service that knows another application id only.
    collector_process collector("collector", {"--app-id", "00000000000000000000000000000000"});
    system_settings(1, 5);
    upload_address(collector.url("/dtta"));
    add_record("a.info2", "usage");
    add_record("b.score2", "score");

    const auto result = uploader({"upload"});
    EXPECT_EQ(result.exit_code, 1) << shown(result);
    EXPECT_TRUE(result.out.contains("rejected   keploinfo/a.info2 (usage): unknown application id"))
        << shown(result);
    EXPECT_TRUE(result.out.contains(
        "summary: 2 record(s): 0 sent, 2 rejected, 0 failed (0 timed out), 2 kept"))
        << shown(result);
    EXPECT_TRUE(QFile::exists(record("a.info2")));
    EXPECT_TRUE(QFile::exists(record("b.score2")));
    EXPECT_TRUE(collector.query("SELECT id FROM information").empty());
}

TEST_F(uploader_upload, a_rejection_without_a_reason_says_so) {
    test_support::local_server service;
    service.answer_json("/dtta", R"({"status":"failed"})");
    service.start();
    system_settings(1, 5);
    upload_address(service.url("/dtta"));
    add_record("a.info2", "usage");

    const auto result = uploader({"upload"});
    EXPECT_EQ(result.exit_code, 1) << shown(result);
    EXPECT_TRUE(result.out.contains(
        "rejected   keploinfo/a.info2 (usage): the service did not answer \"success\""))
        << shown(result);
    EXPECT_TRUE(QFile::exists(record("a.info2")));
}

TEST_F(uploader_upload, keeps_records_when_the_service_is_unreachable) {
    system_settings(1, 5);
    upload_address(QString("http://127.0.0.1:%1/dtta").arg(test_support::closed_port()));
    add_record("a.info2", "usage");
    add_record("b.info2", "scan");

    const auto result = uploader({"upload"});
    EXPECT_EQ(result.exit_code, 1) << shown(result);
    EXPECT_TRUE(result.out.contains("failed     keploinfo/a.info2 (usage): Connection refused"))
        << shown(result);
    EXPECT_TRUE(result.out.contains(
        "summary: 2 record(s): 0 sent, 0 rejected, 2 failed (0 timed out), 2 kept"))
        << shown(result);
    EXPECT_TRUE(QFile::exists(record("a.info2")));
    EXPECT_TRUE(QFile::exists(record("b.info2")));
}

TEST_F(uploader_upload, sends_nothing_when_uploading_is_switched_off_unless_forced) {
    collector_process collector("collector");
    system_settings(0, 5);
    upload_address(collector.url("/dtta"));
    add_record("a.info2", "usage");

    const auto off = uploader({"upload"});
    EXPECT_EQ(off.exit_code, 0) << shown(off);
    EXPECT_TRUE(off.out.contains("uploading is switched off")) << shown(off);
    EXPECT_TRUE(QFile::exists(record("a.info2")));
    EXPECT_TRUE(collector.query("SELECT id FROM information").empty());

    const auto forced = uploader({"upload", "--force"});
    EXPECT_EQ(forced.exit_code, 0) << shown(forced);
    EXPECT_FALSE(QFile::exists(record("a.info2")));
    EXPECT_EQ(collector.query("SELECT id FROM information").size(), 1u);
}

TEST_F(uploader_upload, dry_run_lists_and_changes_nothing) {
    collector_process collector("collector");
    system_settings(1, 5);
    upload_address(collector.url("/dtta"));
    add_record("a.info2", "usage");
    add_record("b.score2", "score");

    const auto result = uploader({"upload", "--dry-run"});
    EXPECT_EQ(result.exit_code, 0) << shown(result);
    EXPECT_TRUE(result.out.contains("would send keploinfo/a.info2 (usage, "));
    EXPECT_TRUE(result.out.contains("would send keploinfo/b.score2 (score, "));
    EXPECT_TRUE(result.out.contains("dry run: 2 record(s) would be sent")) << shown(result);
    EXPECT_TRUE(QFile::exists(record("a.info2")));
    EXPECT_TRUE(QFile::exists(record("b.score2")));
    EXPECT_TRUE(collector.query("SELECT id FROM information").empty());
}

TEST_F(uploader_upload, says_so_when_no_address_is_configured) {
    system_settings(1, 5, 60, /*test=*/1);  // test mode: no test address is set
    add_record("a.info2", "usage");
    const auto result = uploader({"upload"});
    EXPECT_EQ(result.exit_code, 1) << shown(result);
    EXPECT_TRUE(result.err.contains("no information-upload address is configured"))
        << shown(result);
    EXPECT_TRUE(QFile::exists(record("a.info2")));
}

TEST_F(uploader_upload, keeps_at_most_parallel_requests_in_flight) {
    test_support::local_server service;
    std::mutex mutex;
    int in_flight = 0;
    int most = 0;
    service.on_post("/dtta", [&](const httplib::Request&, httplib::Response& res) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            most = std::max(most, ++in_flight);
        }
        // Slow enough that the uploader would start more if it were allowed to.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        {
            std::lock_guard<std::mutex> lock(mutex);
            --in_flight;
        }
        res.set_content(R"({"status":"success"})", "application/json");
    });
    service.start();
    system_settings(1, 5);
    upload_address(service.url("/dtta"));
    for (int i = 0; i < 6; ++i) add_record(QString("r%1.info2").arg(i), "usage");

    const auto result = uploader({"upload", "--parallel", "2"});
    EXPECT_EQ(result.exit_code, 0) << shown(result);
    EXPECT_EQ(service.request_count(), 6u);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(most, 2);
}

}  // namespace
