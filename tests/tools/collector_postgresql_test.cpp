// information_collector on PostgreSQL only: several collectors sharing one
// database, and the database going away and coming back.
#include <signal.h>

#include "collector_fixture.h"

namespace {

using namespace collector_test;

// information_uploader sending the records of a host's working folder: count
// of them, last written a minute ago, when count is given.
tool_test::running_tool upload(const QString& host, const collector_process& to, int count = 0) {
    tool_test::write_system_ini(host, 1, 10, 60, 1);
    for (int i = 0; i < count; ++i)
        tool_test::write_record(QString("%1/keploinfo/r%2.info2").arg(host).arg(i),
                                QString(R"({"record":"%1-%2"})").arg(host).arg(i).toUtf8(), "usage",
                                60);
    return {INFORMATION_UPLOADER_PATH, {"--workdir", host, "--upload-url", to.url("/d")}};
}

// pg_ctlcluster on the cluster that pg_virtualenv made.
bool cluster(const QString& action) {
    return QProcess::execute("pg_ctlcluster", {qgetenv("PGVERSION"), "regress", action}) == 0;
}

ON_DATABASES(collector_postgresql, "postgresql");

TEST_P(collector_postgresql, two_collectors_store_what_both_receive_once_and_both_show_it) {
    const QStringList shared = on("shared", {"--upload-dir", "../files"});
    collector_process first("first", shared), second("second", shared);
    auto one = upload("one", first, 150), two = upload("two", second, 150);
    EXPECT_EQ(one.stop(0, 60000).exit_code, 0);
    EXPECT_EQ(two.stop(0, 60000).exit_code, 0);
    const request file = form({{"file", "scan.zip", "zip"}}, test_app_id);
    for (const collector_process* to : {&first, &second}) {
        EXPECT_EQ(send(*to, file).status, 200);
        EXPECT_THAT(send(*to, get("/api/summary")).body, testing::HasSubstr(R"("records":300,)"));
    }
    EXPECT_EQ(stored("SELECT count(*), count(DISTINCT body), count(DISTINCT f.id) "
                     "FROM information i JOIN record_facts f ON f.id = i.id"),
              (table{{"300", "300", "300"}}));
    EXPECT_EQ(QDir("files").entryList(QDir::Files).filter("_scan.zip").size(), 2);
}

TEST_P(collector_postgresql, answers_failed_while_the_database_is_away_then_carries_on) {
    collector_process collector("away", on("away"));
    const request record = post("/d?type=usage", R"({"n":1})", test_app_id);
    EXPECT_EQ(send(collector, record).body, ok);
    ASSERT_TRUE(cluster("stop"));
    std::shared_ptr<void> restart(nullptr, [](void*) { cluster("start"); });  // also on failure
    for (const auto& [sent, why] : std::vector<std::pair<request, std::string>>{
             {record, "store: "}, {get("/api/summary"), "read the database: "}}) {
        const auto res = send(collector, sent);
        EXPECT_EQ(res.status, 500);
        EXPECT_THAT(res.body,
                    testing::StartsWith(R"({"status":"failed","result":"could not )" + why));
    }
    EXPECT_EQ(upload("host", collector, 1).stop(0, 30000).exit_code, 1);  // the record is kept
    ASSERT_TRUE(cluster("start"));
    EXPECT_EQ(send(collector, record).body, ok);
    EXPECT_EQ(upload("host", collector).stop(0, 30000).exit_code, 0);
    EXPECT_EQ(stored("SELECT body FROM information ORDER BY id"),
              (table{{R"({"n":1})"}, {R"({"n":1})"}, {R"({"record":"host-0"})"}}));
    EXPECT_EQ(collector.stop(SIGTERM).exit_code, 0);  // with LeakSanitizer: nothing leaked
}

}  // namespace
