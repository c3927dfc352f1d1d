// information_uploader descriptor, send-file and status against the
// collector, and its answer to bad arguments.
#include "local_server.h"
#include "uploader_fixture.h"

namespace {

struct command_row {
    QStringList arguments;
    int exit_code;
    QStringList lines;  // in the output; a failure prints nothing on stdout
};

class uploader_commands : public uploader_test {};

TEST_F(uploader_commands, each_command_prints_its_result_or_says_what_failed) {
    tool_test::write_text("software/scanner-2/interface.json", R"({"version":"2.0.1","size":5})");
    tool_test::write_text("software/broken/interface.json", "<html>maintenance</html>");
    tool_test::collector_process collector("collector", {"--software-dir", "../software"});
    test_support::local_server refusing;
    refusing.answer_json("/up", R"({"status":"failed"})");
    refusing.start();
    configure(0, 7, "http://127.0.0.1:9/dtta", 90);
    for (const char* name : {"a.info2", "b.info2", "c.score2"}) add_record(name, "usage");
    const QString report = host + "/report.zip", cdn = collector.url(), sha(64, 'a');
    tool_test::write_text(report, "zipped report");
    // clang-format off
    const command_row rows[] = {
        {{"descriptor", "scanner-2", "--cdn-url", cdn}, 0, {R"("version": "2.0.1")", R"("size": 5)"}},
        {{"descriptor", "nothing", "--cdn-url", cdn}, 1, {"descriptor: cannot fetch " + cdn + "/software/nothing/interface.json"}},
        {{"descriptor", "broken", "--cdn-url", cdn}, 1, {"is not a JSON document"}},
        {{"send-file", report, "--file-url", collector.url("/up")}, 0, {}},
        {{"send-file", host + "/none.zip", "--file-url", cdn}, 1, {"send-file: cannot read " + host + "/none.zip"}},
        {{"send-file", report, "--file-url", refusing.url("/up")}, 1, {"send-file: the service refused " + report}},
        {{"status"}, 0, {"uploading:         off", "interval:          90 s", "time-out:          7 s",
                         "information URL:   http://127.0.0.1:9/dtta", "application id:    a94e07b3c2d851f6e0b7a4c39d2f6e58",
                         "due records:       2", "score files:       1"}},
        {{"frobnicate"}, 2, {"unknown command frobnicate", "Usage:"}},
        {{"descriptor"}, 2, {"descriptor takes 1 argument(s)", "Usage:"}},
        {{"upload", "--parallel", "0"}, 2, {"--parallel wants a number from 1 to 64", "Usage:"}},
        {{"descriptor", "x", "--force"}, 2, {"--force applies to upload only", "Usage:"}},
        {{"status", "--sha256", sha}, 2, {"--sha256 applies to download only", "Usage:"}},
        {{"upload", "--watch", "--dry-run"}, 2, {"--watch and --dry-run do not go together", "Usage:"}},
        {{"--no-such-option"}, 2, {"Unknown option 'no-such-option'", "Usage:"}},
        {{"download", cdn, "x", "--sha256", sha.left(63) + "g"}, 2, {"--sha256 wants 64 hexadecimal", "Usage:"}},
        {{"download", cdn, "x", "--size", "-1"}, 2, {"--size wants a number of bytes", "Usage:"}},
        {{"status", "--ca-file", host + "/url_config.ini"}, 2, {"--ca-file: " + host + "/url_config.ini holds no PEM", "Usage:"}},
        {{"status", "--workdir", host + "/missing"}, 2, {"--workdir: " + host + "/missing is not a", "Usage:"}},
    };
    // clang-format on
    QString stored_id;
    for (const command_row& row : rows) {
        // A --workdir among the row's arguments comes later and wins.
        const auto result = tool_test::running_tool(INFORMATION_UPLOADER_PATH,
                                                    QStringList{"--workdir", host} + row.arguments)
                                .stop(0, 20000);
        EXPECT_TRUE(ended(result, row.exit_code, row.lines))
            << row.arguments.join(' ').toStdString();
        EXPECT_TRUE(row.exit_code == 0 || result.out.isEmpty());
        if (row.arguments[0] == "send-file" && row.exit_code == 0) stored_id = result.out.trimmed();
    }
    // send-file prints the id the service stored the file under, alone.
    EXPECT_EQ(collector.query("SELECT dfs_id, file_name, size, category FROM files"),
              (table{{stored_id.toStdString(), "report.zip", "13", "feedback"}}));
}

}  // namespace
