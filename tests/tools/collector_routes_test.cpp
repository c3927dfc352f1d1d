// information_collector's routes: what each kind of request is answered,
// what is stored, what is refused, and which files its folders serve.
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include "collector_backend.h"

namespace {

using namespace collector_test;
using tool_test::collector_process;
using tool_test::write_text;

long peak_resident_kib(qint64 pid) {
    QFile status(QString("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly)) return -1;
    return QRegularExpression("VmHWM:\\s*(\\d+)").match(status.readAll()).captured(1).toLong();
}

struct exchange {
    const char* name;
    request sent;
    int status;
    std::string answer;  // the whole body, or a regular expression when it starts with ^
};

// Returns the bodies of the answers.
std::vector<std::string> expect_answers(int port, const std::vector<exchange>& table) {
    std::vector<std::string> bodies;
    for (const exchange& row : table) {
        SCOPED_TRACE(row.name);
        const auto res = send(port, row.sent);
        bodies.push_back(res ? res->body : std::string());
        EXPECT_EQ(res ? res->status : -1, row.status);
        EXPECT_TRUE(row.answer[0] == '^' ? QRegularExpression(QString::fromStdString(row.answer))
                                               .match(QString::fromStdString(bodies.back()))
                                               .hasMatch()
                                         : bodies.back() == row.answer)
            << bodies.back().substr(0, 300);
    }
    return bodies;
}

class collector_routes : public on_each_database {};
ON_DATABASES(collector_routes, "sqlite", "postgresql");

TEST_P(collector_routes, answer_each_kind_of_request_and_store_what_they_carry) {
    QByteArray installer(256 * 1024 + 7, '\0');
    for (int i = 0; i < installer.size(); ++i) installer[i] = char(i * 31);
    write_text("installers/setup.exe", installer);
    write_text("software/scanner-2/interface.json", R"({"version":"2.0.1"})");
    write_text("software/broken/interface.json", "<html>oops</html>");
    collector_process collector("answers", on("answers", {"--software-dir", "../software",
                                                          "--files-dir", "../installers"}));
    // Large enough that holding it whole would show in the collector's memory.
    std::string content(64 << 20, 'z');
    content[1] = '\0';
    const long memory_before = peak_resident_kib(collector.tool().pid());
    const std::string ok = R"({"status":"success"})";
    const std::string dfs_id = R"(^\{"status":"success","result":\{"dfs_id":"[0-9a-f]{32}"\}\}$)";
    // clang-format off
    const auto bodies = expect_answers(collector.port(), {
        {"information", {"POST", "/dtta?type=usage", test_app_id, json_type, R"({"a":1})"}, 200, ok},
        {"release id", {"POST", "/dtta?type=scan", release_app_id, json_type, R"({"b":2})"}, 200, ok},
        {"file", {"POST", "/up?category=feedback&bucket=pub", test_app_id, form_type,
                  form({{"file", "report.zip", content}})}, 200, dfs_id},
        {"file after another part", {"POST", "/up", test_app_id, form_type,
                  form({{"note", "n.txt", "passed over"}, {"file", "b.zip", "b"}})}, 200, dfs_id},
        {"descriptor", get("/software/scanner-2/interface.json"), 200, R"({"version":"2.0.1"})"},
        {"descriptor as stored", get("/software/broken/interface.json"), 200, "<html>oops</html>"},
        {"no descriptor", get("/software/none/interface.json"), 404,
                  failed("no descriptor for software none")},
        {"installer", get("/files/setup.exe"), 200, installer.toStdString()},
        {"no installer", get("/files/other.exe"), 404, failed("no file other.exe")},
        {"unknown route", get("/nothing/here"), 404, failed("not found")},
    });
    // clang-format on
    EXPECT_EQ(stored("SELECT app_id, type, body, CASE WHEN received_at LIKE "
                     "'____-__-__T__:__:__Z' THEN 1 END FROM information ORDER BY id"),
              (table{{test_app_id, "usage", R"({"a":1})", "1"},
                     {release_app_id, "scan", R"({"b":2})", "1"}}));
    const auto files =
        stored("SELECT dfs_id, app_id, category, bucket, file_name, size, stored_path FROM files");
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(std::vector<std::string>(files[0].begin(), files[0].end() - 1),
              (std::vector<std::string>{bodies[2].substr(40, 32), test_app_id, "feedback", "pub",
                                        "report.zip", std::to_string(content.size())}));
    EXPECT_EQ(files[1][4], "b.zip");
    QFile stored(QString::fromStdString(files[0][6]));
    ASSERT_TRUE(stored.open(QIODevice::ReadOnly)) << files[0][6];
    EXPECT_TRUE(stored.readAll().toStdString() == content);
    EXPECT_LT(peak_resident_kib(collector.tool().pid()) - memory_before, 16 * 1024);
    for (const QString& line :
         {"POST /dtta?type=scan app " + QString(release_app_id) + " -> 200 " + ok.c_str(),
          "GET /nothing/here -> 404 " + QString(failed("not found").c_str()),
          QString("GET /files/setup.exe -> 200 (%1 bytes)").arg(installer.size())})
        EXPECT_TRUE(collector.tool().wait_for_output(line)) << line.toStdString();
    // One line per request, printed by the thread that served it once the answer is out.
    EXPECT_EQ(collector.tool().output().split('\n').filter(" -> ").size(), 10);
}

TEST_P(collector_routes, refusals_say_what_was_wrong_and_keep_nothing) {
    const char* const own_id = "feedfeedfeedfeedfeedfeedfeedfeed";
    collector_process collector("refusals",
                                on("refusals", {"--app-id", own_id, "--max-body", "64K"}));
    const std::string big(70 * 1024, 'x');
    const std::string one_file = form({{"file", "a.zip", "a"}});
    const std::string too_large = failed("request body larger than 65536 bytes");
    // clang-format off
    expect_answers(collector.port(), {
        {"an id --app-id replaced", {"POST", "/d?type=u", test_app_id, json_type, "{}"}, 200,
                failed("unknown application id")},
        {"no id", {"POST", "/d?type=u", "", json_type, "{}"}, 200, failed("unknown application id")},
        {"not JSON", {"POST", "/d?type=u", own_id, json_type, R"({"a":)"}, 200,
                failed("body is not JSON: unterminated object")},
        {"a repeated name over an object", {"POST", "/d?type=u", own_id, json_type,
                R"({"a":{"b":1},"a":1})"}, 200,
                failed("body is not JSON: a name repeated over an array or object")},
        {"no type", {"POST", "/d", own_id, json_type, "{}"}, 200, failed("no type given")},
        {"information too large", {"POST", "/d?type=u", own_id, json_type, big}, 413, too_large},
        {"file, unknown id", {"POST", "/up", release_app_id, form_type, one_file}, 200,
                failed("unknown application id")},
        {"no file part", {"POST", "/up", own_id, form_type, form({{"f", "a.zip", "a"}})}, 200,
                failed("no form part named file")},
        {"two file parts", {"POST", "/up", own_id, form_type,
                form({{"file", "a.zip", "a"}, {"file", "b.zip", "b"}})}, 200,
                failed("more than one form part named file")},
        {"no boundary", {"POST", "/up", own_id, "multipart/form-data", one_file}, 400,
                failed("malformed multipart body")},
        {"cut short", {"POST", "/up", own_id, form_type, one_file.substr(0, 60)}, 400,
                failed("malformed multipart body")},
        {"file too large", {"POST", "/up", own_id, form_type, form({{"file", "b", big}})}, 413,
                too_large},
        {"another method", {"PUT", "/up", own_id, json_type, "{}"}, 405, failed("method not allowed")},
        {"a page of another site (DNS rebinding)", {"GET", "/api/summary", "", "", "", "a.example:80"},
                421, failed("unknown host")},
        {"a name of this machine", {"GET", "/x", "", "", "", "LocalHost:1"}, 404, failed("not found")},
        {"served after all that", {"POST", "/d?type=u", own_id, json_type, "{}"}, 200,
                R"({"status":"success"})"},
    });
    // clang-format on
    EXPECT_EQ(stored("SELECT count(*) FROM information UNION ALL SELECT count(*) FROM files"),
              (table{{"1"}, {"0"}}));
    EXPECT_TRUE(QDir("refusals/collector_files").isEmpty());
}

TEST(collector_routes, serve_nothing_outside_their_folders) {
    write_text("served/setup.exe", "setup");
    write_text("served/sub/readme.txt", "readme");
    write_text("secret.txt", "not served");
    write_text("elsewhere/interface.json", R"({"not":"served"})");
    QFile::link(QDir::current().filePath("secret.txt"), "served/out-link.txt");
    QFile::link("setup.exe", "served/in-link.exe");
    QDir().mkpath("software");
    QFile::link(QDir::current().filePath("elsewhere"), "software/out");
    collector_process collector("folders",
                                {"--software-dir", "../software", "--files-dir", "../served"});
    for (const auto& row : std::vector<std::pair<std::string, std::string>>{
             {"/files/setup.exe", "setup"},
             {"/files/in-link.exe", "setup"},
             {"/files/sub/readme.txt", "readme"},
             {"/files/../secret.txt", ""},
             {"/files/%2e%2e/secret.txt", ""},
             {"/files/sub/../../secret.txt", ""},
             {"/files/out-link.txt", ""},
             {"/files/sub", ""},
             {"/files/setup.exe%00.txt", ""},
             {"/software/out/interface.json", ""},
             {"/software/../elsewhere/interface.json", ""}}) {
        SCOPED_TRACE(row.first);
        const auto res = send(collector.port(), get(row.first));
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, row.second.empty() ? 404 : 200);
        EXPECT_EQ(res->body.substr(0, row.second.size()), row.second);
        EXPECT_EQ(res->body.find("served"), std::string::npos) << res->body;
    }
}

}  // namespace
