// The connector's query and header rules on the wire, and TLS against a
// self-signed HTTPS server: the contract's two relaxing rules, and verified
// TLS when the build or the environment asks for it.
#include <QNetworkReply>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <algorithm>

#include "http/http_connector.h"
#include "library_host.h"

namespace test_support {
namespace {

using wire_test = library_host;
using TarvoConsumerScanner::information_api::http_connector;

// A connector entered and moved as the entry points do, for the operations'
// arguments that no entry point passes.
http_connector* registered_connector(int id, api::information_sink* sink) {
    auto* connector = new http_connector(id, sink, nullptr);
    api::state().connections.insert(id, connector);
    return connector;
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

void set_or_unset(const char* name, const QByteArray& value) {
    value.isEmpty() ? qunsetenv(name) : qputenv(name, value);
}

// HTTPS to a self-signed server: accepted in any letter case of the scheme
// while peer verification is off (the contract's default); with verified TLS
// (the build's option, or INFORMATION_API_VERIFY_TLS) refused unless
// INFORMATION_API_CA_FILE trusts the server's certificate.
TEST_F(library_host, https_reaches_a_self_signed_server_unless_verification_is_asked_for) {
    QTemporaryDir folder;
    const tls_files files = make_self_signed_certificate(folder.path().toStdString());
    local_server server(files);
    server.answer_json("/dtta", R"({"status":"success"})");
    server.answer_json("/software/x/interface.json", R"({"a":1})");
    server.start();
    const QString url = server.url("/dtta");
    const bool verified_build = INFORMATION_API_VERIFY_TLS_DEFAULT != 0;
    const struct {
        const char* verify;  // INFORMATION_API_VERIFY_TLS; nullptr: not set
        bool trust_server;   // INFORMATION_API_CA_FILE names the server's certificate
        const char* scheme;
        bool accepted;
    } rows[] = {{nullptr, false, "https", !verified_build},
                {"0", false, "HTTPS", true},
                {"0", false, "Https", true},
                {"1", false, "https", false},
                {"1", true, "https", true},
                {"yes", false, "https", false},
                {nullptr, true, "https", true}};
    int id = 0;
    for (const auto& row : rows) {
        set_or_unset("INFORMATION_API_VERIFY_TLS", row.verify);
        set_or_unset("INFORMATION_API_CA_FILE",
                     row.trust_server ? QByteArray::fromStdString(files.certificate) : "");
        // A JSON post (the address rule) and a GET (the unconditional rule).
        api::upload_information(row.scheme + url.mid(url.indexOf(':')), "{}", "a", "usage", &sink_,
                                ++id, 5000);
        api::get_url_json_file(server.url(), "x", &sink_, ++id, 5000);
        for (const int wanted : {id - 1, id}) {
            ASSERT_TRUE(wait_for_responses_for(wanted, 1)) << row.scheme << row.verify;
            const api::response_info_t info = responses_for(wanted)[0].info;
            EXPECT_EQ(info.ok, row.accepted) << wanted << ": " << info.error_string.toStdString();
            EXPECT_EQ(info.net_error, row.accepted ? 0 : QNetworkReply::SslHandshakeFailedError);
        }
    }
    // A blank before the scheme is no address at all: refused before any TLS.
    api::upload_information(" " + url, "{}", "a", "usage", &sink_, 99, 5000);
    ASSERT_TRUE(wait_for_responses_for(99, 1));
    EXPECT_EQ(responses_for(99)[0].info.state, 7);
    EXPECT_EQ(server.request_count(), 2 * std::count_if(std::begin(rows), std::end(rows),
                                                        [](auto& r) { return r.accepted; }));
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
