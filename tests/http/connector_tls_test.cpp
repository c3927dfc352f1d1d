#include <QNetworkReply>
#include <QSslConfiguration>
#include <QTemporaryDir>

#include "connector_test_fixture.h"
#include "event_wait.h"

namespace test_support {
namespace {

class connector_tls_test : public connector_test {
protected:
    connector_tls_test()
        : tls_server_(make_self_signed_certificate(cert_dir_.path().toStdString())) {}

    void SetUp() override {
        connector_test::SetUp();
        tls_server_.answer_json("/dtta", R"({"status":"success"})");
        tls_server_.answer_json("/software/x/interface.json", R"({"a":1})");
        tls_server_.start();
    }

    // The server's address with its scheme spelled as given.
    QString address(const QString& scheme, const std::string& path) {
        QString url = tls_server_.url(path);
        return scheme + url.mid(url.indexOf(':'));
    }

    QTemporaryDir cert_dir_;
    local_server tls_server_;
};

TEST_F(connector_tls_test, https_post_to_self_signed_server_succeeds_in_any_letter_case) {
    int id = 0;
    for (const QString scheme : {"https", "HTTPS", "Https"}) {
        post_json(++id, &sink_, address(scheme, "/dtta"), "{}");
        ASSERT_TRUE(sink_.wait_for_responses(id)) << scheme.toStdString();
        const auto r = sink_.responses().back();
        EXPECT_EQ(r.connection_id, id);
        EXPECT_TRUE(r.info.ok) << scheme.toStdString() << ": " << r.info.error_string.toStdString();
        EXPECT_EQ(r.info.state, 0);
    }
    EXPECT_EQ(tls_server_.request_count(), 3u);
}

TEST_F(connector_tls_test, https_get_to_self_signed_server_succeeds) {
    get(4, &sink_, tls_server_.url("/software/x/interface.json"));
    ASSERT_TRUE(sink_.wait_for_responses(1));
    EXPECT_TRUE(sink_.responses()[0].info.ok);
    EXPECT_EQ(sink_.responses()[0].info.state, 0);
}

TEST(tls_rule, only_an_https_scheme_at_the_very_start_relaxes_verification) {
    using TarvoConsumerScanner::information_api::relax_tls_for_https_url;
    const QSslConfiguration defaults = QNetworkRequest().sslConfiguration();
    for (const char* url : {"https://h/x", "HTTPS://h/x", "hTtPs://h/x"}) {
        QNetworkRequest request((QUrl(url)));
        relax_tls_for_https_url(request, url);
        EXPECT_EQ(request.sslConfiguration().peerVerifyMode(), QSslSocket::VerifyNone) << url;
        EXPECT_EQ(request.sslConfiguration().protocol(), QSsl::TlsV1_2) << url;
    }
    for (const char* url : {" https://h/x", "https ://h/x", "http://h/x", "xhttps://h/x"}) {
        QNetworkRequest request((QUrl(url)));
        relax_tls_for_https_url(request, url);
        EXPECT_EQ(request.sslConfiguration().peerVerifyMode(), defaults.peerVerifyMode()) << url;
        EXPECT_EQ(request.sslConfiguration().protocol(), defaults.protocol()) << url;
    }
}

TEST_F(connector_tls_test, leading_blank_is_refused_before_reaching_the_server) {
    post_json(6, &sink_, " " + tls_server_.url("/dtta"), "{}");
    ASSERT_TRUE(sink_.wait_for_responses(1));
    pump_events_for(200);
    for (const auto& r : sink_.responses()) {
        EXPECT_EQ(r.connection_id, 6);
        EXPECT_FALSE(r.info.ok);
        EXPECT_EQ(r.info.state, 7);
    }
    EXPECT_EQ(tls_server_.request_count(), 0u);
}

}  // namespace
}  // namespace test_support
