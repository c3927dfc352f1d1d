// information_uploader descriptor, send-file, download and status against the
// collector, and its answer to bad arguments.
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include "uploader_fixture.h"

namespace {

using tool_test::collector_process;
using tool_test::write_text;

class uploader_commands : public uploader_test {};

TEST_F(uploader_commands, descriptor_prints_the_document) {
    write_text("software/scanner-2/interface.json", R"({"version":"2.0.1","size":5})");
    collector_process collector("collector", {"--software-dir", "../software"});
    system_settings(1, 5);

    const auto result = uploader({"descriptor", "scanner-2", "--cdn-url", collector.url()});
    EXPECT_EQ(result.exit_code, 0) << shown(result);
    const QJsonObject printed = QJsonDocument::fromJson(result.out.toUtf8()).object();
    EXPECT_EQ(printed.value("version").toString(), "2.0.1") << shown(result);
    EXPECT_EQ(printed.value("size").toInt(), 5);
}

TEST_F(uploader_commands, descriptor_says_what_failed) {
    write_text("software/broken/interface.json", "<html>maintenance</html>");
    collector_process collector("collector", {"--software-dir", "../software"});
    system_settings(1, 5);

    const auto missing = uploader({"descriptor", "nothing", "--cdn-url", collector.url()});
    EXPECT_EQ(missing.exit_code, 1) << shown(missing);
    EXPECT_TRUE(missing.err.contains("descriptor: cannot fetch " +
                                     collector.url("/software/nothing/interface.json")))
        << shown(missing);
    EXPECT_TRUE(missing.out.isEmpty());

    const auto broken = uploader({"descriptor", "broken", "--cdn-url", collector.url()});
    EXPECT_EQ(broken.exit_code, 1) << shown(broken);
    EXPECT_TRUE(broken.err.contains("is not a JSON document")) << shown(broken);
}

TEST_F(uploader_commands, send_file_prints_the_stored_file_id) {
    collector_process collector("collector");
    system_settings(1, 5);
    write_text(host + "/report.zip", "zipped report");

    const auto result =
        uploader({"send-file", host + "/report.zip", "--file-url", collector.url("/up")});
    EXPECT_EQ(result.exit_code, 0) << shown(result);
    const QString id = result.out.trimmed();
    EXPECT_TRUE(QRegularExpression("^[0-9a-f]{32}$").match(id).hasMatch()) << shown(result);
    const auto rows = collector.query("SELECT dfs_id, file_name, size, category FROM files");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0],
              (std::vector<std::string>{id.toStdString(), "report.zip", "13", "feedback"}));
}

TEST_F(uploader_commands, send_file_says_what_failed) {
    collector_process collector("collector", {"--app-id", "00000000000000000000000000000000"});
    system_settings(1, 5);
    write_text(host + "/report.zip", "zipped report");

    const auto missing =
        uploader({"send-file", host + "/none.zip", "--file-url", collector.url("/up")});
    EXPECT_EQ(missing.exit_code, 1) << shown(missing);
    EXPECT_TRUE(missing.err.contains("send-file: cannot read " + host + "/none.zip"))
        << shown(missing);

    const auto refused =
        uploader({"send-file", host + "/report.zip", "--file-url", collector.url("/up")});
    EXPECT_EQ(refused.exit_code, 1) << shown(refused);
    EXPECT_TRUE(refused.err.contains("send-file: the service refused " + host + "/report.zip"))
        << shown(refused);
    EXPECT_TRUE(collector.query("SELECT id FROM files").empty());
}

TEST_F(uploader_commands, download_saves_the_file_and_prints_progress_lines) {
    QByteArray installer(512 * 1024, '\0');
    for (int i = 0; i < installer.size(); ++i) installer[i] = char(i * 7);
    write_text("installers/setup.exe", installer);
    collector_process collector("collector", {"--files-dir", "../installers"});
    system_settings(1, 5);

    const auto result =
        uploader({"download", collector.url("/files/setup.exe"), host + "/setup.exe"});
    EXPECT_EQ(result.exit_code, 0) << shown(result);
    // Not a terminal: plain lines, not a bar.
    EXPECT_TRUE(
        result.out.contains(QString("download: %1 of %1 bytes (100%)").arg(installer.size())))
        << shown(result);
    EXPECT_TRUE(result.out.contains(
        QString("download: saved %1/setup.exe (%2 bytes)").arg(host).arg(installer.size())))
        << shown(result);
    EXPECT_FALSE(result.out.contains('\r'));
    QFile saved(host + "/setup.exe");
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    EXPECT_EQ(saved.readAll(), installer);
}

TEST_F(uploader_commands, download_of_a_missing_file_ends_by_the_watchdog) {
    collector_process collector("collector", {"--files-dir", "."});
    system_settings(1, 1);

    const auto result =
        uploader({"download", collector.url("/files/none.exe"), host + "/none.exe"});
    EXPECT_EQ(result.exit_code, 1) << shown(result);
    EXPECT_TRUE(result.err.contains("download: no data from " + collector.url("/files/none.exe")))
        << shown(result);
    EXPECT_FALSE(QFile::exists(host + "/none.exe"));
}

TEST_F(uploader_commands, status_shows_configuration_and_counts) {
    system_settings(0, 7, 90);
    upload_address("http://127.0.0.1:9/dtta");
    add_record("a.info2", "usage");
    add_record("b.info2", "scan");
    add_record("c.score2", "score");

    const auto result = uploader({"status"});
    EXPECT_EQ(result.exit_code, 0) << shown(result);
    for (const char* line : {"uploading:         off", "interval:          90 s",
                             "time-out:          7 s", "information URL:   http://127.0.0.1:9/dtta",
                             "application id:    a94e07b3c2d851f6e0b7a4c39d2f6e58",
                             "due records:       2", "score files:       1"})
        EXPECT_TRUE(result.out.contains(line)) << line << "\n" << shown(result);
}

TEST_F(uploader_commands, bad_arguments_give_usage_and_exit_2) {
    const QList<QStringList> bad{
        {"frobnicate"},
        {"descriptor"},
        {"download", "http://127.0.0.1:9/x"},
        {"status", "extra"},
        {"upload", "--parallel", "0"},
        {"upload", "--parallel", "many"},
        {"status", "--watch"},
        {"descriptor", "x", "--force"},
        {"upload", "--watch", "--dry-run"},
        {"--no-such-option"},
    };
    for (const QStringList& arguments : bad) {
        const auto result = uploader(arguments);
        EXPECT_EQ(result.exit_code, 2) << arguments.join(' ').toStdString() << "\n"
                                       << shown(result);
        EXPECT_TRUE(result.err.contains("Usage:")) << shown(result);
    }
    const auto no_folder =
        tool_test::run_tool(INFORMATION_UPLOADER_PATH, {"status", "--workdir", host + "/missing"});
    EXPECT_EQ(no_folder.exit_code, 2) << shown(no_folder);
    EXPECT_TRUE(no_folder.err.contains("is not a folder")) << shown(no_folder);
}

}  // namespace
