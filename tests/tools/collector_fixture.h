#pragma once

// The collector's tests: requests as table rows describe them, raw TCP for
// requests that misbehave on purpose, and tests run on each database: SQLite in
// the test's folder, PostgreSQL in the cluster with_postgresql.sh starts.
#include <gmock/gmock.h>
#include <httplib.h>
#include <libpq-fe.h>

#include <QHostAddress>
#include <QTcpSocket>

#include "tool_process.h"

namespace collector_test {

using tool_test::collector_process;
using tool_test::table;

const char* const test_app_id = "3c1f9a7e55d04b28a6e2f0b9d4c87a13";
const char* const release_app_id = "a94e07b3c2d851f6e0b7a4c39d2f6e58";
const std::string ok = R"({"status":"success"})";

inline std::string failed(const std::string& why) {
    return R"({"status":"failed","result":")" + why + R"("})";
}

// method: GET, POST or PUT; app_id: empty for no X-Auth-AppID; host: empty for the client's
// own; encoding: the body's Content-Encoding, empty for none.
struct request {
    std::string method, target, app_id, content_type, body, host = {}, encoding = {};
};

inline request get(const std::string& target) {
    return {"GET", target, "", "", ""};
}

inline request post(const std::string& target, const std::string& body, const char* app_id) {
    return {"POST", target, app_id, "application/json;charset=utf-8", body};
}

// The answer; its status is -1 when none came.
inline httplib::Response send(const collector_process& to, const request& r) {
    httplib::Client client(to.url().toStdString());
    client.enable_server_certificate_verification(false);
    httplib::Headers headers;
    if (!r.app_id.empty()) headers.emplace("X-Auth-AppID", r.app_id);
    if (!r.host.empty()) headers.emplace("Host", r.host);
    if (!r.encoding.empty()) headers.emplace("Content-Encoding", r.encoding);
    const auto res = r.method == "GET" ? client.Get(r.target.c_str(), headers)
                     : r.method == "PUT"
                         ? client.Put(r.target.c_str(), headers, r.body, r.content_type)
                         : client.Post(r.target.c_str(), headers, r.body, r.content_type);
    return res ? *res : httplib::Response();
}

// A POST of a multipart/form-data body, one part per {name, file name, content}.
inline request form(const std::vector<std::vector<std::string>>& parts, const char* app_id,
                    const std::string& target = "/up") {
    std::string body;
    for (const auto& part : parts)
        body += "--b0undary\r\nContent-Disposition: form-data; name=\"" + part[0] +
                "\"; filename=\"" + part[1] +
                "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + part[2] + "\r\n";
    return {"POST", target, app_id, "multipart/form-data; boundary=b0undary",
            body + "--b0undary--\r\n"};
}

// A plain TCP client of a loopback port, from another loopback address when given.
class raw_client : public QTcpSocket {
public:
    explicit raw_client(int port, const QString& from = {}) {
        if (!from.isEmpty()) bind(QHostAddress(from));
        connectToHost("127.0.0.1", quint16(port)), waitForConnected();
    }
    void send(const QByteArray& bytes) { write(bytes), waitForBytesWritten(1000); }
    // What arrives within timeout_ms, until it holds until (when given) or the server closes.
    QByteArray receive(int timeout_ms, const QByteArray& until = {}) {
        QByteArray received = readAll();
        for (const QDeadlineTimer deadline(timeout_ms);
             !closed() && !deadline.hasExpired() && !(until.size() && received.contains(until));)
            if (waitForReadyRead(int(deadline.remainingTime()))) received += readAll();
        return received + readAll();
    }
    bool closed() const { return state() != ConnectedState; }
};

// A test run once on each database.
class on_each_database : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        if (GetParam() == "postgresql" && !std::getenv("PGPORT"))
            GTEST_SKIP() << "no PostgreSQL cluster: run the test with with_postgresql.sh";
    }

    // The arguments of a collector in folder: extra, and a new database.
    QStringList on(const QString& folder, const QStringList& extra = {}) {
        database_ = QDir(folder).absoluteFilePath("collector.sqlite").toStdString();
        if (GetParam() == "postgresql") {
            const auto name = "collector_" + folder.toLower().replace(' ', '_').toStdString();
            database_ = "postgresql:///postgres";
            stored("CREATE DATABASE " + name);
            database_ = "postgresql:///" + name;
        }
        return extra + QStringList{"--database", QString::fromStdString(database_)};
    }

    // The rows of sql (which may also change the database); a failure is {{"error", why}}.
    table stored(const std::string& sql) const {
        if (GetParam() == "sqlite") return tool_test::sqlite_rows(database_, sql);
        PGconn* db = PQconnectdb(database_.c_str());
        PGresult* result = PQexec(db, sql.c_str());
        table rows(PQntuples(result));
        for (int row = 0; row < PQntuples(result); ++row)
            for (int column = 0; column < PQnfields(result); ++column)
                rows[row].emplace_back(PQgetvalue(result, row, column));
        if (*PQresultErrorMessage(result)) rows = {{"error", PQresultErrorMessage(result)}};
        PQclear(result);
        PQfinish(db);
        return rows;
    }

private:
    std::string database_;  // the file's path, or a URI
};

}  // namespace collector_test

// Declares suite, whose tests run once on each database named.
#define ON_DATABASES(suite, ...)                                      \
    class suite : public collector_test::on_each_database {};         \
    INSTANTIATE_TEST_SUITE_P(on, suite, testing::Values(__VA_ARGS__), \
                             [](const auto& info) { return info.param; })
