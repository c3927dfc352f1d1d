#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "entry_point_fixture.h"

namespace test_support {
namespace {

using descriptor_query_test = entry_point_test;

TEST_F(descriptor_query_test, requests_the_software_descriptor_and_hands_over_the_document) {
    server_.answer_json("/cdn/software/x/interface.json",
                        R"({"version":"2.1.0","packages":["setup.exe"]})");
    server_.start();
    const QString base = server_.url("/cdn");

    EXPECT_EQ(api::get_url_json_file(base, "x", &sink_, 21, 5000), 0);

    EXPECT_TRUE(logs_.contains(" get_url_json_file full_url=" +
                               (base + "/software/x/interface.json").toStdString()));
    ASSERT_TRUE(server_.wait_for_requests(1));
    const received_request request = server_.requests().at(0);
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/cdn/software/x/interface.json");

    ASSERT_TRUE(sink_.wait_for_responses(1));
    const auto response = sink_.responses().at(0);
    expect_outcome(response, 21, true, 0, 0);
    const QJsonDocument document = response.info.content.toJsonDocument();
    ASSERT_TRUE(document.isObject());
    EXPECT_EQ(document.object().value("version").toString(), "2.1.0");
    EXPECT_EQ(document.object().value("packages").toArray().at(0).toString(), "setup.exe");
}

TEST_F(descriptor_query_test, html_page_is_a_failure_with_state_10) {
    server_.answer("/cdn/software/x/interface.json", "<html><body>Not here</body></html>",
                   "text/html");
    server_.start();

    EXPECT_EQ(api::get_url_json_file(server_.url("/cdn"), "x", &sink_, 22, 5000), 0);

    ASSERT_TRUE(sink_.wait_for_responses(1));
    const auto response = sink_.responses().at(0);
    expect_outcome(response, 22, false, 10, -2);
    EXPECT_FALSE(response.info.content.isValid());
}

}  // namespace
}  // namespace test_support
