// information_collector's routes: what each kind of request is answered,
// what is stored, what is refused, and which files its folders serve.
#include <QRegularExpression>

#include "collector_fixture.h"
#include "local_server.h"

namespace {

using namespace collector_test;
using tool_test::write_text;

long peak_resident_kib(qint64 pid) {
    QFile status(QString("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly)) return -1;
    return QRegularExpression("VmHWM:\\s*(\\d+)").match(status.readAll()).captured(1).toLong();
}

// A POST of text sent with Content-Encoding: deflate (a zlib stream).
request deflated(const std::string& target, const std::string& text, const char* app_id) {
    const QByteArray packed = qCompress(QByteArray::fromStdString(text)).mid(4);  // less the length
    request sent = post(target, packed.toStdString(), app_id);
    sent.encoding = "deflate";
    return sent;
}

// A row: its name, the request, and the status and body of the answer.
using exchange = std::tuple<const char*, request, int, testing::Matcher<std::string>>;

// Returns the bodies of the answers.
std::vector<std::string> expect_answers(const collector_process& to,
                                        const std::vector<exchange>& table) {
    std::vector<std::string> bodies;
    for (const auto& [name, sent, status, body] : table) {
        const auto res = send(to, sent);
        bodies.push_back(res.body);
        EXPECT_EQ(res.status, status) << name;
        EXPECT_THAT(res.body, body) << name;
    }
    return bodies;
}

ON_DATABASES(collector_routes, "sqlite", "postgresql");

// Over HTTPS, which no other test speaks.
TEST_P(collector_routes, answer_each_kind_of_request_and_store_what_they_carry) {
    std::string installer(256 * 1024 + 7, '\0');
    for (size_t i = 0; i < installer.size(); ++i) installer[i] = char(i * 31);
    write_text("installers/setup.exe", QByteArray::fromStdString(installer));
    write_text("installers/sub/readme.txt", "readme");
    write_text("software/scanner-2/interface.json", R"({"version":"2.0.1"})");
    write_text("software/broken/interface.json", "<html>oops</html>");
    // Links and paths that lead out of the served folders.
    write_text("elsewhere/interface.json", R"({"not":"served"})");
    QFile::link(QDir::current().filePath("elsewhere"), "software/out");
    QFile::link(QDir::current().filePath("elsewhere/interface.json"), "installers/out-link.txt");
    QFile::link("setup.exe", "installers/in-link.exe");
    const auto tls = test_support::make_self_signed_certificate(QDir::currentPath().toStdString());
    collector_process collector(
        "answers", on("answers", {"--software-dir", "../software", "--files-dir", "../installers",
                                  "--cert", tls.certificate.c_str(), "--key", tls.key.c_str()}));
    ASSERT_TRUE(collector.url().startsWith("https://127.0.0.1:"));
    // Large enough that holding it whole would show in the collector's memory.
    std::string content(64 << 20, 'z');
    content[1] = '\0';
    const long memory_before = peak_resident_kib(collector.pid());
    const auto dfs_id =
        testing::MatchesRegex(R"(\{"status":"success","result":\{"dfs_id":"[0-9a-f]{32}"\}\})");
    // clang-format off
    const auto bodies = expect_answers(collector, {
        {"information", post("/dtta?type=usage", R"({"a":1})", test_app_id), 200, ok},
        {"release id", post("/dtta?type=scan", R"({"b":2})", release_app_id), 200, ok},
        {"file", form({{"file", "report.zip", content}}, test_app_id, "/up?category=feedback&bucket=pub"), 200, dfs_id},
        {"file after another part", form({{"note", "n.txt", "passed over"}, {"file", "b.zip", "b"}}, test_app_id), 200, dfs_id},
        {"descriptor", get("/software/scanner-2/interface.json"), 200, R"({"version":"2.0.1"})"},
        {"descriptor as stored", get("/software/broken/interface.json"), 200, "<html>oops</html>"},
        {"no descriptor", get("/software/none/interface.json"), 404, failed("no descriptor for software none")},
        {"descriptor through a link", get("/software/out/interface.json"), 404, failed("no descriptor for software out")},
        {"descriptor up a folder", get("/software/../elsewhere/interface.json"), 404, failed("not found")},
        {"installer", get("/files/setup.exe"), 200, installer},
        {"link to an installer", get("/files/in-link.exe"), 200, installer},
        {"file in a subfolder", get("/files/sub/readme.txt"), 200, "readme"},
        {"no installer", get("/files/other.exe"), 404, failed("no file other.exe")},
        {"up a folder", get("/files/../interface.json"), 404, failed("no file ../interface.json")},
        {"up a folder, encoded", get("/files/%2e%2e/interface.json"), 404, failed("no file ../interface.json")},
        {"up two folders", get("/files/sub/../../interface.json"), 404, failed("no file sub/../../interface.json")},
        {"link out", get("/files/out-link.txt"), 404, failed("no file out-link.txt")},
        {"a folder", get("/files/sub"), 404, failed("no file sub")},
        {"a NUL", get("/files/setup.exe%00.txt"), 404, failed("no file setup.exe\\u0000.txt")},
        {"unknown route", get("/nothing/here"), 404, failed("not found")},
        {"information, deflated", deflated("/dtta?type=usage", R"({"c":3})", test_app_id), 200, ok},
    });
    // clang-format on
    EXPECT_EQ(stored("SELECT app_id, type, body, CASE WHEN received_at LIKE "
                     "'____-__-__T__:__:__Z' THEN 1 END FROM information ORDER BY id"),
              (table{{test_app_id, "usage", R"({"a":1})", "1"},
                     {release_app_id, "scan", R"({"b":2})", "1"},
                     {test_app_id, "usage", R"({"c":3})", "1"}}));
    const std::string size = std::to_string(content.size());
    EXPECT_EQ(stored("SELECT dfs_id, app_id, category, bucket, file_name, size FROM files "
                     "ORDER BY id"),
              (table{{bodies[2].substr(40, 32), test_app_id, "feedback", "pub", "report.zip", size},
                     {bodies[3].substr(40, 32), test_app_id, "", "", "b.zip", "1"}}));
    QFile kept(QString::fromStdString(stored("SELECT stored_path FROM files ORDER BY id")[0][0]));
    EXPECT_TRUE(kept.open(QIODevice::ReadOnly) && kept.readAll().toStdString() == content);
    EXPECT_LT(peak_resident_kib(collector.pid()) - memory_before, 16 * 1024);
    for (const QString& line :
         {"POST /dtta?type=scan app " + QString(release_app_id) + " -> 200 " + ok.c_str(),
          "GET /nothing/here -> 404 " + QString(failed("not found").c_str()),
          QString("GET /files/setup.exe -> 200 (%1 bytes)").arg(installer.size())})
        EXPECT_TRUE(collector.wait_for_output(line)) << line.toStdString();
    // One line per request, printed by the thread that served it once the answer is out.
    EXPECT_EQ(collector.output().split('\n').filter(" -> ").size(), int(bodies.size()));
}

TEST_P(collector_routes, refusals_say_what_was_wrong_and_keep_nothing) {
    const char* const own_id = "feedfeedfeedfeedfeedfeedfeedfeed";
    collector_process collector("refusals",
                                on("refusals", {"--app-id", own_id, "--max-body", "64K"}));
    const std::string big(70 * 1024, 'x');
    const request one_file = form({{"file", "a.zip", "a"}}, own_id);
    const std::string too_large = failed("request body larger than 65536 bytes");
    const std::string unknown_id = failed("unknown application id");
    const std::string malformed = failed("malformed multipart body");
    // clang-format off
    expect_answers(collector, {
        {"an id --app-id replaced", post("/d?type=u", "{}", test_app_id), 200, unknown_id},
        {"no id", post("/d?type=u", "{}", ""), 200, unknown_id},
        {"not JSON", post("/d?type=u", R"({"a":)", own_id), 200, failed("body is not JSON: unterminated object")},
        {"a repeated name over an object", post("/d?type=u", R"({"a":{"b":1},"a":1})", own_id), 200,
                failed("body is not JSON: a name repeated over an array or object")},
        {"no type", post("/d", "{}", own_id), 200, failed("no type given")},
        {"information too large", post("/d?type=u", big, own_id), 413, too_large},
        {"file, unknown id", form({{"file", "a.zip", "a"}}, release_app_id), 200, unknown_id},
        {"no file part", form({{"f", "a.zip", "a"}}, own_id), 200, failed("no form part named file")},
        {"two file parts", form({{"file", "a.zip", "a"}, {"file", "b.zip", "b"}}, own_id), 200,
                failed("more than one form part named file")},
        {"no boundary", {"POST", "/up", own_id, "multipart/form-data", one_file.body}, 400, malformed},
        {"cut short", {"POST", "/up", own_id, one_file.content_type, one_file.body.substr(0, 60)}, 400, malformed},
        {"file too large", form({{"file", "b", big}}, own_id), 413, too_large},
        {"another method", {"PUT", "/up", own_id, "application/json", "{}"}, 405, failed("method not allowed")},
        {"a page of another site (DNS rebinding)", {"GET", "/api/summary", "", "", "", "a.example:80"},
                421, failed("unknown host")},
        {"a name of this machine", {"GET", "/x", "", "", "", "LocalHost:1"}, 404, failed("not found")},
        {"information deflated past the limit", deflated("/d?type=u", big, own_id), 413, too_large},
        {"another encoding", {"POST", "/d?type=u", own_id, "application/json", "{}", "", "br"}, 415,
                failed("unsupported content encoding br")},
        {"served after all that", post("/d?type=u", "{}", own_id), 200, ok},
    });
    // clang-format on
    EXPECT_EQ(stored("SELECT count(*) FROM information UNION ALL SELECT count(*) FROM files"),
              (table{{"1"}, {"0"}}));
    EXPECT_TRUE(QDir("refusals/collector_files").isEmpty());
}

}  // namespace
