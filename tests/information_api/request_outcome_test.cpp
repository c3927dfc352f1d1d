// What a host hears from each request kind for each kind of answer, through
// the exported entry points against a local server, and what reaches the
// service; the log lines each path writes; the connector's query and header
// rules; TLS against a self-signed server: the contract's two relaxing rules,
// and verified TLS when the build or the environment asks for it.
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <algorithm>

#include "http/http_connector.h"
#include "library_host.h"

namespace test_support {
namespace {

using TarvoConsumerScanner::information_api::http_connector;

enum class request { information, file, descriptor };

// One on_response call. error_string nullptr: the transport's own text.
struct report {
    bool ok;
    int state, net_error;
    const char* error_string;
    const char* result;
};

constexpr int unreachable = -1;

// What the row changes about the host or the service.
enum class setup { none, null_sink, missing_file, empty_file, endless_answer, deflated_answer };

struct outcome_case {
    const char* name;
    request kind;
    int status;  // HTTP status of the answer, or unreachable
    std::string body;
    std::vector<report> reports;
    setup with = setup::none;
};

std::ostream& operator<<(std::ostream& out, const outcome_case& c) {
    return out << c.name;
}

const QString information_body = QString::fromUtf8(R"({"note":"grüße"})");
const QByteArray file_bytes("zip\0\r\n--boundary\r\n\xff", 19);

// What reached the service, as its own parser saw it.
void expect_on_the_wire(request kind, const received_request& r, bool empty_file) {
    const auto file = r.files.find("file");
    EXPECT_EQ(r.header("Accept-Encoding"), "identity") << "a compressed answer has no bound";
    switch (kind) {
        case request::information:
            EXPECT_EQ(r.method + " " + r.target, "POST /dtta?type=usage");
            EXPECT_EQ(r.header("Content-Type"), "application/json;charset=utf-8");
            EXPECT_EQ(r.header("X-Auth-AppID"), "app-17");
            EXPECT_EQ(r.body, information_body.toUtf8().toStdString());
            break;
        case request::file:
            EXPECT_EQ(r.method + " " + r.target, "POST /up?category=feedback&bucket=pub");
            EXPECT_EQ(r.header("X-Auth-AppID"), "app-3");
            EXPECT_EQ(r.header("Content-Type").rfind("multipart/form-data; boundary=", 0), 0u);
            ASSERT_EQ(r.files.size(), 1u);
            ASSERT_NE(file, r.files.end());
            EXPECT_EQ(file->second.filename, "report.zip");
            EXPECT_EQ(file->second.content_type, "application/octet-stream");
            EXPECT_EQ(file->second.content, empty_file ? "" : file_bytes.toStdString());
            break;
        case request::descriptor:
            EXPECT_EQ(r.method + " " + r.target, "GET /cdn/software/x/interface.json");
    }
}

// Runs a row's request under id 21 to the end of its connection: until the
// connector's reply slot has run, after which it reports nothing more.
class request_fixture : public library_host {
protected:
    bool run_to_the_end(const outcome_case& c) {
        worker_hold hold(worker());  // nothing of the reply is handled before the watch
        url_ = start(c);
        ended_ = c.with == setup::missing_file;  // nothing was sent
        auto* manager = api::state().connections.find(21)->findChild<QNetworkAccessManager*>();
        // Connected after the connector's own slot, so called once that has returned.
        QObject::connect(
            manager, &QNetworkAccessManager::finished, manager, [this] { ended_ = true; },
            Qt::DirectConnection);
        hold.release();
        return wait_until([this] { return ended_.load(); });
    }

    QString url_, file_;

private:
    void serve(const outcome_case& c, const std::string& path) {
        const char* type = c.body.rfind("<", 0) == 0 ? "text/html" : "application/json";
        if (c.with == setup::endless_answer) return server_.answer_endlessly(path);
        if (c.with != setup::deflated_answer) return server_.answer(path, c.body, type, c.status);
        // Compressed although the library asked for the answer as it is.
        const QByteArray deflated = qCompress(QByteArray::fromStdString(c.body)).mid(4);
        const auto handler = [deflated](const httplib::Request&, httplib::Response& res) {
            res.set_header("Content-Encoding", "deflate");
            res.set_content(deflated.toStdString(), "application/octet-stream");
        };
        server_.on_get(path, handler), server_.on_post(path, handler);
    }

    QString start(const outcome_case& c) {
        for (const char* path : {"/dtta", "/up", "/cdn/software/x/interface.json"}) serve(c, path);
        server_.start();
        const QString base = c.status == unreachable ? unreachable_url("") : server_.url();
        api::information_sink* sink = c.with == setup::null_sink ? nullptr : &sink_;
        const bool missing = c.with == setup::missing_file;
        file_ = QDir::current().filePath(missing ? "no/such/report.zip" : "reports/report.zip");
        if (!missing) write_file(file_, c.with == setup::empty_file ? "" : file_bytes);
        switch (c.kind) {
            case request::information:
                EXPECT_EQ(api::upload_information(base + "/dtta", information_body, "app-17",
                                                  "usage", sink, 21, 5000),
                          0);
                return base + "/dtta?type=usage";
            case request::file:  // the fourth argument never changes the address
                EXPECT_EQ(
                    api::upload_file(base + "/up", file_, "app-3", "category=x", sink, 21, 5000),
                    0);
                return base + "/up?category=feedback&bucket=pub";
            case request::descriptor:
                EXPECT_EQ(api::get_url_json_file(base + "/cdn", "x", sink, 21, 5000), 0);
                return base + "/cdn/software/x/interface.json";
        }
        return {};
    }

    std::atomic<bool> ended_{false};
};

class request_outcome : public request_fixture,
                        public ::testing::WithParamInterface<outcome_case> {};

TEST_P(request_outcome, reaches_the_host_with_its_codes) {
    const outcome_case& c = GetParam();
    ASSERT_TRUE(run_to_the_end(c));

    const auto responses = sink_.responses();
    ASSERT_EQ(responses.size(), c.reports.size());
    for (std::size_t i = 0; i < responses.size(); ++i) {
        const call& r = responses[i];
        const report& expected = c.reports[i];
        SCOPED_TRACE("report " + std::to_string(i));
        // error_string nullptr: the transport's own text, which is never empty.
        const std::string error = r.info.error_string.toStdString();
        EXPECT_EQ(
            std::make_tuple(r.connection_id, r.thread, r.has_info, r.info.ok, r.info.state,
                            r.info.net_error, r.info.result.toStdString(), error, error.empty()),
            std::make_tuple(21, worker(), true, expected.ok, expected.state, expected.net_error,
                            std::string(expected.result),
                            expected.error_string ? std::string(expected.error_string) : error,
                            expected.error_string && !*expected.error_string));
        // Only an accepted body is parsed here: Qt's parser leaks on some refused ones.
        const bool parsed = c.kind == request::descriptor && expected.ok;
        EXPECT_EQ(r.info.content.isValid(), parsed);
        EXPECT_EQ(
            r.info.content.toJsonDocument(),
            parsed ? QJsonDocument::fromJson(QByteArray::fromStdString(c.body)) : QJsonDocument());
    }
    if (c.with == setup::missing_file || c.status == unreachable)
        EXPECT_TRUE(server_.requests().empty());
    else if (c.with != setup::endless_answer && c.with != setup::deflated_answer) {
        ASSERT_TRUE(server_.wait_for_requests(1));
        expect_on_the_wire(c.kind, server_.requests().at(0), c.with == setup::empty_file);
    }
}

const std::string success = R"({"status":"success"})";
const report accepted{true, 0, 0, nullptr, ""};
const report rejected{false, 10, -2, nullptr, ""};
const int refused = QNetworkReply::ConnectionRefusedError;
const report too_large{false, 10, -2, "answer larger than 1048576 bytes, not read", ""};
const std::string too_deep(1000000, '[');

// A status document of exactly size bytes.
std::string padded_success(std::size_t size) {
    const std::string head = R"({"status":"success","pad":")", tail = R"("})";
    return head + std::string(size - head.size() - tail.size(), ' ') + tail;
}

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}
const int internal = QNetworkReply::InternalServerError;

// clang-format off
const std::vector<outcome_case> outcome_rows{
    {"information_success", request::information, 200, success, {accepted}},
    {"information_rejected_with_message", request::information, 200,
        R"({"status":"failed","result":"quota"})", {{false, 10, -2, "quota", ""}}},
    {"information_status_compared_exactly", request::information, 200, R"({"status":"Success"})",
        {rejected}},
    {"information_status_missing", request::information, 200, R"({"result":"x"})",
        {{false, 10, -2, "x", ""}}},
    {"information_not_json", request::information, 200, "<html>oops</html>", {rejected}},
    {"information_http_error", request::information, 500, success,
        {{false, 7, internal, "", ""}, {false, 7, internal, nullptr, ""}}},
    {"information_unreachable", request::information, unreachable, "",
        {{false, 7, refused, "", ""}, {false, 7, refused, nullptr, ""}}},
    {"information_null_sink", request::information, 200, "{broken", {}, setup::null_sink},
    {"information_nested_too_deep", request::information, 200, too_deep, {rejected}},
    {"information_answer_at_the_bound", request::information, 200, padded_success(1024 * 1024),
        {accepted}},
    {"information_answer_over_the_bound", request::information, 200,
        padded_success(1024 * 1024 + 1), {too_large}},
    // 64 KiB chunks as fast as loopback takes them: refused by size, not held.
    {"information_endless_answer", request::information, 200, "", {too_large},
        setup::endless_answer},
    // Read as sent: 4 MiB inflated would be refused by size, or taken.
    {"information_compressed_unasked", request::information, 200, padded_success(4 << 20),
        {rejected}, setup::deflated_answer},
    {"file_success_with_id", request::file, 200,
        R"({"status":"success","result":{"dfs_id":"abc"}})", {{true, 0, 0, nullptr, "abc"}}},
    {"file_success_without_id", request::file, 200, success, {accepted}},
    {"file_rejected", request::file, 200, R"({"status":"failed","result":{"dfs_id":"abc"}})",
        {rejected}},
    {"file_not_json", request::file, 200, "{broken", {rejected}},
    // The multipart upload listens to the finished reply only: one report.
    {"file_http_error", request::file, 500, success, {{false, 7, internal, nullptr, ""}}},
    {"file_unreachable", request::file, unreachable, "", {{false, 7, refused, nullptr, ""}}},
    {"file_missing", request::file, 200, success, {}, setup::missing_file},
    {"file_null_sink", request::file, 200, success, {}, setup::null_sink},
    {"file_empty", request::file, 200, success, {accepted}, setup::empty_file},
    {"file_endless_answer", request::file, 200, "", {too_large}, setup::endless_answer},
    {"descriptor_object", request::descriptor, 200, R"({"version":"3","n":[1]})", {accepted}},
    {"descriptor_array", request::descriptor, 200, "[1]", {accepted}},
    {"descriptor_html_page", request::descriptor, 200, "<html>503</html>", {rejected}},
    {"descriptor_empty_object", request::descriptor, 200, "{}", {accepted}},
    {"descriptor_http_error", request::descriptor, 404, "{}",
        {{false, 7, QNetworkReply::ContentNotFoundError, "", ""},
         {false, 7, QNetworkReply::ContentNotFoundError, nullptr, ""}}},
    {"descriptor_unreachable", request::descriptor, unreachable, "",
        {{false, 7, refused, "", ""}, {false, 7, refused, nullptr, ""}}},
    {"descriptor_null_sink", request::descriptor, 200, "[1]", {}, setup::null_sink},
    {"descriptor_nested_256_deep", request::descriptor, 200, nested(256), {accepted}},
    {"descriptor_nested_257_deep", request::descriptor, 200, nested(257), {rejected}},
    // Qt's parser would lose the memory of a container whose name repeats.
    {"descriptor_repeating_a_container_name", request::descriptor, 200, R"({"a":{"b":1},"a":1})",
        {rejected}},
    {"descriptor_repeating_a_container_name_escaped", request::descriptor, 200,
        R"({"\ud83d\ude00":{"b":1},"😀":"x"})", {rejected}},
    // A high surrogate without its low half: the escape after it is one of its own.
    {"descriptor_repeating_a_container_name_after_a_lone_surrogate", request::descriptor, 200,
        R"({"\ud83d\u0041":{"b":1},"\ud83dA":1})", {rejected}},
    {"descriptor_repeating_a_scalar_name", request::descriptor, 200, R"({"a":1,"a":{"b":2}})",
        {accepted}},
    {"descriptor_endless_answer", request::descriptor, 200, "",
        {{false, 10, -2, "answer larger than 16777216 bytes, not read", ""}},
        setup::endless_answer}};
// clang-format on

INSTANTIATE_TEST_SUITE_P(rows, request_outcome, ::testing::ValuesIn(outcome_rows),
                         [](const auto& info) { return std::string(info.param.name); });

// The lines each path writes, once: the path's request is the one of the
// outcome row of that name. {url} stands for the request's address, {file}
// for the uploaded file's path.
struct path_lines {
    const char* row;
    std::vector<std::string> lines;
};

class path_log : public request_fixture, public ::testing::WithParamInterface<path_lines> {};

TEST_P(path_log, writes_the_lines_of_its_path) {
    const auto row =
        std::find_if(outcome_rows.begin(), outcome_rows.end(),
                     [](const outcome_case& c) { return c.name == std::string(GetParam().row); });
    ASSERT_NE(row, outcome_rows.end());
    ASSERT_TRUE(run_to_the_end(*row));
    for (const std::string& text : GetParam().lines) {
        QString line = QString::fromStdString(text);
        line.replace("{url}", url_).replace("{file}", file_);
        EXPECT_TRUE(logs_.contains(line.toStdString())) << text;
    }
}

// How the debug stream quotes an answer: a long one by its first 64 KiB.
std::string escaped(const std::string& text) {
    std::string quoted;
    for (const char c : text) quoted += c == '"' ? "\\\"" : std::string(1, c);
    return quoted;
}
std::string quoted_start_of(const std::string& answer) {
    return escaped(answer.substr(0, 64 * 1024)) + "... (" + std::to_string(answer.size()) +
           " bytes)";
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(paths, path_log, ::testing::Values(
    path_lines{"information_success", {"upload_handler:   response= " + success}},
    path_lines{"information_not_json",
        {"error: json parse exception: <html>oops</html>", "error: failed response "}},
    path_lines{"information_http_error", {"error401"}},
    path_lines{"information_unreachable", {"error1", "Connection refused",
        "TarvoConsumerScanner::information_api::http_connector::send_request url :  {url}"}},
    // A null sink hears nothing; the log still tells.
    path_lines{"information_null_sink",
        {"error: json parse exception: {broken", "error: failed response "}},
    path_lines{"information_answer_at_the_bound", {quoted_start_of(padded_success(1024 * 1024))}},
    path_lines{"information_answer_over_the_bound",
        {"error: answer larger than 1048576 bytes, not read"}},
    path_lines{"file_success_with_id", {"err_info=success", "dfs_id=abc",
        "send_multipart_request ret=0",
        "TarvoConsumerScanner::information_api::upload_file url_post :  "
        "?category=feedback&bucket=pub"}},
    path_lines{"file_success_without_id",
        {"upload_file_handler" + success, "dfs_id=", '"' + escaped(success) + '"'}},
    path_lines{"file_rejected", {"err_info=failed", "error: failed response "}},
    path_lines{"file_not_json", {"error: json parse exception: {broken"}},
    path_lines{"file_missing", {"file open faied or not readable  !{file}",
        "send_multipart_request ret=-1",
        "TarvoConsumerScanner::information_api::upload_file upload_file ret :  -1"}},
    path_lines{"descriptor_object", {" get_url_json_file full_url={url}", "manager->post reply_=",
        "status_code=200", R"({\"version\":\"3\",\"n\":[1]})",  // the debug stream's quote
        " json parse result : isEmpty=0isNull=0isArray=0",
        " json  pram   : isEmpty=0isNull=0isArray=0"}},
    path_lines{"descriptor_array", {" json parse result : isEmpty=0isNull=0isArray=1"}},
    path_lines{"descriptor_html_page", {"upload_file_handler<html>503</html>",
        "error: json parse error : isEmpty=1isNull=1", "error: failed response ",
        " json  pram   : isEmpty=1isNull=1isArray=0"}},
    path_lines{"descriptor_http_error", {"error203"}},
    path_lines{"descriptor_nested_257_deep", {"error: json parse error : isEmpty=1isNull=1"}}),
    [](const auto& info) { return std::string(info.param.row); });
// clang-format on

// A silent service: the information upload and the descriptor query report a
// time-out at every interval until the late answer, which is still handled;
// the file upload's watchdog stops once the file has gone out.
TEST_F(library_host, silence_reports_time_outs_until_the_late_answer) {
    server_.answer_silently("/dtta", success);
    server_.answer_silently("/up", success);
    server_.answer_silently("/cdn/software/x/interface.json", "[2]");
    server_.start();
    write_file("report.zip", "zip bytes");
    api::upload_information(server_.url("/dtta"), "{}", "app", "usage", &sink_, 31, 300);
    api::upload_file(server_.url("/up"), "report.zip", "app", "", &sink_, 32, 300);
    api::get_url_json_file(server_.url("/cdn"), "x", &sink_, 33, 300);

    ASSERT_TRUE(sink_.wait_for_responses(2, 31) && sink_.wait_for_responses(2, 33));
    EXPECT_TRUE(sink_.responses(32).empty());
    EXPECT_GE(logs_.count("net connect time out"), 4);
    server_.release_silent();
    const auto settled = [&](int id) {
        const auto all = sink_.responses(id);
        return !all.empty() && all.back().info.state == 0;
    };
    ASSERT_TRUE(wait_until([&] { return settled(31) && settled(32) && settled(33); }));
    const std::size_t total = sink_.responses().size();
    // A watchdog still running would report within 300 ms, before the first
    // report of one started now with three times that interval.
    local_server quiet;
    quiet.answer_silently("/quiet", "");
    quiet.start();
    api::upload_information(quiet.url("/quiet"), "{}", "app", "usage", &sink_, 34, 900);
    ASSERT_TRUE(sink_.wait_for_responses(1, 34));
    EXPECT_EQ(sink_.responses().size(), total + 1) << "the watchdog stops with the answer";
    for (int id : {31, 33}) {
        auto reports = sink_.responses(id);
        reports.pop_back();
        for (const call& r : reports)
            EXPECT_EQ(std::make_tuple(r.thread, r.info.ok, r.info.state, r.info.net_error,
                                      r.info.error_string.toStdString()),
                      std::make_tuple(worker(), false, 6, -1, std::string("timeout")));
    }
}

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
TEST_F(library_host, parameters_and_headers_as_the_connector_applies_them) {
    server_.answer_json("/base/sub", R"({"status":"success"})");
    server_.answer_json("/up", R"({"status":"success"})");
    server_.start();
    write_file("header.bin", "abc");
    const std::map<std::string, std::string> headers{{"X-Extra", "x"}, {"X-Auth-AppID", "a9"}};
    http_connector* params = registered_connector(5, &sink_);
    params->send_request("/base", "{}", {{"b", "2"}, {"a", "1"}}, 5000, "sub", true, {},
                         server_.url().toStdString());
    http_connector* post = registered_connector(6, &sink_);
    post->send_request("/base", "{}", {{"type", "t"}}, 5000, "sub", true, headers,
                       server_.url().toStdString());
    http_connector* upload = registered_connector(7, &sink_);
    EXPECT_EQ(upload->send_multipart_request("?category=feedback&bucket=pub", "header.bin", {},
                                             {{"X-Trace-Id", "t-1"}, {"X-Auth-AppID", "app-h"}},
                                             5000, server_.url("/up")),
              0);
    for (http_connector* connector : {params, post, upload}) connector->moveToThread(worker());

    // The refused request's unread body reaches the server's parser as one
    // more, empty, request: wait for the three targets, not a count.
    std::map<std::string, received_request> by_target;
    ASSERT_TRUE(wait_until([&] {
        for (const received_request& r : server_.requests()) by_target[r.target] = r;
        return by_target.count("/base/sub?a=1?b=2") && by_target.count("/base/sub?type=t") &&
               by_target.count("/up?category=feedback&bucket=pub");
    }));
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
                {"yes", false, "https", false},
                {"1", true, "https", true},
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
            ASSERT_TRUE(sink_.wait_for_responses(1, wanted)) << row.scheme << row.verify;
            const api::response_info_t info = sink_.responses(wanted)[0].info;
            EXPECT_EQ(info.ok, row.accepted) << wanted << ": " << info.error_string.toStdString();
            EXPECT_EQ(info.net_error, row.accepted ? 0 : QNetworkReply::SslHandshakeFailedError);
        }
    }
    // A blank before the scheme is no address at all: refused before any TLS.
    api::upload_information(" " + url, "{}", "a", "usage", &sink_, 99, 5000);
    ASSERT_TRUE(sink_.wait_for_responses(1, 99));
    EXPECT_EQ(sink_.responses(99)[0].info.state, 7);
    EXPECT_EQ(server.requests().size(), 2 * std::count_if(std::begin(rows), std::end(rows),
                                                          [](auto& r) { return r.accepted; }));
}

TEST(tls_rule, only_an_https_scheme_at_the_very_start_relaxes_verification) {
    using namespace TarvoConsumerScanner::information_api;
    const QSslConfiguration defaults = QNetworkRequest().sslConfiguration();
    const std::pair<const char*, bool> cases[] = {
        {"https://h", true}, {"hTtPs://h", true}, {" https://h", false}, {"https ://h", false}};
    for (const auto& [url, relaxed] : cases) {
        QNetworkRequest request((QUrl(url)));
        relax_tls_for_https_url(request, url);
        const QSslConfiguration config = request.sslConfiguration();
        EXPECT_EQ(config.peerVerifyMode(),
                  relaxed ? QSslSocket::VerifyNone : defaults.peerVerifyMode())
            << url;
        EXPECT_EQ(config.protocol(), relaxed ? QSsl::TlsV1_2 : defaults.protocol()) << url;
    }
    QNetworkRequest any_address;  // as the GET, multipart and download requests have it
    relax_tls(any_address);
    EXPECT_EQ(any_address.sslConfiguration().protocol(), QSsl::TlsV1_2);
}

}  // namespace
}  // namespace test_support
