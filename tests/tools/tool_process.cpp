#include "tool_process.h"

#include <signal.h>
#include <sqlite3.h>

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <stdexcept>

namespace tool_test {

tool_result run_tool(const QString& program, const QStringList& arguments, const QString& folder,
                     int timeout_ms) {
    QProcess process;
    if (!folder.isEmpty()) process.setWorkingDirectory(folder);
    QElapsedTimer clock;
    clock.start();
    process.start(program, arguments);
    tool_result result;
    result.finished = process.waitForStarted(5000) && process.waitForFinished(timeout_ms) &&
                      process.exitStatus() == QProcess::NormalExit;
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(5000);
    }
    result.elapsed_ms = int(clock.elapsed());
    result.exit_code = result.finished ? process.exitCode() : -1;
    result.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    result.err = QString::fromLocal8Bit(process.readAllStandardError());
    return result;
}

running_tool::running_tool(const QString& program, const QStringList& arguments,
                           const QString& folder) {
    process_.setWorkingDirectory(folder);
    process_.start(program, arguments);
    if (!process_.waitForStarted(5000))
        throw std::runtime_error("cannot start " + program.toStdString());
}

running_tool::~running_tool() {
    if (process_.state() == QProcess::NotRunning) return;
    process_.kill();
    process_.waitForFinished(5000);
}

void running_tool::drain() {
    out_ += QString::fromLocal8Bit(process_.readAllStandardOutput());
    err_ += QString::fromLocal8Bit(process_.readAllStandardError());
}

bool running_tool::wait_for_output(const QString& text, int timeout_ms) {
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        drain();
        if (out_.contains(text)) return true;
        const int left = timeout_ms - int(clock.elapsed());
        if (left <= 0 || process_.state() == QProcess::NotRunning) return false;
        process_.waitForReadyRead(qMin(left, 200));
    }
}

QString running_tool::output() {
    drain();
    return out_;
}

QString running_tool::errors() {
    drain();
    return err_;
}

tool_result running_tool::stop(int signal_number, int timeout_ms) {
    tool_result result;
    if (process_.state() != QProcess::NotRunning)
        ::kill(pid_t(process_.processId()), signal_number);
    result.finished =
        process_.waitForFinished(timeout_ms) && process_.exitStatus() == QProcess::NormalExit;
    result.exit_code = result.finished ? process_.exitCode() : -1;
    result.out = output();
    result.err = errors();
    return result;
}

collector_process::collector_process(const QString& folder, const QStringList& extra_arguments)
    : folder_(QFileInfo(folder).absoluteFilePath()),
      tool_(INFORMATION_COLLECTOR_PATH, QStringList{"--port", "0"} + extra_arguments,
            (QDir().mkpath(folder), folder)) {
    if (!tool_.wait_for_output("listening on"))
        throw std::runtime_error("the collector did not start: " + tool_.errors().toStdString());
    const auto match =
        QRegularExpression("listening on https?://127\\.0\\.0\\.1:(\\d+)").match(tool_.output());
    port_ = match.captured(1).toInt();
    if (port_ <= 0) throw std::runtime_error("the collector printed no port");
}

QString collector_process::url(const QString& path) const {
    return QString("http://127.0.0.1:%1%2").arg(port_).arg(path);
}

QString collector_process::database_path() const {
    return QDir(folder_).filePath("collector.sqlite");
}

std::vector<std::vector<std::string>> collector_process::query(const std::string& sql) const {
    sqlite3* db = nullptr;
    std::vector<std::vector<std::string>> rows;
    if (sqlite3_open_v2(database_path().toUtf8().constData(), &db, SQLITE_OPEN_READONLY, nullptr) !=
        SQLITE_OK) {
        sqlite3_close(db);
        throw std::runtime_error("cannot open the collector's database");
    }
    sqlite3_busy_timeout(db, 2000);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        const std::string why = sqlite3_errmsg(db);
        sqlite3_close(db);
        throw std::runtime_error("bad query: " + why);
    }
    while (sqlite3_step(statement) == SQLITE_ROW) {
        std::vector<std::string> row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const unsigned char* text = sqlite3_column_text(statement, i);
            row.emplace_back(text ? reinterpret_cast<const char*>(text) : "");
        }
        rows.push_back(std::move(row));
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return rows;
}

void write_record(const QString& path, const QByteArray& json, const QString& type,
                  int age_seconds) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    {
        QSettings record(path, QSettings::IniFormat);
        record.setValue("data", json);
        record.setValue("type", type);
        record.sync();
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite) ||
        !file.setFileTime(QDateTime::currentDateTime().addSecs(-age_seconds),
                          QFileDevice::FileModificationTime))
        throw std::runtime_error("cannot age " + path.toStdString());
}

void write_text(const QString& path, const QByteArray& text) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        throw std::runtime_error("cannot write " + path.toStdString());
}

}  // namespace tool_test
