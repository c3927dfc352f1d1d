// information_collector: information uploads, what it answers and stores.
#include <gtest/gtest.h>
#include <httplib.h>

#include <QDir>

#include "tool_process.h"

namespace {

using tool_test::collector_process;

const char* const test_app_id = "3c1f9a7e55d04b28a6e2f0b9d4c87a13";
const char* const release_app_id = "a94e07b3c2d851f6e0b7a4c39d2f6e58";

httplib::Result post_information(collector_process& collector, const std::string& target,
                                 const std::string& body, const char* app_id) {
    httplib::Client client("127.0.0.1", collector.port());
    httplib::Headers headers;
    if (app_id) headers.emplace("X-Auth-AppID", app_id);
    return client.Post(target.c_str(), headers, body, "application/json;charset=utf-8");
}

TEST(collector_information, accepts_both_default_app_ids_and_stores_each_upload) {
    collector_process collector("collector");
    auto first = post_information(collector, "/dtta?type=usage", R"({"a":1})", test_app_id);
    auto second = post_information(collector, "/dtta?type=scan", R"({"b":2})", release_app_id);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->status, 200);
    EXPECT_EQ(first->body, R"({"status":"success"})");
    EXPECT_EQ(second->body, R"({"status":"success"})");

    const auto rows = collector.query("SELECT app_id, type, body FROM information ORDER BY id");
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0], (std::vector<std::string>{test_app_id, "usage", R"({"a":1})"}));
    EXPECT_EQ(rows[1], (std::vector<std::string>{release_app_id, "scan", R"({"b":2})"}));
    EXPECT_TRUE(collector.tool().wait_for_output(
        QString("POST /dtta?type=scan app %1 -> 200 {\"status\":\"success\"}")
            .arg(release_app_id)));
}

TEST(collector_information, refuses_unknown_or_missing_app_ids_with_a_failed_answer) {
    collector_process collector("collector");
    auto wrong = post_information(collector, "/dtta?type=usage", "{}", "0123456789abcdef");
    auto missing = post_information(collector, "/dtta?type=usage", "{}", nullptr);
    ASSERT_TRUE(wrong && missing);
    // HTTP 200, so that the library reports a rejection and not a network error.
    EXPECT_EQ(wrong->status, 200);
    EXPECT_EQ(wrong->body, R"({"status":"failed","result":"unknown application id"})");
    EXPECT_EQ(missing->body, wrong->body);
    EXPECT_TRUE(collector.query("SELECT id FROM information").empty());
}

TEST(collector_information, refuses_bodies_that_are_not_json_and_uploads_without_type) {
    collector_process collector("collector");
    auto not_json = post_information(collector, "/dtta?type=usage", "{\"a\":", test_app_id);
    auto no_type = post_information(collector, "/dtta", "{}", test_app_id);
    ASSERT_TRUE(not_json && no_type);
    EXPECT_EQ(not_json->status, 200);
    EXPECT_NE(not_json->body.find(R"({"status":"failed","result":"body is not JSON: )"),
              std::string::npos)
        << not_json->body;
    EXPECT_EQ(no_type->body, R"({"status":"failed","result":"no type given"})");
    EXPECT_TRUE(collector.query("SELECT id FROM information").empty());
}

TEST(collector_information, configured_app_ids_replace_the_defaults) {
    collector_process collector("collector", {"--app-id", "feedfeedfeedfeedfeedfeedfeedfeed"});
    auto own =
        post_information(collector, "/dtta?type=usage", "{}", "feedfeedfeedfeedfeedfeedfeedfeed");
    auto library = post_information(collector, "/dtta?type=usage", "{}", test_app_id);
    ASSERT_TRUE(own && library);
    EXPECT_EQ(own->body, R"({"status":"success"})");
    EXPECT_EQ(library->body, R"({"status":"failed","result":"unknown application id"})");
}

TEST(collector_information, the_database_is_readable_while_the_collector_runs) {
    collector_process collector("collector");
    ASSERT_TRUE(post_information(collector, "/dtta?type=share", R"({"c":3})", test_app_id));
    const auto rows =
        collector.query("SELECT received_at LIKE '____-__-__T__:__:__Z', type FROM information");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0], (std::vector<std::string>{"1", "share"}));
}

}  // namespace
