#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

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
