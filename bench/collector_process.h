#pragma once

#include <signal.h>

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStringList>

// An information_collector run by a benchmark on a free loopback port, its
// output into a file (a pipe that nobody reads would stop it once full);
// stopped with SIGTERM when destroyed.
class collector_process {
public:
    collector_process(const QString& program, const QStringList& arguments, const QString& log) {
        process_.setStandardOutputFile(log);
        process_.start(program, QStringList{"--port", "0"} + arguments);
        process_.waitForStarted(5000);
        QFile out(log);
        for (int tries = 0; tries < 1000 && port_ == 0 && process_.state() == QProcess::Running;
             ++tries) {
            process_.waitForFinished(10);
            if (out.isOpen() || out.open(QIODevice::ReadOnly))
                port_ = QRegularExpression("listening on http://127.0.0.1:(\\d+)")
                            .match(out.readAll())
                            .captured(1)
                            .toInt();
            out.seek(0);
        }
    }
    ~collector_process() {
        ::kill(pid_t(process_.processId()), SIGTERM);
        process_.waitForFinished(5000);
    }
    collector_process(const collector_process&) = delete;
    collector_process& operator=(const collector_process&) = delete;

    int port() const { return port_; }
    QString url(const QString& path) const {
        return QString("http://127.0.0.1:%1%2").arg(port_).arg(path);
    }
    // A figure of /proc/<pid>/status, such as Threads, VmRSS or VmHWM (KiB); -1 when none.
    long status(const char* name) const {
        QFile file(QString("/proc/%1/status").arg(process_.processId()));
        if (!file.open(QIODevice::ReadOnly)) return -1;
        const auto match =
            QRegularExpression(QString("%1:\\s*(\\d+)").arg(name)).match(file.readAll());
        return match.hasMatch() ? match.captured(1).toLong() : -1;
    }

private:
    QProcess process_;
    int port_ = 0;
};
