// information_uploader descriptor, send-file and status against the
// collector, and its answer to bad arguments.
#include "local_server.h"
#include "uploader_fixture.h"

namespace {

using tool_test::collector_process;

struct command_row {
    QStringList arguments;
    int exit_code;
    QStringList lines;  // in the output; a failure prints nothing on stdout
};

class uploader_commands : public uploader_test {};

TEST_F(uploader_commands, each_command_prints_its_result_or_says_what_failed) {
    tool_test::write_text("software/scanner-2/interface.json", R"({"version":"2.0.1","size":5})");
    tool_test::write_text("software/broken/interface.json", "<html>maintenance</html>");
    collector_process collector("collector", {"--software-dir", "../software"});
    test_support::local_server refusing;
    refusing.answer_json("/up", R"({"status":"failed"})");
    refusing.start();
    configure(0, 7, "http://127.0.0.1:9/dtta", 90);
    for (const char* name : {"a.info2", "b.info2", "c.score2"}) add_record(name, "usage");
    const QString report = host + "/report.zip";
    tool_test::write_text(report, "zipped report");
    const QString cdn = collector.url();

    // clang-format off
    const command_row rows[] = {
        {{"descriptor", "scanner-2", "--cdn-url", cdn}, 0, {R"("version": "2.0.1")", R"("size": 5)"}},
        {{"descriptor", "nothing", "--cdn-url", cdn}, 1,
         {"descriptor: cannot fetch " + cdn + "/software/nothing/interface.json"}},
        {{"descriptor", "broken", "--cdn-url", cdn}, 1, {"is not a JSON document"}},
        {{"send-file", report, "--file-url", collector.url("/up")}, 0, {}},
        {{"send-file", host + "/none.zip", "--file-url", cdn}, 1,
         {"send-file: cannot read " + host + "/none.zip"}},
        {{"send-file", report, "--file-url", refusing.url("/up")}, 1,
         {"send-file: the service refused " + report}},
        {{"status"}, 0, {"uploading:         off", "interval:          90 s",
                         "time-out:          7 s", "information URL:   http://127.0.0.1:9/dtta",
                         "application id:    a94e07b3c2d851f6e0b7a4c39d2f6e58",
                         "due records:       2", "score files:       1"}},
    };
    // clang-format on
    QString stored_id;
    for (const command_row& row : rows) {
        const auto result = uploader(row.arguments);
        SCOPED_TRACE(shown(result));
        EXPECT_EQ(result.exit_code, row.exit_code);
        EXPECT_TRUE(holds_all(result.out + result.err, row.lines));
        EXPECT_TRUE(row.exit_code == 0 || result.out.isEmpty());
        if (row.arguments[0] == "send-file" && row.exit_code == 0) stored_id = result.out.trimmed();
    }
    // send-file prints the id the service stored the file under, alone.
    EXPECT_EQ(collector.query("SELECT dfs_id, file_name, size, category FROM files"),
              (std::vector<std::vector<std::string>>{
                  {stored_id.toStdString(), "report.zip", "13", "feedback"}}));
}

TEST_F(uploader_commands, bad_arguments_give_usage_and_exit_2) {
    const QString url = "http://127.0.0.1:9/x";
    const QString sha(64, 'a');
    // clang-format off
    const QList<QPair<QStringList, QString>> bad{
        {{"frobnicate"}, "unknown command frobnicate"},
        {{"descriptor"}, "descriptor takes 1 argument(s)"},
        {{"download", url}, "download takes 2 argument(s)"},
        {{"upload", "--parallel", "0"}, "--parallel wants a number from 1 to 64"},
        {{"descriptor", "x", "--force"}, "--force applies to upload only"},
        {{"upload", "--watch", "--dry-run"}, "--watch and --dry-run do not go together"},
        {{"--no-such-option"}, "Unknown option 'no-such-option'"},
        {{"download", url, "x", "--sha256", sha.left(63) + "g"}, "--sha256 wants 64 hexadecimal"},
        {{"download", url, "x", "--size", "-1"}, "--size wants a number of bytes"},
        {{"status", "--sha256", sha}, "--sha256 applies to download only"},
        {{"status", "--ca-file", host + "/x.ini"}, "--ca-file: " + host + "/x.ini holds no PEM"},
        {{"status", "--workdir", host + "/missing"}, "--workdir: " + host + "/missing is not a"},
    };
    // clang-format on
    tool_test::write_text(host + "/x.ini", "[General]\n");
    for (const auto& row : bad) {
        const auto result = tool_test::run_tool(INFORMATION_UPLOADER_PATH, row.first);
        SCOPED_TRACE(row.first.join(' ').toStdString() + "\n" + shown(result));
        EXPECT_EQ(result.exit_code, 2);
        EXPECT_TRUE(holds_all(result.err, {row.second, "Usage:"}));
    }
}

}  // namespace
