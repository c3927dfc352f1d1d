#include "tool_process.h"

#include <signal.h>
#include <sqlite3.h>

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QUrl>
#include <stdexcept>

#include "windows_information_imp/record_file.h"

namespace tool_test {

running_tool::running_tool(const QString& program, const QStringList& arguments,
                           const QString& folder) {
    process_.setWorkingDirectory(folder);
    process_.start(program, arguments);
    if (!process_.waitForStarted(5000))
        throw std::runtime_error("cannot start " + program.toStdString());
}

bool running_tool::wait_for_output(const QString& text, int timeout_ms, bool on_errors) {
    const QDeadlineTimer deadline(timeout_ms);
    for (drain(); !(on_errors ? err_ : out_).contains(text); drain()) {
        if (deadline.hasExpired() || process_.state() == QProcess::NotRunning) return false;
        process_.waitForReadyRead(int(qMin<qint64>(deadline.remainingTime(), 200)));
    }
    return true;
}

tool_result running_tool::stop(int signal_number, int timeout_ms) {
    if (signal_number && process_.state() != QProcess::NotRunning) ::kill(pid(), signal_number);
    process_.waitForFinished(timeout_ms);  // false at once when it has ended already
    const bool finished =
        process_.state() == QProcess::NotRunning && process_.exitStatus() == QProcess::NormalExit;
    process_.kill();  // nothing when it has ended
    process_.waitForFinished(5000);
    return {finished, finished ? process_.exitCode() : -1, output(), errors()};
}

collector_process::collector_process(const QString& folder, const QStringList& extra_arguments)
    : database_(QDir(folder).absoluteFilePath("collector.sqlite").toStdString()),
      tool_(INFORMATION_COLLECTOR_PATH, QStringList{"--port", "0"} + extra_arguments,
            (QDir().mkpath(folder), folder)) {
    if (tool_.wait_for_output("listening on"))
        port_ = QUrl(tool_.output().section("listening on ", 1).section('\n', 0, 0)).port();
    if (port_ <= 0)
        throw std::runtime_error("the collector did not start: " + tool_.errors().toStdString());
}

std::vector<std::vector<std::string>> collector_process::query(const std::string& sql) const {
    std::vector<std::vector<std::string>> rows;
    const auto add_row = [](void* out, int columns, char** values, char**) {
        auto& added = static_cast<decltype(rows)*>(out)->emplace_back();
        for (int i = 0; i < columns; ++i) added.emplace_back(values[i] ? values[i] : "");
        return 0;
    };
    sqlite3* db = nullptr;
    int result = sqlite3_open_v2(database_.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    if (result == SQLITE_OK && sqlite3_busy_timeout(db, 2000) == SQLITE_OK)
        result = sqlite3_exec(db, sql.c_str(), add_row, &rows, nullptr);
    const std::string why = sqlite3_errmsg(db);  // "out of memory" when db is null
    sqlite3_close(db);
    if (result != SQLITE_OK) throw std::runtime_error("query failed: " + why);
    return rows;
}

void write_record(const QString& path, const QByteArray& json, const QString& type, int age) {
    TarvoConsumerScanner::information_api::write_record_file(path, json, type);
    const QDateTime modified = QDateTime::currentDateTime().addSecs(-age);
    QFile file(path);
    if (!file.open(QIODevice::Append) || !file.setFileTime(modified, QFile::FileModificationTime))
        throw std::runtime_error("cannot age " + path.toStdString());
}

void write_text(const QString& path, const QByteArray& text) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        throw std::runtime_error("cannot write " + path.toStdString());
}

}  // namespace tool_test
