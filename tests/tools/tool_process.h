#pragma once

#include <QElapsedTimer>
#include <QProcess>
#include <string>
#include <vector>

namespace tool_test {

// What a finished tool run left behind.
struct tool_result {
    bool finished = false;  // false: killed after the time limit
    int exit_code = -1;
    QString out;
    QString err;
    int elapsed_ms = 0;
};

// A running tool whose output is read while it runs.
class running_tool {
public:
    // folder empty: the current one.
    running_tool(const QString& program, const QStringList& arguments, const QString& folder);
    ~running_tool() { stop(0, 0); }

    // Waits at most timeout_ms until the standard output holds text.
    bool wait_for_output(const QString& text, int timeout_ms = 10000);
    QString output() { return drain(), out_; }
    QString errors() { return drain(), err_; }
    qint64 pid() const { return process_.processId(); }
    // Sends signal_number (none when 0) and waits at most timeout_ms for the
    // end; kills the tool when it has not ended by then.
    tool_result stop(int signal_number, int timeout_ms = 10000);

private:
    void drain() {
        out_ += QString::fromLocal8Bit(process_.readAllStandardOutput());
        err_ += QString::fromLocal8Bit(process_.readAllStandardError());
    }

    QProcess process_;
    QElapsedTimer clock_;
    QString out_;
    QString err_;
};

// Runs program in folder (empty: the current one) and waits at most
// timeout_ms for it to end.
tool_result run_tool(const QString& program, const QStringList& arguments,
                     const QString& folder = QString(), int timeout_ms = 20000);

// information_collector on a free loopback port, storing into folder.
class collector_process {
public:
    explicit collector_process(const QString& folder, const QStringList& extra_arguments = {});

    int port() const { return port_; }
    // "http://127.0.0.1:<port>" followed by path.
    QString url(const QString& path = QString()) const {
        return QString("http://127.0.0.1:%1%2").arg(port_).arg(path);
    }
    // Rows of a query on the collector's database, each column as text.
    std::vector<std::vector<std::string>> query(const std::string& sql) const;
    running_tool& tool() { return tool_; }

private:
    QString folder_;
    running_tool tool_;
    int port_ = 0;
};

// Writes a record file as the library does: INI with "data" (a byte array)
// and "type", last modified age_seconds ago.
void write_record(const QString& path, const QByteArray& json, const QString& type,
                  int age_seconds);

// Writes text into path, creating its folder.
void write_text(const QString& path, const QByteArray& text);

}  // namespace tool_test
