#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <string>
#include <vector>

#include "event_wait.h"
#include "information_api/information_api.h"
#include "library_state.h"
#include "local_server.h"
#include "log_capture.h"
#include "recording_sink.h"

namespace test_support {

using call = recording_sink::call;
using kind = recording_sink::kind;

// Drives the library as a host does: information_init first, so that the
// worker thread exists, the exported entry points in between, and
// information_clean at the end.
class library_host : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(api::information_init(), nullptr); }
    void TearDown() override {
        EXPECT_EQ(api::information_clean(), 0);
        pump_events_for(20);  // the thread object goes with the host's event loop
    }

    // The thread every sink call is expected on.
    static QThread* worker() { return api::state().worker; }

    // A closed loopback port: stands for an unreachable host.
    static QString unreachable_url(const QString& path) {
        return QString("http://127.0.0.1:%1%2").arg(closed_port()).arg(path);
    }

    std::vector<call> responses_for(int connection_id) const {
        std::vector<call> selected;
        for (const call& r : sink_.responses())
            if (r.connection_id == connection_id) selected.push_back(r);
        return selected;
    }

    bool wait_for_responses_for(int connection_id, std::size_t n) const {
        return wait_until([&] { return responses_for(connection_id).size() >= n; });
    }

    // Bytes that exercise a byte-exact transfer: every byte value, CR LF
    // pairs and boundary-like dashes, in no repeating period.
    static QByteArray sample_bytes(int size) {
        QByteArray bytes("\r\n--boundary\r\n\0--\r\n", 19);
        for (quint32 x = 2463534242u; bytes.size() < size;) {
            x ^= x << 13, x ^= x >> 17, x ^= x << 5;
            bytes.append(static_cast<char>(x));
        }
        return bytes.left(size);
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

    recording_sink sink_;
    log_capture logs_;
    local_server server_;
};

}  // namespace test_support
