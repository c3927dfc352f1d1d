#include <QNetworkReply>

#include "entry_point_fixture.h"

namespace test_support {
namespace {

using upload_information_test = entry_point_test;

TEST_F(upload_information_test, posts_the_body_to_the_type_address_with_the_app_id_header) {
    server_.answer_json("/dtta", R"({"status":"success"})");
    server_.start();
    const QString body = R"({"session":{"id":"s-1"},"note":"grüße"})";

    EXPECT_EQ(
        api::upload_information(server_.url("/dtta"), body, "app-17", "usage", &sink_, 11, 5000),
        0);

    ASSERT_TRUE(server_.wait_for_requests(1));
    const received_request request = server_.requests().at(0);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/dtta?type=usage");
    EXPECT_EQ(request.body, body.toStdString());
    EXPECT_EQ(request.header("X-Auth-AppID"), "app-17");
    EXPECT_EQ(request.header("Content-Type"), "application/json;charset=utf-8");

    ASSERT_TRUE(sink_.wait_for_responses(1));
    expect_outcome(sink_.responses().at(0), 11, true, 0, 0);
}

TEST_F(upload_information_test, rejected_and_unparsable_answers_reach_the_host_as_state_10) {
    server_.answer_json("/failed", R"({"status":"failed","result":"quota"})");
    server_.answer("/html", "<html><body>Bad gateway</body></html>", "text/html");
    server_.start();

    EXPECT_EQ(
        api::upload_information(server_.url("/failed"), "{}", "app", "usage", &sink_, 1, 5000), 0);
    EXPECT_EQ(api::upload_information(server_.url("/html"), "{}", "app", "usage", &sink_, 2, 5000),
              0);

    ASSERT_TRUE(wait_for_responses_for(1, 1));
    ASSERT_TRUE(wait_for_responses_for(2, 1));
    const auto rejected = responses_for(1);
    ASSERT_EQ(rejected.size(), 1u);
    expect_outcome(rejected[0], 1, false, 10, -2);
    EXPECT_EQ(rejected[0].info.error_string, "quota");

    const auto unparsable = responses_for(2);
    ASSERT_EQ(unparsable.size(), 1u);
    expect_outcome(unparsable[0], 2, false, 10, -2);
    EXPECT_NE(unparsable[0].info.error_string, "quota");
    EXPECT_TRUE(logs_.contains("error: json parse exception: <html>"));
}

TEST_F(upload_information_test, unreachable_address_gives_7_and_silent_server_gives_6) {
    server_.answer_silently("/dtta", R"({"status":"success"})");
    server_.start();

    EXPECT_EQ(
        api::upload_information(unreachable_url("/dtta"), "{}", "app", "usage", &sink_, 7, 5000),
        0);
    EXPECT_EQ(api::upload_information(server_.url("/dtta"), "{}", "app", "usage", &sink_, 6, 150),
              0);

    ASSERT_TRUE(wait_for_responses_for(7, 2));
    for (const auto& r : responses_for(7))
        expect_outcome(r, 7, false, 7, QNetworkReply::ConnectionRefusedError);

    ASSERT_TRUE(wait_for_responses_for(6, 1));
    const auto timed_out = responses_for(6).at(0);
    expect_outcome(timed_out, 6, false, 6, -1);
    EXPECT_EQ(timed_out.info.error_string, "timeout");
}

}  // namespace
}  // namespace test_support
