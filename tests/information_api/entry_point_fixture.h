#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <string>

#include "event_wait.h"
#include "information_api/information_api.h"
#include "library_state.h"
#include "local_server.h"
#include "log_capture.h"
#include "recording_sink.h"

namespace test_support {

// Drives the library as a host does: information_init first, so that the
// worker thread exists, the exported entry points in between, and
// information_clean at the end.
class entry_point_test : public ::testing::Test {
protected:
    using kind = recording_sink::kind;

    void SetUp() override { ASSERT_NE(api::information_init(), nullptr); }
    void TearDown() override { EXPECT_EQ(api::information_clean(), 0); }

    // The thread every sink call is expected on.
    static QThread* worker() { return api::state().worker; }

    // A closed loopback port: stands for an unreachable host.
    static QString unreachable_url(const QString& path) {
        return QString("http://127.0.0.1:%1%2").arg(closed_port()).arg(path);
    }

    // Responses that arrived for one connection id.
    std::vector<recording_sink::call> responses_for(int connection_id) const {
        std::vector<recording_sink::call> selected;
        for (const auto& r : sink_.responses())
            if (r.connection_id == connection_id) selected.push_back(r);
        return selected;
    }

    // One outcome as the host receives it: on the worker thread, under its
    // connection id, with the codes given.
    static void expect_outcome(const recording_sink::call& r, int connection_id, bool ok, int state,
                               int net_error) {
        EXPECT_EQ(r.connection_id, connection_id);
        EXPECT_TRUE(r.has_info) << "connection " << connection_id;
        EXPECT_EQ(r.info.ok, ok) << "connection " << connection_id;
        EXPECT_EQ(r.info.state, state) << "connection " << connection_id;
        EXPECT_EQ(r.info.net_error, net_error) << "connection " << connection_id;
        EXPECT_EQ(r.thread, worker()) << "connection " << connection_id;
    }

    // Waits until connection_id has at least n responses.
    bool wait_for_responses_for(int connection_id, std::size_t n, int timeout_ms = 10000) const {
        return wait_until([&] { return responses_for(connection_id).size() >= n; }, timeout_ms);
    }

    // Bytes that exercise a byte-exact transfer: every byte value, CR LF
    // pairs and boundary-like dashes.
    static QByteArray sample_bytes(int size) {
        static const QByteArray pattern = [] {
            QByteArray p("\r\n--boundary\r\n\0--\r\n", 19);
            for (int b = 0; b < 256; ++b) p.append(static_cast<char>(b));
            return p;
        }();
        QByteArray bytes;
        bytes.reserve(size);
        for (quint32 x = 2463534242u; bytes.size() < size;) {
            x ^= x << 13, x ^= x >> 17, x ^= x << 5;  // xorshift: no repeating period
            if (x % 7 == 0)
                bytes.append(pattern.left(size - bytes.size()));
            else
                bytes.append(static_cast<char>(x));
        }
        return bytes;
    }

    static QByteArray read_all(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    static void write_file(const QString& path, const QByteArray& bytes) {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
        ASSERT_EQ(file.write(bytes), bytes.size());
    }

    static std::string to_std(const QByteArray& bytes) {
        return std::string(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    }

    recording_sink sink_;
    log_capture logs_;
    local_server server_;
};

}  // namespace test_support
