// What a host hears from each request kind for each kind of answer, through
// the exported entry points against a local server, what reaches the service
// and the log lines each path writes; the connector's query and header rules;
// TLS against a self-signed server: the contract's two relaxing rules, and
// verified TLS when the build or the environment asks for it.
#include <QJsonDocument>
#include <QNetworkReply>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <algorithm>

#include "http/http_connector.h"
#include "library_host.h"

namespace test_support {
namespace {

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
enum class setup { none, null_sink, missing_file, empty_file, endless_answer };

struct outcome_case {
    const char* name;
    request kind;
    int status;  // HTTP status of the answer, or unreachable
    std::string body;
    std::vector<report> reports;
    // Lines of the path; {url} stands for the request's address, {file} for
    // the uploaded file's path.
    std::vector<std::string> log_lines;
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

class request_outcome : public library_host, public ::testing::WithParamInterface<outcome_case> {
protected:
    // Starts the row's request under id 21; returns its address.
    QString start(const outcome_case& c) {
        const char* type = c.body.rfind("<", 0) == 0 ? "text/html" : "application/json";
        for (const char* path : {"/dtta", "/up", "/cdn/software/x/interface.json"}) {
            if (c.with == setup::endless_answer)
                server_.answer_endlessly(path);
            else
                server_.answer(path, c.body, type, c.status);
        }
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

    QString file_;
};

TEST_P(request_outcome, reaches_the_host_with_its_codes_and_logs_its_path) {
    const outcome_case& c = GetParam();
    const QString url = start(c);
    std::vector<std::string> lines;
    for (const std::string& line : c.log_lines)
        lines.push_back(QString::fromStdString(line)
                            .replace("{url}", url)
                            .replace("{file}", file_)
                            .toStdString());

    ASSERT_TRUE(sink_.wait_for_responses(c.reports.size()));
    ASSERT_TRUE(wait_until([&] {
        for (const std::string& line : lines)
            if (!logs_.contains(line)) return false;
        return true;
    })) << "a log line of the path is missing";
    pump_events_for(200);  // room for a report too many

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
    else if (c.with != setup::endless_answer && server_.wait_for_requests(1))
        expect_on_the_wire(c.kind, server_.requests().at(0), c.with == setup::empty_file);
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

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}
const int internal = QNetworkReply::InternalServerError;

// clang-format off
INSTANTIATE_TEST_SUITE_P(rows, request_outcome, ::testing::Values(
    outcome_case{"information_success", request::information, 200, success, {accepted},
        {"upload_handler:   response= " + success}},
    outcome_case{"information_rejected_with_message", request::information, 200,
        R"({"status":"failed","result":"quota"})", {{false, 10, -2, "quota", ""}},
        {"error: failed response "}},
    outcome_case{"information_status_compared_exactly", request::information, 200,
        R"({"status":"Success"})", {rejected}, {"error: failed response "}},
    outcome_case{"information_status_missing", request::information, 200, R"({"result":"x"})",
        {{false, 10, -2, "x", ""}}, {"error: failed response "}},
    outcome_case{"information_not_json", request::information, 200, "<html>oops</html>",
        {rejected}, {"error: json parse exception: <html>oops</html>", "error: failed response "}},
    outcome_case{"information_http_error", request::information, 500, success,
        {{false, 7, internal, "", ""}, {false, 7, internal, nullptr, ""}}, {"error401"}},
    outcome_case{"information_unreachable", request::information, unreachable, "",
        {{false, 7, refused, "", ""}, {false, 7, refused, nullptr, ""}},
        {"error1", "Connection refused",
         "TarvoConsumerScanner::information_api::http_connector::send_request url :  {url}"}},
    outcome_case{"information_null_sink", request::information, 200, "{broken", {},
        {"error: json parse exception: {broken", "error: failed response "}, setup::null_sink},
    outcome_case{"information_nested_too_deep", request::information, 200, too_deep, {rejected},
        {"error: json parse exception: [[[", "error: failed response "}},
    // Quoted in the debug line by its first 64 KiB and its size.
    outcome_case{"information_answer_at_the_bound", request::information, 200,
        padded_success(1024 * 1024), {accepted}, {quoted_start_of(padded_success(1024 * 1024))}},
    outcome_case{"information_answer_over_the_bound", request::information, 200,
        padded_success(1024 * 1024 + 1), {too_large},
        {"error: answer larger than 1048576 bytes, not read"}},
    outcome_case{"information_endless_answer", request::information, 200, "", {too_large}, {},
        setup::endless_answer},
    outcome_case{"file_success_with_id", request::file, 200,
        R"({"status":"success","result":{"dfs_id":"abc"}})", {{true, 0, 0, nullptr, "abc"}},
        {"err_info=success", "dfs_id=abc", "send_multipart_request ret=0",
         "TarvoConsumerScanner::information_api::upload_file url_post :  "
         "?category=feedback&bucket=pub"}},
    outcome_case{"file_success_without_id", request::file, 200, success, {accepted},
        {"upload_file_handler" + success, "dfs_id=", '"' + escaped(success) + '"'}},
    outcome_case{"file_rejected", request::file, 200,
        R"({"status":"failed","result":{"dfs_id":"abc"}})", {rejected},
        {"err_info=failed", "error: failed response "}},
    outcome_case{"file_not_json", request::file, 200, "{broken", {rejected},
        {"error: json parse exception: {broken"}},
    // The multipart upload listens to the finished reply only: one report.
    outcome_case{"file_http_error", request::file, 500, success,
        {{false, 7, internal, nullptr, ""}}, {}},
    outcome_case{"file_unreachable", request::file, unreachable, "",
        {{false, 7, refused, nullptr, ""}}, {}},
    outcome_case{"file_missing", request::file, 200, success, {},
        {"file open faied or not readable  !{file}", "send_multipart_request ret=-1",
         "TarvoConsumerScanner::information_api::upload_file upload_file ret :  -1"},
        setup::missing_file},
    outcome_case{"file_null_sink", request::file, 200, success, {}, {"dfs_id="}, setup::null_sink},
    outcome_case{"file_empty", request::file, 200, success, {accepted}, {}, setup::empty_file},
    outcome_case{"file_endless_answer", request::file, 200, "", {too_large}, {},
        setup::endless_answer},
    outcome_case{"descriptor_object", request::descriptor, 200, R"({"version":"3","n":[1]})",
        {accepted},
        {" get_url_json_file full_url={url}", "manager->post reply_=", "status_code=200",
         R"({\"version\":\"3\",\"n\":[1]})",  // the debug stream's quote
         " json parse result : isEmpty=0isNull=0isArray=0",
         " json  pram   : isEmpty=0isNull=0isArray=0"}},
    outcome_case{"descriptor_array", request::descriptor, 200, "[1]", {accepted},
        {" json parse result : isEmpty=0isNull=0isArray=1"}},
    outcome_case{"descriptor_html_page", request::descriptor, 200, "<html>503</html>",
        {rejected},
        {"upload_file_handler<html>503</html>", "error: json parse error : isEmpty=1isNull=1",
         "error: failed response ", " json  pram   : isEmpty=1isNull=1isArray=0"}},
    outcome_case{"descriptor_empty_object", request::descriptor, 200, "{}", {accepted},
        {" json parse result : isEmpty=0isNull=0isArray=0"}},
    outcome_case{"descriptor_http_error", request::descriptor, 404, "{}",
        {{false, 7, QNetworkReply::ContentNotFoundError, "", ""},
         {false, 7, QNetworkReply::ContentNotFoundError, nullptr, ""}}, {"error203"}},
    outcome_case{"descriptor_unreachable", request::descriptor, unreachable, "",
        {{false, 7, refused, "", ""}, {false, 7, refused, nullptr, ""}}, {}},
    outcome_case{"descriptor_null_sink", request::descriptor, 200, "[1]", {},
        {" json parse result : isEmpty=0isNull=0isArray=1"}, setup::null_sink},
    outcome_case{"descriptor_nested_256_deep", request::descriptor, 200, nested(256), {accepted},
        {}},
    outcome_case{"descriptor_nested_257_deep", request::descriptor, 200, nested(257), {rejected},
        {"error: json parse error : isEmpty=1isNull=1"}},
    // Qt's parser would lose the memory of a container whose name repeats.
    outcome_case{"descriptor_repeating_a_container_name", request::descriptor, 200,
        R"({"a":{"b":1},"a":1})", {rejected}, {"error: json parse error : isEmpty=1isNull=1"}},
    outcome_case{"descriptor_repeating_a_container_name_escaped", request::descriptor, 200,
        R"({"\ud83d\ude00":{"b":1},"😀":"x"})", {rejected}, {}},
    outcome_case{"descriptor_repeating_a_scalar_name", request::descriptor, 200,
        R"({"a":1,"a":{"b":2}})", {accepted}, {}},
    outcome_case{"descriptor_endless_answer", request::descriptor, 200, "",
        {{false, 10, -2, "answer larger than 16777216 bytes, not read", ""}}, {},
        setup::endless_answer}),
    [](const ::testing::TestParamInfo<outcome_case>& info) { return std::string(info.param.name); });
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
    pump_events_for(700);
    EXPECT_EQ(sink_.responses().size(), total) << "the watchdog stops with the answer";
    for (int id : {31, 33}) {
        auto reports = sink_.responses(id);
        reports.pop_back();
        for (const call& r : reports)
            EXPECT_EQ(std::make_tuple(r.thread, r.info.ok, r.info.state, r.info.net_error,
                                      r.info.error_string.toStdString()),
                      std::make_tuple(worker(), false, 6, -1, std::string("timeout")));
    }
}

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
