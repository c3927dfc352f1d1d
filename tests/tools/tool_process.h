#pragma once

#include <QProcess>
#include <string>
#include <vector>

namespace tool_test {

struct tool_result {
    bool finished = false;  // false: killed after the time limit
    int exit_code = -1;
    QString out, err;
};

// A tool running in folder (empty: the current one), read while it runs.
class running_tool {
public:
    running_tool(const QString& program, const QStringList& arguments, const QString& folder);
    ~running_tool() { stop(0, 0); }

    // Waits at most timeout_ms until the standard output (on_errors: error) holds text.
    bool wait_for_output(const QString& text, int timeout_ms = 10000, bool on_errors = false);
    QString output() { return drain(), out_; }
    QString errors() { return drain(), err_; }
    qint64 pid() const { return process_.processId(); }
    // Sends signal_number (0: none), waits timeout_ms for the end, then kills.
    tool_result stop(int signal_number, int timeout_ms = 10000);

private:
    void drain() {
        out_ += QString::fromLocal8Bit(process_.readAllStandardOutput());
        err_ += QString::fromLocal8Bit(process_.readAllStandardError());
    }

    QProcess process_;
    QString out_, err_;
};

inline tool_result run_tool(const QString& program, const QStringList& arguments,
                            const QString& folder = QString(), int timeout_ms = 20000) {
    return running_tool(program, arguments, folder).stop(0, timeout_ms);
}

// information_collector on a free loopback port, storing into folder.
class collector_process {
public:
    explicit collector_process(const QString& folder, const QStringList& extra_arguments = {});

    int port() const { return port_; }
    QString url(const QString& path = QString()) const {
        return QString("http://127.0.0.1:%1%2").arg(port_).arg(path);
    }
    // Rows of a query on the collector's database, each column as text.
    std::vector<std::vector<std::string>> query(const std::string& sql) const;
    running_tool& tool() { return tool_; }

private:
    std::string database_;
    running_tool tool_;
    int port_ = 0;
};

// Writes a record with the library's own writer, last modified age seconds ago.
void write_record(const QString& path, const QByteArray& json, const QString& type, int age);

// Writes text into path, creating its folder.
void write_text(const QString& path, const QByteArray& text);

}  // namespace tool_test
