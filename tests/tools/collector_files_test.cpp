// information_collector: file uploads, descriptors and installer files.
#include <gtest/gtest.h>
#include <httplib.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include "tool_process.h"

namespace {

using tool_test::collector_process;
using tool_test::write_text;

const char* const test_app_id = "3c1f9a7e55d04b28a6e2f0b9d4c87a13";

httplib::Result post_file(collector_process& collector, const char* app_id,
                          const std::string& part_name, const std::string& content) {
    httplib::Client client("127.0.0.1", collector.port());
    httplib::Headers headers{{"X-Auth-AppID", app_id}};
    httplib::MultipartFormDataItems items{
        {part_name, content, "report.zip", "application/octet-stream"}};
    return client.Post("/up?category=feedback&bucket=pub", headers, items);
}

httplib::Result get(collector_process& collector, const std::string& target) {
    httplib::Client client("127.0.0.1", collector.port());
    return client.Get(target.c_str());
}

TEST(collector_files, stores_an_uploaded_file_and_answers_its_dfs_id) {
    collector_process collector("collector");
    const std::string content("zip\0bytes", 9);
    auto res = post_file(collector, test_app_id, "file", content);
    ASSERT_TRUE(res);
    const auto match =
        QRegularExpression(R"re(^\{"status":"success","result":\{"dfs_id":"([0-9a-f]{32})"\}\}$)re")
            .match(QString::fromStdString(res->body));
    ASSERT_TRUE(match.hasMatch()) << res->body;

    const auto rows =
        collector.query("SELECT dfs_id, category, bucket, file_name, size, stored_path FROM files");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0][0], match.captured(1).toStdString());
    EXPECT_EQ(rows[0][1], "feedback");
    EXPECT_EQ(rows[0][2], "pub");
    EXPECT_EQ(rows[0][3], "report.zip");
    EXPECT_EQ(rows[0][4], "9");
    QFile stored(QString::fromStdString(rows[0][5]));
    ASSERT_TRUE(stored.open(QIODevice::ReadOnly)) << rows[0][5];
    EXPECT_EQ(stored.readAll().toStdString(), content);
}

TEST(collector_files, refuses_uploads_with_an_unknown_app_id_or_without_a_file_part) {
    collector_process collector("collector");
    auto wrong_id = post_file(collector, "0123", "file", "x");
    auto no_file = post_file(collector, test_app_id, "attachment", "x");
    ASSERT_TRUE(wrong_id && no_file);
    EXPECT_EQ(wrong_id->status, 200);
    EXPECT_EQ(wrong_id->body, R"({"status":"failed","result":"unknown application id"})");
    EXPECT_EQ(no_file->body, R"({"status":"failed","result":"no form part named file"})");
    EXPECT_TRUE(collector.query("SELECT id FROM files").empty());
    EXPECT_TRUE(QDir("collector/collector_files").isEmpty());
}

TEST(collector_files, serves_descriptors_as_stored_and_404_for_missing_ones) {
    write_text("software/scanner-2/interface.json", R"({"version":"2.0.1"})");
    write_text("software/broken/interface.json", "<html>oops</html>");
    collector_process collector("collector", {"--software-dir", "../software"});

    auto found = get(collector, "/software/scanner-2/interface.json");
    auto broken = get(collector, "/software/broken/interface.json");
    auto missing = get(collector, "/software/nothing/interface.json");
    ASSERT_TRUE(found && broken && missing);
    EXPECT_EQ(found->status, 200);
    EXPECT_EQ(found->body, R"({"version":"2.0.1"})");
    EXPECT_EQ(found->get_header_value("Content-Type"), "application/json;charset=utf-8");
    EXPECT_EQ(broken->body, "<html>oops</html>");
    EXPECT_EQ(missing->status, 404);
    EXPECT_EQ(missing->body,
              R"({"status":"failed","result":"no descriptor for software nothing"})");
}

TEST(collector_files, serves_installers_with_their_length_and_nothing_outside_the_folder) {
    QByteArray installer(256 * 1024 + 7, '\0');
    for (int i = 0; i < installer.size(); ++i) installer[i] = char(i * 31);
    write_text("installers/setup.exe", installer);
    write_text("secret.txt", "not served");
    collector_process collector("collector", {"--files-dir", "../installers"});

    auto found = get(collector, "/files/setup.exe");
    auto missing = get(collector, "/files/other.exe");
    auto escaping = get(collector, "/files/../secret.txt");
    ASSERT_TRUE(found && missing && escaping);
    EXPECT_EQ(found->status, 200);
    EXPECT_EQ(found->get_header_value("Content-Length"), std::to_string(installer.size()));
    EXPECT_EQ(found->body, installer.toStdString());
    EXPECT_EQ(missing->status, 404);
    EXPECT_EQ(missing->body, R"({"status":"failed","result":"no file other.exe"})");
    EXPECT_EQ(escaping->status, 404);
    EXPECT_EQ(escaping->body.find("not served"), std::string::npos);
    EXPECT_TRUE(collector.tool().wait_for_output(
        QString("GET /files/setup.exe -> 200 (%1 bytes)").arg(installer.size())));
}

TEST(collector_files, unknown_routes_get_a_failed_404) {
    collector_process collector("collector");
    auto res = get(collector, "/nothing/here");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 404);
    EXPECT_EQ(res->body, R"({"status":"failed","result":"not found"})");
}

}  // namespace
