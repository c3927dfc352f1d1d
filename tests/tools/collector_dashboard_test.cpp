// information_collector's dashboard answers: what they count of records
// stored before the collector started and of records posted to it, under
// each filter; the page and its assets; uploaded files as downloads.
#include <signal.h>

#include "collector_fixture.h"

namespace {

using namespace collector_test;

std::string usage(const std::string& os, const std::string& hardware = "") {
    return R"({"softwareVer":"1.4.2","modelName":"scanner-a","osSoftExt":{"osName":")" + os +
           R"(","lang":"de_DE","resolution":"1920*1080"},"osHdExt":{)" + hardware + "}}";
}

ON_DATABASES(collector_dashboard, "sqlite", "postgresql");

TEST_P(collector_dashboard, answers_count_stored_and_posted_records_under_each_filter) {
    const QStringList arguments = on("dashboard");
    collector_process("dashboard", arguments).stop(SIGTERM);  // makes the tables
    // Stored by an older collector: no facts, or those of an older version.
    const std::string version = GetParam() == "sqlite" ? "PRAGMA user_version = 0;"
                                                       : "UPDATE collector_schema SET version = 0;";
    EXPECT_EQ(stored(version +
                     "DROP TABLE record_facts; CREATE TABLE record_facts (id INTEGER PRIMARY KEY, "
                     "os_name TEXT); INSERT INTO record_facts VALUES (1, 'stale'); INSERT INTO "
                     "information (received_at, app_id, type, body) VALUES "
                     "('2026-01-05T10:00:00Z', 'old-app', 'usage', '" +
                     usage("Windows 10", R"("cpu":[{"cpuModel":"i7"}],"memSize":8000000000,)"
                                         R"("gpu":[{"gpuModel":"RTX"},{"gpuModel":"UHD"}])") +
                     "'), ('2026-01-06T10:00:00Z', 'old-app', 'usage', '" +
                     R"({"osSoftExt":{"osName":"x"},"osSoftExt":{"osName":"repeated"}})" +
                     "'), ('2026-01-07T10:00:00Z', 'old-app', 'scan', '" +
                     R"({"osSoftExt":{"osName":"deep"},"x":)" + std::string(300, '[') +
                     std::string(300, ']') + "}');"),
              table{});
    collector_process collector("dashboard", arguments);
    EXPECT_TRUE(collector.output().contains("figures taken from 3 stored records"));
    const auto store = [&](const std::string& type, const std::string& body, const char* app) {
        EXPECT_EQ(send(collector, post("/d?type=" + type, body, app)).body, ok);
    };
    for (int i = 0; i < 12; ++i) store("usage", usage("os-" + std::to_string(i % 11)), test_app_id);
    store("usage", R"({"osSoftExt":{"osName":42},"osHdExt":{"memSize":"lots"}})", test_app_id);
    for (const char* score : {"9", "3", "9", "\"9\""})
        store("score", std::string(R"({"content":{"score":)") + score + "}}", test_app_id);
    const std::string feedback =
        R"({"content":{"email":"a@example.com","content":"<b>Great</b>","attachs":["v.png"]}})";
    store("feedback", feedback, release_app_id);
    const auto file = send(collector, form({{"file", "vase scan.png", "png!"}}, test_app_id));
    const std::string kept_as = file.body.substr(40, 32) + "_vase%20scan.png";

    // Each row: a target, the status and fragments of the body it is answered.
    // clang-format off
    const std::vector<std::tuple<std::string, int, std::vector<std::string>>> table{
        {"/api/summary", 200, {R"("records":21)",
            R"("days":["2026-01-05","2026-01-06","2026-01-07",")",
            R"({"per_day":[1,1,0,13],"total":15,"type":"usage"})",
            R"("known_types":["usage","score",)",
            R"("known_apps":[")" + std::string(test_app_id) + R"(","old-app",")"}},
        {"/api/summary?type=score&app=" + std::string(test_app_id), 200, {R"("records":4,)"}},
        {"/api/summary?since=2026-01-06&until=2026-01-07", 200, {R"("records":1,)"}},
        {"/api/summary?since=2100", 200, {R"("days":[],"known_apps")", R"("records":0,)"}},
        {"/api/distributions", 200, {R"("basis":"usage")", R"("records":15)",
            R"~("os":[["(not given)",2],["os-0",2],["Windows 10",1],["os-1",1],)~",
            R"~(["os-6",1],["(other)",3]],)~",
            R"~("memory":[["(not given)",14],["8 GiB",1]])~",
            R"~("gpu":[["(not given)",14],["RTX",1],["UHD",1]])~", R"("scores":[[3,1],[9,2]])"}},
        {"/api/distributions?type=scan", 200, {R"~("os":[["(not given)",1]])~",
            R"("records":1,"scores":[]})"}},
        {"/api/records?limit=2&offset=1", 200, {R"("offset":1,"records":[{"app_id":")",
            R"("id":20,)", R"("id":19,)", R"("total":21})"}},
        {"/api/records?type=usage&app=old-app&limit=x", 200,
            {R"("id":2,"model":"","received_at":"2026-01-06T10:00:00Z",)"
                R"("software_version":"","type":"usage"})",
             R"("id":1,"model":"scanner-a",)", R"("total":2})"}},
        {"/api/records/21", 200, {feedback}},
        {"/api/records/99", 404, {failed("no such record")}},
        {"/api/feedback", 200, {R"({"feedback":[{"app_id":")" + std::string(release_app_id) +
            R"(","attachments":["v.png"],"email":"a@example.com","id":21,)",
            R"("text":"<b>Great</b>"}]})"}},
        {"/api/feedback?type=usage", 200, {R"({"feedback":[]})"}},
        {"/api/files", 200, {R"({"bytes":4,"count":1,"files":[{"app_id":")",
            R"("download":"/dashboard/uploads/)" + kept_as + R"(","name":"vase scan.png",)",
            R"("size":4}]})"}},
        {"/dashboard/uploads/" + kept_as, 200, {"png!"}},
        {"/dashboard/uploads/../collector.sqlite", 404, {}},
        {"/", 200, {"<!DOCTYPE html>", R"(<script src="/dashboard/chart.min.js">)"}},
        {"/dashboard/other.js", 404, {failed("not found")}},
    };
    // clang-format on
    for (const auto& [target, status, fragments] : table) {
        SCOPED_TRACE(target);
        const auto res = send(collector, get(target));
        EXPECT_EQ(res.status, status);
        for (const std::string& fragment : fragments)
            EXPECT_NE(res.body.find(fragment), std::string::npos) << fragment << "\n" << res.body;
        if (status != 200) continue;
        EXPECT_EQ(res.get_header_value("Content-Security-Policy").rfind("default-src 'self';", 0),
                  0u);
        // Uploads are offered as downloads, never shown in the page's origin.
        EXPECT_EQ(res.get_header_value("Content-Disposition").substr(0, 12),
                  target.find("/uploads/") != std::string::npos ? "attachment; " : "");
    }
    const auto stopped = collector.stop(SIGTERM);  // with LeakSanitizer: nothing leaked
    EXPECT_EQ(stopped.exit_code, 0) << stopped.err.toStdString();
    // The page's polling is not printed; what it could not answer is.
    EXPECT_TRUE(stopped.out.contains("GET /api/records/99 -> 404"));
    EXPECT_FALSE(stopped.out.contains("GET /api/summary"));
}

}  // namespace
