#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <mutex>

#include "event_wait.h"
#include "information_api/information_api.h"
#include "library_state.h"
#include "local_server.h"
#include "log_capture.h"
#include "recording_sink.h"

namespace test_support {

using call = recording_sink::call;
using kind = recording_sink::kind;

// Runs fn on the worker thread once it is done with what it is doing and
// with what was queued to it before.
inline void on_worker(QThread* worker, std::function<void()> fn) {
    auto* anchor = new QObject;
    anchor->moveToThread(worker);
    QMetaObject::invokeMethod(
        anchor, [anchor, fn] { fn(), anchor->deleteLater(); }, Qt::QueuedConnection);
}

// Whether the worker thread got through what it was doing and what was
// queued to it before: a report such work would make has been made.
inline bool worker_caught_up(QThread* worker) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    on_worker(worker, [done] { *done = true; });
    return wait_until([&] { return done->load(); });
}

// Holds the worker thread from now until release() or destruction: what
// reaches it meanwhile waits, so that a test can watch a connector's objects
// before any of its reply's signals is handled.
struct worker_hold {
    explicit worker_hold(QThread* worker) {
        on_worker(worker, [opened = gate.get_future().share()] { opened.wait(); });
    }
    ~worker_hold() { release(); }
    void release() {
        std::call_once(released, [this] { gate.set_value(); });
    }

    std::promise<void> gate;
    std::once_flag released;
};

// Drives the library as a host does: information_init first, so that the
// worker thread exists, the exported entry points in between, and
// information_clean at the end.
class library_host : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(api::information_init(), nullptr); }
    void TearDown() override {
        EXPECT_EQ(api::information_clean(), 0);
        free_deferred_objects();
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
