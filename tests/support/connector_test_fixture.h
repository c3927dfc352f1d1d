#pragma once

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <vector>

#include "api_thread.h"
#include "http/http_connector.h"
#include "local_server.h"
#include "log_capture.h"
#include "recording_sink.h"

namespace test_support {

// Drives http_connector the way the entry points do: the request is issued on
// the test's thread, then the connector moves to a running worker thread.
class connector_test : public ::testing::Test {
protected:
    using http_connector = TarvoConsumerScanner::information_api::http_connector;
    using str_map = std::map<std::string, std::string>;

    void SetUp() override { worker_.start_thread(); }

    void TearDown() override {
        for (http_connector* c : connectors_) c->deleteLater();
        worker_.stop_thread();
    }

    http_connector* make_connector(int id, api::information_sink* sink) {
        auto* c = new http_connector(id, sink, nullptr);
        connectors_.push_back(c);
        return c;
    }

    void hand_to_worker(http_connector* c) { c->moveToThread(&worker_); }

    // send_request as the information upload calls it.
    http_connector* post_json(int id, api::information_sink* sink, const QString& url,
                              const QString& body, int timeout_ms = 5000,
                              const str_map& params = {{"type", "usage"}},
                              const str_map& headers = {{"X-Auth-AppID", "app"}}) {
        http_connector* c = make_connector(id, sink);
        c->send_request("", body, params, timeout_ms, "", true, headers, url.toStdString());
        hand_to_worker(c);
        return c;
    }

    http_connector* get(int id, api::information_sink* sink, const QString& url,
                        int timeout_ms = 5000) {
        http_connector* c = make_connector(id, sink);
        c->send_get_request(url, timeout_ms);
        hand_to_worker(c);
        return c;
    }

    QThread* worker_thread() { return &worker_; }

    ::api_thread worker_;
    recording_sink sink_;
    log_capture logs_;
    local_server server_;
    std::vector<http_connector*> connectors_;
};

}  // namespace test_support
