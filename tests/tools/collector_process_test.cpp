// information_collector as a process: start-up, HTTPS, arguments, shutdown.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>

#include <QDir>
#include <QFileInfo>

#include "local_server.h"
#include "tool_process.h"

namespace {

using tool_test::collector_process;
using tool_test::run_tool;

TEST(collector_process, stops_cleanly_on_sigterm_and_sigint) {
    for (int signal_number : {SIGTERM, SIGINT}) {
        collector_process collector("collector");
        const auto result = collector.tool().stop(signal_number);
        EXPECT_TRUE(result.finished);
        EXPECT_EQ(result.exit_code, 0);
        EXPECT_TRUE(result.out.contains("information_collector: stopped"))
            << result.out.toStdString();
    }
}

TEST(collector_process, prints_one_line_per_request) {
    collector_process collector("collector");
    httplib::Client client("127.0.0.1", collector.port());
    ASSERT_TRUE(client.Get("/a"));
    ASSERT_TRUE(client.Get("/b"));
    // Each line is printed once its answer is out, by the thread that served it.
    ASSERT_TRUE(collector.tool().wait_for_output("GET /a -> 404"));
    ASSERT_TRUE(collector.tool().wait_for_output("GET /b -> 404"));
    const QStringList lines = collector.tool().output().split('\n', Qt::SkipEmptyParts);
    EXPECT_EQ(lines.filter(" -> ").size(), 2);
}

TEST(collector_process, serves_https_with_a_certificate_and_key) {
    QDir().mkpath("tls");
    const auto tls = test_support::make_self_signed_certificate("tls");
    collector_process collector(
        "collector",
        {"--cert", QFileInfo(QString::fromStdString(tls.certificate)).absoluteFilePath(), "--key",
         QFileInfo(QString::fromStdString(tls.key)).absoluteFilePath()});
    EXPECT_TRUE(collector.tool().output().contains("listening on https://127.0.0.1:"));
    httplib::SSLClient client("127.0.0.1", collector.port());
    client.enable_server_certificate_verification(false);
    auto res = client.Post("/dtta?type=usage",
                           httplib::Headers{{"X-Auth-AppID", "3c1f9a7e55d04b28a6e2f0b9d4c87a13"}},
                           "{}", "application/json");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->body, R"({"status":"success"})");
}

TEST(collector_process, bad_arguments_give_usage_and_exit_2) {
    const QString collector = INFORMATION_COLLECTOR_PATH;
    for (const QStringList& arguments :
         {QStringList{"--port", "http"}, QStringList{"--port", "70000"}, QStringList{"extra"},
          QStringList{"--cert", "c.pem"}, QStringList{"--software-dir", "no/such/folder"},
          QStringList{"--no-such-option"}}) {
        const auto result = run_tool(collector, arguments);
        EXPECT_EQ(result.exit_code, 2) << arguments.join(' ').toStdString();
        EXPECT_TRUE(result.err.contains("Usage:")) << result.err.toStdString();
    }
}

TEST(collector_process, says_why_it_cannot_start) {
    const QString collector = INFORMATION_COLLECTOR_PATH;
    collector_process first("collector");
    const auto taken = run_tool(collector, {"--port", QString::number(first.port())}, "collector");
    EXPECT_EQ(taken.exit_code, 1);
    EXPECT_TRUE(taken.err.contains("cannot listen on 127.0.0.1:")) << taken.err.toStdString();

    const auto bad_tls = run_tool(
        collector, {"--port", "0", "--cert", "none.pem", "--key", "none.key"}, "collector");
    EXPECT_EQ(bad_tls.exit_code, 1);
    EXPECT_TRUE(bad_tls.err.contains("cannot load the certificate")) << bad_tls.err.toStdString();
}

}  // namespace
