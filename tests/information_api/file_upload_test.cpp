#include <QDir>

#include "entry_point_fixture.h"
#include "http/http_connector.h"

namespace test_support {
namespace {

using file_upload_test = entry_point_test;

constexpr char kSuffixTarget[] = "/up?category=feedback&bucket=pub";

// The single multipart part the server's own parser saw.
const httplib::MultipartFormData& only_part(const received_request& request) {
    EXPECT_EQ(request.files.size(), 1u);
    EXPECT_EQ(request.files.count("file"), 1u);
    static const httplib::MultipartFormData none{};
    const auto it = request.files.find("file");
    return it == request.files.end() ? none : it->second;
}

TEST_F(file_upload_test, sends_one_file_part_with_the_bare_name_and_exact_bytes) {
    server_.answer_json("/up", R"({"status":"success","result":{"dfs_id":"abc"}})");
    server_.start();
    const QString path = QDir::current().filePath("reports/2024/report.zip");
    const QByteArray bytes = sample_bytes(300 * 1024);
    write_file(path, bytes);

    // The fourth argument never changes the address.
    EXPECT_EQ(api::upload_file(server_.url("/up"), path, "app-3", "", &sink_, 31, 5000), 0);
    EXPECT_EQ(api::upload_file(server_.url("/up"), path, "app-3", "category=other&bucket=x", &sink_,
                               32, 5000),
              0);

    ASSERT_TRUE(server_.wait_for_requests(2));
    for (const received_request& request : server_.requests()) {
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.target, kSuffixTarget);
        EXPECT_EQ(request.header("X-Auth-AppID"), "app-3");
        EXPECT_EQ(request.header("Content-Type").rfind("multipart/form-data; boundary=", 0), 0u);
        const httplib::MultipartFormData& part = only_part(request);
        EXPECT_EQ(part.filename, "report.zip");
        EXPECT_EQ(part.content_type, "application/octet-stream");
        EXPECT_TRUE(part.content == to_std(bytes)) << "file bytes differ";
    }
    EXPECT_TRUE(logs_.contains("url_post : "));
    EXPECT_EQ(logs_.count("send_multipart_request ret=0"), 2);

    ASSERT_TRUE(wait_for_responses_for(31, 1));
    ASSERT_TRUE(wait_for_responses_for(32, 1));
    for (int id : {31, 32}) {
        const auto response = responses_for(id).at(0);
        expect_outcome(response, id, true, 0, 0);
        EXPECT_EQ(response.info.result, "abc");
    }
}

TEST_F(file_upload_test, zero_byte_file_is_an_empty_part) {
    server_.answer_json("/up", R"({"status":"success","result":{"dfs_id":"empty-1"}})");
    server_.start();
    const QString path = QDir::current().filePath("empty.log");
    write_file(path, QByteArray());

    EXPECT_EQ(api::upload_file(server_.url("/up"), path, "app", "", &sink_, 33, 5000), 0);

    ASSERT_TRUE(server_.wait_for_requests(1));
    const received_request request = server_.requests().at(0);
    EXPECT_EQ(request.target, kSuffixTarget);
    const httplib::MultipartFormData& part = only_part(request);
    EXPECT_EQ(part.filename, "empty.log");
    EXPECT_EQ(part.content_type, "application/octet-stream");
    EXPECT_TRUE(part.content.empty());

    ASSERT_TRUE(sink_.wait_for_responses(1));
    EXPECT_EQ(sink_.responses().at(0).info.result, "empty-1");
}

TEST_F(file_upload_test, missing_file_is_only_logged_and_the_sink_hears_nothing) {
    server_.answer_json("/up", R"({"status":"success"})");
    server_.start();
    const QString path = QDir::current().filePath("no/such/file.bin");

    EXPECT_EQ(api::upload_file(server_.url("/up"), path, "app", "", &sink_, 34, 100), 0);

    EXPECT_TRUE(logs_.contains("send_multipart_request ret=-1"));
    EXPECT_TRUE(logs_.contains("file open faied or not readable  !" + path.toStdString()));
    // Longer than the time-out the call was given: no watchdog was armed either.
    pump_events_for(400);
    EXPECT_TRUE(sink_.calls().empty());
    EXPECT_EQ(server_.request_count(), 0u);
    EXPECT_EQ(api::release_connect(34), 0) << "the connector stays registered";
}

TEST_F(file_upload_test, only_the_header_with_the_smallest_key_reaches_the_wire) {
    server_.answer_json("/up", R"({"status":"success","result":{"dfs_id":"h"}})");
    server_.start();
    const QString path = QDir::current().filePath("header.bin");
    write_file(path, "abc");

    // As upload_file does it, with one more header than it ever passes.
    auto* connector = new api::http_connector(35, &sink_, nullptr);
    api::state().connections.insert(35, connector);
    const std::map<QString, QString> headers{{"X-Trace-Id", "t-1"}, {"X-Auth-AppID", "app-h"}};
    EXPECT_EQ(connector->send_multipart_request("?category=feedback&bucket=pub", path, {}, headers,
                                                5000, server_.url("/up")),
              0);
    connector->moveToThread(worker());

    ASSERT_TRUE(server_.wait_for_requests(1));
    const received_request request = server_.requests().at(0);
    EXPECT_EQ(request.header("X-Auth-AppID"), "app-h");
    EXPECT_EQ(request.headers.count("X-Trace-Id"), 0u);
    EXPECT_EQ(only_part(request).content, "abc");
    ASSERT_TRUE(sink_.wait_for_responses(1));
    EXPECT_EQ(sink_.responses().at(0).info.result, "h");
}

}  // namespace
}  // namespace test_support
