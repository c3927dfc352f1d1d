#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaMethod>
#include <QNetworkReply>

#include "connector_test_fixture.h"
#include "event_wait.h"

namespace test_support {
namespace {

using kind = recording_sink::kind;

TEST_F(connector_test, unreachable_address_reports_network_error_from_error_and_finished) {
    const QString url = QString("http://127.0.0.1:%1/dtta").arg(closed_port());
    post_json(41, &sink_, url, "{}");

    ASSERT_TRUE(sink_.wait_for_responses(2));
    pump_events_for(200);
    const auto responses = sink_.responses();
    ASSERT_EQ(responses.size(), 2u);
    for (const auto& r : responses) {
        EXPECT_EQ(r.connection_id, 41);
        EXPECT_TRUE(r.has_info);
        EXPECT_FALSE(r.info.ok);
        EXPECT_EQ(r.info.state, 7);
        EXPECT_EQ(r.info.net_error, QNetworkReply::ConnectionRefusedError);
        EXPECT_EQ(r.thread, worker_thread());
    }
    EXPECT_TRUE(responses[0].info.error_string.isEmpty()) << "the error slot reports no text";
    EXPECT_FALSE(responses[1].info.error_string.isEmpty()) << "replyFinished reports the text";
    EXPECT_TRUE(logs_.contains("error" + std::to_string(QNetworkReply::ConnectionRefusedError)));
}

TEST_F(connector_test, silent_server_times_out_at_every_interval_and_late_answer_is_handled) {
    server_.answer_silently("/dtta", R"({"status":"success"})");
    server_.start();
    post_json(7, &sink_, server_.url("/dtta"), "{}", 150);

    ASSERT_TRUE(sink_.wait_for_responses(3));
    for (const auto& r : sink_.responses()) {
        EXPECT_EQ(r.connection_id, 7);
        EXPECT_FALSE(r.info.ok);
        EXPECT_EQ(r.info.state, 6);
        EXPECT_EQ(r.info.net_error, -1);
        EXPECT_EQ(r.info.error_string, "timeout");
        EXPECT_EQ(r.thread, worker_thread());
    }
    EXPECT_GE(logs_.count("net connect time out"), 3);

    server_.release_silent();
    ASSERT_TRUE(wait_until([&] {
        const auto all = sink_.responses();
        return !all.empty() && all.back().info.state == 0;
    }));
    const auto last = sink_.responses().back();
    EXPECT_TRUE(last.info.ok);
    EXPECT_EQ(last.connection_id, 7);

    // Once the answer arrived, the watchdog is stopped for good.
    const std::size_t settled = sink_.responses().size();
    pump_events_for(400);
    EXPECT_EQ(sink_.responses().size(), settled);
}

TEST_F(connector_test, error_status_is_a_network_error_with_the_reply_text) {
    server_.answer_json("/dtta", R"({"status":"success"})", 500);
    server_.start();
    post_json(3, &sink_, server_.url("/dtta"), "{}");

    ASSERT_TRUE(sink_.wait_for_responses(2));
    pump_events_for(100);
    const auto responses = sink_.responses();
    for (const auto& r : responses) {
        EXPECT_EQ(r.info.state, 7);
        EXPECT_EQ(r.info.net_error, QNetworkReply::InternalServerError);
        EXPECT_FALSE(r.info.ok);
    }
    EXPECT_FALSE(responses.back().info.error_string.isEmpty());
}

TEST_F(connector_test, null_sink_only_logs_failures) {
    const QString url = QString("http://127.0.0.1:%1/dtta").arg(closed_port());
    auto* c = post_json(1, nullptr, url, "{}");
    ASSERT_TRUE(wait_until([&] { return logs_.contains("Connection refused"); }));
    ASSERT_TRUE(wait_until([&] { return c->rt() == 7; }));
    EXPECT_EQ(sink_.calls().size(), 0u);
}

TEST_F(connector_test, every_parameter_gets_its_own_question_mark) {
    server_.answer_json("/base/sub", R"({"status":"success"})");
    server_.start();
    auto* c = make_connector(9, &sink_);
    c->send_request("/base", "{}", {{"b", "2"}, {"a", "1"}}, 5000, "sub", true, {},
                    server_.url().toStdString());
    hand_to_worker(c);

    ASSERT_TRUE(server_.wait_for_requests(1));
    EXPECT_EQ(server_.requests()[0].target, "/base/sub?a=1?b=2");
    EXPECT_TRUE(
        logs_.contains("TarvoConsumerScanner::information_api::http_connector::send_request"
                       " url :  " +
                       server_.url("/base/sub?a=1?b=2").toStdString()));
}

TEST_F(connector_test, json_post_carries_body_headers_in_key_order_and_content_type) {
    server_.answer_json("/dtta", R"({"status":"success"})");
    server_.start();
    const QString body = QString::fromUtf8(R"({"name":"Grüße"})");
    post_json(5, &sink_, server_.url("/dtta"), body, 5000, {{"type", "scan"}},
              {{"X-Auth-AppID", "a94e07b3"}, {"X-Extra", "x"}});

    ASSERT_TRUE(sink_.wait_for_responses(1));
    ASSERT_TRUE(server_.wait_for_requests(1));
    const auto request = server_.requests().at(0);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/dtta?type=scan");
    EXPECT_EQ(request.body, body.toUtf8().toStdString());
    EXPECT_EQ(request.header("Content-Type"), "application/json;charset=utf-8");
    EXPECT_EQ(request.header("X-Auth-AppID"), "a94e07b3");
    EXPECT_EQ(request.header("X-Extra"), "x");
    const auto r = sink_.responses()[0];
    EXPECT_EQ(r.connection_id, 5);
    EXPECT_TRUE(r.info.ok);
    EXPECT_EQ(r.info.state, 0);
    EXPECT_EQ(r.info.net_error, 0);
    EXPECT_EQ(r.thread, worker_thread());
}

TEST_F(connector_test, get_request_hands_the_document_to_the_sink) {
    server_.answer_json("/software/x/interface.json", R"({"version":"2.1"})");
    server_.start();
    get(12, &sink_, server_.url("/software/x/interface.json"));

    ASSERT_TRUE(sink_.wait_for_responses(1));
    const auto r = sink_.responses()[0];
    EXPECT_EQ(r.connection_id, 12);
    EXPECT_TRUE(r.info.ok);
    EXPECT_EQ(r.info.content.toJsonDocument().object().value("version").toString(), "2.1");
    EXPECT_EQ(server_.requests()[0].method, "GET");
    EXPECT_TRUE(logs_.contains("manager->post reply_="));
}

TEST_F(connector_test, reply_finished_with_null_reply_changes_nothing) {
    server_.answer_silently("/dtta", R"({"status":"success"})");
    server_.start();
    auto* c = make_connector(2, &sink_);
    c->send_request("", "{}", {}, 100, "", true, {}, server_.url("/dtta").toStdString());
    c->replyFinished(nullptr);  // stops the watchdog, keeps the reply
    hand_to_worker(c);
    pump_events_for(400);
    EXPECT_EQ(sink_.count(kind::response), 0u);
    server_.release_silent();
    ASSERT_TRUE(sink_.wait_for_responses(1));
    EXPECT_TRUE(sink_.responses()[0].info.ok);
}

}  // namespace
}  // namespace test_support

namespace test_support {
namespace {

TEST(meta_objects, names_and_slot_order_are_the_hosts_contract) {
    using TarvoConsumerScanner::information_api::http_connector;
    using TarvoConsumerScanner::information_api::response_info_t;
    EXPECT_STREQ(QMetaType::typeName(qMetaTypeId<response_info_t>()),
                 "TarvoConsumerScanner::information_api::response_info_t");

    const QMetaObject& mo = http_connector::staticMetaObject;
    EXPECT_STREQ(mo.className(), "TarvoConsumerScanner::information_api::http_connector");
    std::vector<std::string> methods;
    for (int i = mo.methodOffset(); i < mo.methodCount(); ++i)
        methods.push_back(mo.method(i).methodSignature().toStdString());
    const std::vector<std::string> expected{
        "finished()",
        "replyFinished(QNetworkReply*)",
        "replyDownload(QNetworkReply*)",
        "timeout_event()",
        "http_ready_read()",
        "update_data_read_progress(qlonglong,qlonglong)",
        "update_data_write_progress(qlonglong,qlonglong)",
        "error(QNetworkReply::NetworkError)",
        "sslErrors(QList<QSslError>)",
        "slot_onDownLoadFileReadyRead()",
        "slot_onDownLoadFileError(QNetworkReply::NetworkError)",
        "slot_onDownLoadFileSSLError(QList<QSslError>)",
        "slot_onDownLoadFileDownloadProgress(qlonglong,qlonglong)",
        "slot_onDownLoadFileFinished()"};
    EXPECT_EQ(methods, expected);

    ::api_thread worker;
    EXPECT_STREQ(worker.metaObject()->className(), "api_thread");
    EXPECT_EQ(worker.qt_metacast("api_thread"), &worker);
    EXPECT_EQ(worker.metaObject()->methodCount(), QThread::staticMetaObject.methodCount());
}

}  // namespace
}  // namespace test_support
