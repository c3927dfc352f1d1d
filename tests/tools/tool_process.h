#pragma once

#include <signal.h>
#include <sqlite3.h>

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QProcess>
#include <QUrl>
#include <stdexcept>
#include <string>
#include <vector>

#include "windows_information_imp/record_file.h"

namespace tool_test {

using table = std::vector<std::vector<std::string>>;  // rows of a query, each column as text

struct tool_result {
    int exit_code = -1;  // -1: killed, by a signal or after the time limit
    QString out, err;
};

// A tool running in folder (empty: the current one), read while it runs.
class running_tool {
public:
    running_tool(const QString& program, const QStringList& arguments, const QString& folder = {}) {
        process_.setWorkingDirectory(folder);
        process_.start(program, arguments);
        if (!process_.waitForStarted(5000)) throw std::runtime_error("cannot start the tool");
    }
    ~running_tool() { stop(0, 0); }

    // Waits at most timeout_ms until the standard output or error holds text.
    bool wait_for_output(const QString& text, int timeout_ms = 10000) {
        const QDeadlineTimer deadline(timeout_ms);
        for (drain(); !out_.contains(text) && !err_.contains(text); drain()) {
            if (deadline.hasExpired() || process_.state() == QProcess::NotRunning) return false;
            process_.waitForReadyRead(int(qMin<qint64>(deadline.remainingTime(), 200)));
        }
        return true;
    }
    QString output() { return drain(), out_; }
    qint64 pid() const { return process_.processId(); }

    // Sends signal_number (0: none), waits timeout_ms for the end, then kills.
    tool_result stop(int signal_number, int timeout_ms = 10000) {
        if (signal_number && process_.state() != QProcess::NotRunning) ::kill(pid(), signal_number);
        process_.waitForFinished(timeout_ms);  // false at once when it has ended already
        process_.kill();                       // nothing when it has ended
        process_.waitForFinished(5000);
        drain();
        return {process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1, out_,
                err_};
    }

private:
    void drain() {
        out_ += QString::fromLocal8Bit(process_.readAllStandardOutput());
        err_ += QString::fromLocal8Bit(process_.readAllStandardError());
    }

    QProcess process_;
    QString out_, err_;
};

// The rows of sql on an SQLite file (which sql may change); a failure is {{"error", why}}.
inline table sqlite_rows(const std::string& file, const std::string& sql) {
    table rows;
    const auto add_row = [](void* out, int columns, char** values, char**) {
        auto& added = static_cast<table*>(out)->emplace_back();
        for (int i = 0; i < columns; ++i) added.emplace_back(values[i] ? values[i] : "");
        return 0;
    };
    sqlite3* db = nullptr;
    sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_busy_timeout(db, 2000);
    if (sqlite3_exec(db, sql.c_str(), add_row, &rows, nullptr) != SQLITE_OK)
        rows = {{"error", sqlite3_errmsg(db)}};
    sqlite3_close(db);
    return rows;
}

// information_collector on a free loopback port, storing into folder.
class collector_process : public running_tool {
public:
    explicit collector_process(const QString& folder, const QStringList& extra_arguments = {})
        : running_tool(INFORMATION_COLLECTOR_PATH, QStringList{"--port", "0"} + extra_arguments,
                       (QDir().mkpath(folder), folder)),
          database_(folder + "/collector.sqlite") {
        if (wait_for_output("listening on"))
            url_ = output().section("listening on ", 1).section('\n', 0, 0);
        if (port() <= 0) throw std::runtime_error("the collector did not start");
    }

    // The address it listens on (http or https) followed by path.
    QString url(const QString& path = {}) const { return url_ + path; }
    int port() const { return QUrl(url_).port(); }
    table query(const std::string& sql) const { return sqlite_rows(database_.toStdString(), sql); }

private:
    QString database_, url_;
};

// Writes a record with the library's own writer, last modified age seconds ago.
inline void write_record(const QString& path, const QByteArray& json, const QString& type,
                         int age) {
    TarvoConsumerScanner::information_api::write_record_file(path, json, type);
    QFile file(path);
    if (!file.open(QIODevice::Append) ||
        !file.setFileTime(QDateTime::currentDateTime().addSecs(-age), QFile::FileModificationTime))
        throw std::runtime_error("cannot age " + path.toStdString());
}

// Writes text into path, creating its folder.
inline void write_text(const QString& path, const QByteArray& text) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        throw std::runtime_error("cannot write " + path.toStdString());
}

// A host's res/system.ini in folder: the switch, time-outs and schedule that the
// library's manager reads.
inline void write_system_ini(const QString& folder, int enable, int connect_time, int interval = 60,
                             int test = 0) {
    write_text(folder + "/res/system.ini",
               QString("[General]\nenable=%1\nconnect_time=%2\ntime_intval=%3\ntest=%4\n")
                   .arg(enable)
                   .arg(connect_time)
                   .arg(interval)
                   .arg(test)
                   .toUtf8());
}

}  // namespace tool_test
