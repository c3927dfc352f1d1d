// What the host hears for each kind of answer the service may give, driven
// through a real connector against a local server.
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "connector_test_fixture.h"
#include "event_wait.h"

namespace test_support {
namespace {

enum class request_kind { information_upload, file_upload, descriptor };

struct answer_case {
    const char* name;
    request_kind kind;
    std::string body;
    std::string content_type;
    bool ok;
    int state;
    int net_error;
    const char* error_string;  // nullptr: the transport's own text
    const char* result;
    std::vector<std::string> log_lines;
};

std::ostream& operator<<(std::ostream& out, const answer_case& c) {
    return out << c.name;
}

class handler_answer_test : public connector_test,
                            public ::testing::WithParamInterface<answer_case> {
protected:
    http_connector* send(const answer_case& c, api::information_sink* sink) {
        http_connector* connector = make_connector(21, sink);
        switch (c.kind) {
            case request_kind::information_upload:
                connector->send_request("", "{}", {{"type", "usage"}}, 5000, "", true, {},
                                        server_.url("/dtta").toStdString());
                break;
            case request_kind::file_upload: {
                QFile file("report.zip");
                file.open(QIODevice::WriteOnly);
                file.write("zip bytes");
                file.close();
                connector->send_multipart_request("?category=feedback&bucket=pub", "report.zip", {},
                                                  {}, 5000, server_.url("/up"));
                break;
            }
            case request_kind::descriptor:
                connector->send_get_request(server_.url("/software/x/interface.json"), 5000);
                break;
        }
        hand_to_worker(connector);
        return connector;
    }

    void serve(const answer_case& c) {
        for (const char* path : {"/dtta", "/up", "/software/x/interface.json"})
            server_.answer(path, c.body, c.content_type);
        server_.start();
    }
};

TEST_P(handler_answer_test, reaches_the_sink_with_the_outcome_codes) {
    const answer_case& c = GetParam();
    serve(c);
    send(c, &sink_);

    ASSERT_TRUE(sink_.wait_for_responses(1));
    pump_events_for(50);
    const auto responses = sink_.responses();
    ASSERT_EQ(responses.size(), 1u) << "a handled answer is reported exactly once";
    const auto& r = responses[0];
    EXPECT_EQ(r.connection_id, 21);
    EXPECT_EQ(r.thread, worker_thread());
    EXPECT_EQ(r.info.ok, c.ok);
    EXPECT_EQ(r.info.state, c.state);
    EXPECT_EQ(r.info.net_error, c.net_error);
    if (c.error_string)
        EXPECT_EQ(r.info.error_string.toStdString(), c.error_string);
    else
        EXPECT_FALSE(r.info.error_string.isEmpty()) << "the transport's text passes through";
    EXPECT_EQ(r.info.result.toStdString(), c.result);
    for (const std::string& line : c.log_lines) EXPECT_TRUE(logs_.contains(line)) << line;
}

TEST_P(handler_answer_test, null_sink_still_logs_and_handles) {
    const answer_case& c = GetParam();
    serve(c);
    http_connector* connector = send(c, nullptr);
    ASSERT_TRUE(wait_until([&] { return logs_.contains(c.log_lines.front()); }));
    ASSERT_TRUE(server_.wait_for_requests(1));
    pump_events_for(50);
    EXPECT_EQ(connector->rt(), 0) << "every handler returns 0";
    EXPECT_TRUE(sink_.calls().empty());
}

const char* const json = "application/json";
const std::string success = R"({"status":"success"})";

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    answers, handler_answer_test,
    ::testing::Values(
        //          name, request, body, content type,
        //          ok, state, net_error, error_string, result, log lines
        answer_case{"upload_success", request_kind::information_upload, success, json,
                    true, 0, 0, nullptr, "", {"upload_handler:   response= " + success}},
        answer_case{"upload_failed_with_message", request_kind::information_upload,
                    R"({"status":"failed","result":"quota"})", json,
                    false, 10, -2, "quota", "", {"error: failed response "}},
        answer_case{"upload_failed_without_message", request_kind::information_upload,
                    R"({"status":"failed"})", json,
                    false, 10, -2, nullptr, "", {"error: failed response "}},
        answer_case{"upload_status_compared_exactly", request_kind::information_upload,
                    R"({"status":"Success"})", json,
                    false, 10, -2, nullptr, "", {"error: failed response "}},
        answer_case{"upload_status_missing", request_kind::information_upload,
                    R"({"result":"x"})", json,
                    false, 10, -2, "x", "", {"error: failed response "}},
        answer_case{"upload_not_json", request_kind::information_upload,
                    "<html>oops</html>", "text/html",
                    false, 10, -2, nullptr, "",
                    {"error: json parse exception: <html>oops</html>", "error: failed response "}},
        answer_case{"file_upload_with_id", request_kind::file_upload,
                    R"({"status":"success","result":{"dfs_id":"abc"}})", json,
                    true, 0, 0, nullptr, "abc", {"err_info=success", "dfs_id=abc"}},
        answer_case{"file_upload_without_id", request_kind::file_upload, success, json,
                    true, 0, 0, nullptr, "", {"upload_file_handler" + success, "dfs_id="}},
        answer_case{"file_upload_failed", request_kind::file_upload,
                    R"({"status":"failed","result":{"dfs_id":"abc"}})", json,
                    false, 10, -2, nullptr, "", {"err_info=failed", "error: failed response "}},
        answer_case{"file_upload_not_json", request_kind::file_upload, "{broken", json,
                    false, 10, -2, nullptr, "", {"error: json parse exception: {broken"}},
        answer_case{"descriptor_object", request_kind::descriptor, R"({"version":"3"})", json,
                    true, 0, 0, nullptr, "",
                    {"status_code=200", " json parse result : isEmpty=0isNull=0isArray=0",
                     " json  pram   : isEmpty=0isNull=0isArray=0"}},
        answer_case{"descriptor_array", request_kind::descriptor, "[1]", json,
                    true, 0, 0, nullptr, "", {" json parse result : isEmpty=0isNull=0isArray=1"}},
        answer_case{"descriptor_html_page", request_kind::descriptor,
                    "<html>503</html>", "text/html",
                    false, 10, -2, nullptr, "",
                    {"error: json parse error : isEmpty=1isNull=1", "error: failed response ",
                     " json  pram   : isEmpty=1isNull=1isArray=0"}},
        answer_case{"descriptor_empty_body", request_kind::descriptor, "", json,
                    false, 10, -2, nullptr, "", {"error: json parse error : isEmpty=1isNull=1"}}),
    [](const ::testing::TestParamInfo<answer_case>& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(connector_test, descriptor_document_arrives_whole_in_content) {
    server_.answer_json("/software/x/interface.json",
                        R"({"name":"x","files":[{"url":"u","size":3}]})");
    server_.start();
    get(30, &sink_, server_.url("/software/x/interface.json"));
    ASSERT_TRUE(sink_.wait_for_responses(1));
    const QVariant content = sink_.responses()[0].info.content;
    ASSERT_EQ(content.userType(), QMetaType::QJsonDocument);
    const QJsonObject doc = content.toJsonDocument().object();
    EXPECT_EQ(doc.value("name").toString(), "x");
    EXPECT_EQ(doc.value("files").toArray().at(0).toObject().value("size").toInt(), 3);
}

}  // namespace
}  // namespace test_support
