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

running_tool::running_tool(const QString& program, const QStringList& arguments,
                           const QString& folder) {
    process_.setWorkingDirectory(folder);
    clock_.start();
    process_.start(program, arguments);
    if (!process_.waitForStarted(5000))
        throw std::runtime_error("cannot start " + program.toStdString());
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

tool_result running_tool::stop(int signal_number, int timeout_ms) {
    tool_result result;
    if (signal_number && process_.state() != QProcess::NotRunning) ::kill(pid(), signal_number);
    result.finished =
        process_.waitForFinished(timeout_ms) && process_.exitStatus() == QProcess::NormalExit;
    process_.kill();  // nothing when it has ended
    process_.waitForFinished(5000);
    result.exit_code = result.finished ? process_.exitCode() : -1;
    result.elapsed_ms = int(clock_.elapsed());
    result.out = output();
    result.err = errors();
    return result;
}

tool_result run_tool(const QString& program, const QStringList& arguments, const QString& folder,
                     int timeout_ms) {
    return running_tool(program, arguments, folder).stop(0, timeout_ms);
}

collector_process::collector_process(const QString& folder, const QStringList& extra_arguments)
    : folder_(QFileInfo(folder).absoluteFilePath()),
      tool_(INFORMATION_COLLECTOR_PATH, QStringList{"--port", "0"} + extra_arguments,
            (QDir().mkpath(folder), folder)) {
    const QRegularExpression port_line("listening on https?://127\\.0\\.0\\.1:(\\d+)");
    if (tool_.wait_for_output("listening on"))
        port_ = port_line.match(tool_.output()).captured(1).toInt();
    if (port_ <= 0)
        throw std::runtime_error("the collector did not start: " + tool_.errors().toStdString());
}

std::vector<std::vector<std::string>> collector_process::query(const std::string& sql) const {
    std::vector<std::vector<std::string>> rows;
    const auto add_row = [](void* out, int columns, char** values, char**) {
        auto& table = *static_cast<std::vector<std::vector<std::string>>*>(out);
        table.emplace_back();
        for (int i = 0; i < columns; ++i) table.back().emplace_back(values[i] ? values[i] : "");
        return 0;
    };
    sqlite3* db = nullptr;
    const QString path = QDir(folder_).filePath("collector.sqlite");
    int result = sqlite3_open_v2(path.toUtf8().constData(), &db, SQLITE_OPEN_READONLY, nullptr);
    if (result == SQLITE_OK) {
        sqlite3_busy_timeout(db, 2000);
        result = sqlite3_exec(db, sql.c_str(), add_row, &rows, nullptr);
    }
    const std::string why = db ? sqlite3_errmsg(db) : "out of memory";
    sqlite3_close(db);
    if (result != SQLITE_OK) throw std::runtime_error("query failed: " + why);
    return rows;
}

void write_record(const QString& path, const QByteArray& json, const QString& type,
                  int age_seconds) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSettings record(path, QSettings::IniFormat);
    record.setValue("data", json);
    record.setValue("type", type);
    record.sync();
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
