// What each request puts on the wire, as the local server's own parser saw
// it, and the two TLS rules against a self-signed HTTPS server.
#include <QSslConfiguration>
#include <QTemporaryDir>

#include "http/http_connector.h"
#include "library_host.h"

namespace test_support {
namespace {

using wire_test = library_host;
using TarvoConsumerScanner::information_api::http_connector;

const httplib::MultipartFormData& only_file_part(const received_request& request) {
    EXPECT_EQ(request.files.size(), 1u);
    static const httplib::MultipartFormData none{};
    const auto it = request.files.find("file");
    return it == request.files.end() ? none : it->second;
}

// A connector entered and moved as the entry points do, for the operations'
// arguments that no entry point passes.
http_connector* registered_connector(int id, api::information_sink* sink) {
    auto* connector = new http_connector(id, sink, nullptr);
    api::state().connections.insert(id, connector);
    return connector;
}

TEST_F(wire_test, each_entry_point_sends_its_request) {
    server_.answer_json("/dtta", R"({"status":"success"})");
    server_.answer_json("/up", R"({"status":"success","result":{"dfs_id":"abc"}})");
    server_.answer_json("/cdn/software/x/interface.json", "[1]");
    server_.start();
    const QString body = QString::fromUtf8(R"({"session":{"id":"s-1"},"note":"grüße"})");
    const QByteArray bytes = sample_bytes(300 * 1024);
    write_file("reports/2024/report.zip", bytes);
    write_file("empty.log", QByteArray());

    api::upload_information(server_.url("/dtta"), body, "app-17", "scan", &sink_, 1, 5000);
    // The fourth argument never changes the address.
    api::upload_file(server_.url("/up"), "reports/2024/report.zip", "app-3", "category=x", &sink_,
                     2, 5000);
    api::get_url_json_file(server_.url("/cdn"), "x", &sink_, 3, 5000);
    ASSERT_TRUE(server_.wait_for_requests(3));
    api::upload_file(server_.url("/up"), "empty.log", "app-3", "", &sink_, 4, 5000);
    ASSERT_TRUE(server_.wait_for_requests(4));

    std::map<std::string, received_request> by_method_and_target;
    for (const received_request& r : server_.requests()) {
        if (r.target.rfind("/up", 0) == 0 && only_file_part(r).filename == "empty.log")
            by_method_and_target["empty"] = r;
        else
            by_method_and_target[r.method + " " + r.target] = r;
    }
    const received_request& information = by_method_and_target["POST /dtta?type=scan"];
    EXPECT_EQ(information.body, body.toUtf8().toStdString());
    EXPECT_EQ(information.header("Content-Type"), "application/json;charset=utf-8");
    EXPECT_EQ(information.header("X-Auth-AppID"), "app-17");

    const received_request& file = by_method_and_target["POST /up?category=feedback&bucket=pub"];
    EXPECT_EQ(file.header("X-Auth-AppID"), "app-3");
    EXPECT_EQ(file.header("Content-Type").rfind("multipart/form-data; boundary=", 0), 0u);
    EXPECT_EQ(only_file_part(file).filename, "report.zip");
    EXPECT_EQ(only_file_part(file).content_type, "application/octet-stream");
    EXPECT_TRUE(only_file_part(file).content == bytes.toStdString()) << "file bytes differ";
    EXPECT_TRUE(only_file_part(by_method_and_target["empty"]).content.empty());

    EXPECT_EQ(by_method_and_target.count("GET /cdn/software/x/interface.json"), 1u);
    ASSERT_TRUE(sink_.wait_for_responses(4));
    for (const call& r : sink_.responses()) EXPECT_TRUE(r.info.ok) << r.connection_id;
}

// The connector's operations with arguments no entry point passes: every
// parameter gets a "?" of its own (which the local server's parser refuses,
// after reading the target), a post sends every header, the multipart upload
// only the one with the smallest key.
TEST_F(wire_test, parameters_and_headers_as_the_connector_applies_them) {
    server_.answer_json("/base/sub", R"({"status":"success"})");
    server_.answer_json("/up", R"({"status":"success"})");
    server_.start();
    write_file("header.bin", "abc");
    const std::map<std::string, std::string> headers{{"X-Extra", "x"}, {"X-Auth-AppID", "a9"}};
    http_connector* params = registered_connector(5, &sink_);
    params->send_request("/base", "{}", {{"b", "2"}, {"a", "1"}}, 5000, "sub", true, {},
                         server_.url().toStdString());
    params->moveToThread(worker());
    http_connector* post = registered_connector(6, &sink_);
    post->send_request("/base", "{}", {{"type", "t"}}, 5000, "sub", true, headers,
                       server_.url().toStdString());
    post->moveToThread(worker());
    http_connector* upload = registered_connector(7, &sink_);
    EXPECT_EQ(upload->send_multipart_request("?category=feedback&bucket=pub", "header.bin", {},
                                             {{"X-Trace-Id", "t-1"}, {"X-Auth-AppID", "app-h"}},
                                             5000, server_.url("/up")),
              0);
    upload->moveToThread(worker());

    ASSERT_TRUE(server_.wait_for_requests(3));
    std::map<std::string, received_request> by_target;
    for (const received_request& r : server_.requests()) by_target[r.target] = r;
    EXPECT_EQ(by_target.count("/base/sub?a=1?b=2"), 1u);
    EXPECT_EQ(by_target["/base/sub?type=t"].header("X-Auth-AppID"), "a9");
    EXPECT_EQ(by_target["/base/sub?type=t"].header("X-Extra"), "x");
    const received_request& multipart = by_target["/up?category=feedback&bucket=pub"];
    EXPECT_EQ(multipart.header("X-Auth-AppID"), "app-h");
    EXPECT_EQ(multipart.headers.count("X-Trace-Id"), 0u);
}

class tls_test : public library_host {
protected:
    tls_test() : tls_server_(make_self_signed_certificate(cert_dir_.path().toStdString())) {}
    QTemporaryDir cert_dir_;
    local_server tls_server_;
};

TEST_F(tls_test, https_in_any_letter_case_reaches_a_self_signed_server) {
    tls_server_.answer_json("/dtta", R"({"status":"success"})");
    tls_server_.answer_json("/software/x/interface.json", R"({"a":1})");
    tls_server_.start();
    const QString url = tls_server_.url("/dtta");
    int id = 0;
    for (const QString scheme : {"https", "HTTPS", "Https"})
        api::upload_information(scheme + url.mid(url.indexOf(':')), "{}", "a", "usage", &sink_,
                                ++id, 5000);
    api::get_url_json_file(tls_server_.url(), "x", &sink_, ++id, 5000);
    // A blank before the scheme is no address at all: refused before any TLS.
    api::upload_information(" " + url, "{}", "a", "usage", &sink_, 9, 5000);

    ASSERT_TRUE(sink_.wait_for_responses(5));
    for (int i = 1; i <= id; ++i) {
        ASSERT_TRUE(wait_for_responses_for(i, 1));
        EXPECT_TRUE(responses_for(i)[0].info.ok) << i;
    }
    ASSERT_TRUE(wait_for_responses_for(9, 1));
    EXPECT_EQ(responses_for(9)[0].info.state, 7);
    EXPECT_EQ(tls_server_.request_count(), 4u);
}

TEST(tls_rule, only_an_https_scheme_at_the_very_start_relaxes_verification) {
    using TarvoConsumerScanner::information_api::relax_tls_for_https_url;
    const QSslConfiguration defaults = QNetworkRequest().sslConfiguration();
    const std::pair<const char*, bool> cases[] = {{"https://h/x", true},   {"HTTPS://h/x", true},
                                                  {"hTtPs://h/x", true},   {" https://h/x", false},
                                                  {"https ://h/x", false}, {"http://h/x", false},
                                                  {"xhttps://h/x", false}};
    for (const auto& [url, relaxed] : cases) {
        QNetworkRequest request((QUrl(url)));
        relax_tls_for_https_url(request, url);
        const QSslConfiguration config = request.sslConfiguration();
        EXPECT_EQ(config.peerVerifyMode(),
                  relaxed ? QSslSocket::VerifyNone : defaults.peerVerifyMode())
            << url;
        EXPECT_EQ(config.protocol(), relaxed ? QSsl::TlsV1_2 : defaults.protocol()) << url;
    }
}

}  // namespace
}  // namespace test_support
