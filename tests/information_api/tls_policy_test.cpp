// Verified TLS against the self-signed loopback server: off unless the build
// or the environment asks for it, and then the server passes only when its
// certificate is trusted through INFORMATION_API_CA_FILE.
#include <QNetworkReply>

#include <QTemporaryDir>

#include "library_host.h"

namespace test_support {
namespace {

struct tls_row {
    const char* verify;  // INFORMATION_API_VERIFY_TLS; nullptr: not set
    bool trust_server;   // INFORMATION_API_CA_FILE names the server's certificate
    bool accepted;
};

void set_or_unset(const char* name, const QByteArray& value) {
    value.isEmpty() ? qunsetenv(name) : qputenv(name, value);
}

// The first report for id, once one came.
bool first_report(const recording_sink& sink, int id, api::response_info_t& info) {
    for (const auto& r : sink.responses())
        if (r.connection_id == id) return (info = r.info), true;
    return false;
}

TEST_F(library_host, https_verifies_the_server_only_when_asked_and_trusts_the_ca_file) {
    QTemporaryDir folder;
    const tls_files files = make_self_signed_certificate(folder.path().toStdString());
    local_server server(files);
    server.answer_json("/dtta", R"({"status":"success"})");
    server.answer_json("/software/x/interface.json", R"({"a":1})");
    server.start();
    const bool verified_build = INFORMATION_API_VERIFY_TLS_DEFAULT != 0;
    const tls_row rows[] = {{nullptr, false, !verified_build},
                            {"0", false, true},
                            {"1", false, false},
                            {"1", true, true},
                            {"yes", false, false},
                            {nullptr, true, true}};
    int id = 0;
    for (const tls_row& row : rows) {
        set_or_unset("INFORMATION_API_VERIFY_TLS", row.verify);
        set_or_unset("INFORMATION_API_CA_FILE",
                     row.trust_server ? QByteArray::fromStdString(files.certificate) : "");
        const std::string what =
            std::string(row.verify ? row.verify : "unset") + (row.trust_server ? " + CA" : "");
        // A JSON post (the address rule) and a GET (the unconditional rule).
        api::upload_information(server.url("/dtta"), "{}", "a", "usage", &sink_, ++id, 5000);
        api::get_url_json_file(server.url(), "x", &sink_, ++id, 5000);
        for (const int wanted : {id - 1, id}) {
            api::response_info_t info{};
            ASSERT_TRUE(wait_until([&] { return first_report(sink_, wanted, info); })) << what;
            EXPECT_EQ(info.ok, row.accepted) << what << ": " << info.error_string.toStdString();
            EXPECT_EQ(info.net_error, row.accepted ? 0 : QNetworkReply::SslHandshakeFailedError);
        }
    }
}

}  // namespace
}  // namespace test_support
