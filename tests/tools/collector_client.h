#pragma once

// Clients of information_collector for its tests: requests as table rows
// describe them, sent through httplib, and a raw TCP client for requests that
// misbehave on purpose.
#include <gtest/gtest.h>
#include <httplib.h>

#include <QTcpSocket>

#include "tool_process.h"

namespace collector_test {

using tool_test::collector_process;
using tool_test::table;

const char* const test_app_id = "3c1f9a7e55d04b28a6e2f0b9d4c87a13";
const char* const release_app_id = "a94e07b3c2d851f6e0b7a4c39d2f6e58";
const char* const json_type = "application/json;charset=utf-8";
const char* const form_type = "multipart/form-data; boundary=b0undary";
const std::string ok = R"({"status":"success"})";

inline std::string failed(const std::string& why) {
    return R"({"status":"failed","result":")" + why + R"("})";
}

struct request {
    std::string method;  // GET, POST or PUT
    std::string target;
    std::string app_id;  // empty: no X-Auth-AppID
    std::string content_type;
    std::string body;
    std::string host = {};  // empty: the client's own Host header
};

inline request get(const std::string& target) {
    return {"GET", target, "", "", ""};
}

inline request post(const std::string& target, const std::string& body, const char* app_id) {
    return {"POST", target, app_id, json_type, body};
}

inline httplib::Result send(const collector_process& to, const request& r) {
    httplib::Client client(to.url().toStdString());
    client.enable_server_certificate_verification(false);
    httplib::Headers headers;
    if (!r.app_id.empty()) headers.emplace("X-Auth-AppID", r.app_id);
    if (!r.host.empty()) headers.emplace("Host", r.host);
    if (r.method == "GET") return client.Get(r.target.c_str(), headers);
    if (r.method == "PUT") return client.Put(r.target.c_str(), headers, r.body, r.content_type);
    return client.Post(r.target.c_str(), headers, r.body, r.content_type);
}

// A multipart/form-data body in form_type, one part per {name, file name, content}.
inline std::string form(const std::vector<std::vector<std::string>>& parts) {
    std::string body;
    for (const auto& part : parts)
        body += "--b0undary\r\nContent-Disposition: form-data; name=\"" + part[0] +
                "\"; filename=\"" + part[1] +
                "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + part[2] + "\r\n";
    return body + "--b0undary--\r\n";
}

// A plain TCP client of a loopback port.
class raw_client : public QTcpSocket {
public:
    explicit raw_client(int port) {
        connectToHost("127.0.0.1", quint16(port));
        if (!waitForConnected(5000)) throw std::runtime_error("cannot connect");
    }
    bool send(const QByteArray& bytes) {
        return write(bytes) == bytes.size() && waitForBytesWritten(1000);
    }
    // What arrives within timeout_ms, or until the server closes.
    QByteArray receive(int timeout_ms) {
        QByteArray received;
        for (const QDeadlineTimer deadline(timeout_ms); !closed() && !deadline.hasExpired();)
            if (waitForReadyRead(int(deadline.remainingTime()))) received += readAll();
        return received + readAll();
    }
    bool closed() const { return state() != ConnectedState; }
};

}  // namespace collector_test
