#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QStringList>

#include "tool_process.h"

// A host's working folder for information_uploader (res/system.ini,
// url_config.ini, keploinfo/) in the test's own temporary folder.
class uploader_test : public testing::Test {
protected:
    using table = tool_test::table;
    const QString host = QDir::current().absoluteFilePath("host");

    // A fresh working folder: res/system.ini, and the information-upload address.
    void configure(int enable, int connect_time, const QString& address, int interval = 60,
                   int test = 0) {
        QDir(host).removeRecursively();
        tool_test::write_system_ini(host, enable, connect_time, interval, test);
        tool_test::write_text(host + "/url_config.ini",
                              "[General]\nupload_url=" + address.toUtf8());
    }

    // A record last written age seconds ago; returns its path.
    QString add_record(const QString& name, const QString& type, int age = 60) {
        const QString path = host + "/keploinfo/" + name;
        tool_test::write_record(path, QString(R"({"record":"%1"})").arg(name).toUtf8(), type, age);
        return path;
    }
};

// Whether a run ended with exit_code and its output holds every one of lines.
inline testing::AssertionResult ended(const tool_test::tool_result& run, int exit_code,
                                      const QStringList& lines) {
    QStringList missing;
    for (const QString& line : lines)
        if (!(run.out + run.err).contains(line)) missing << line;
    if (run.exit_code == exit_code && missing.isEmpty()) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "exit " << run.exit_code << ", missing "
                                       << missing.join(" | ").toStdString() << "\n--- stdout\n"
                                       << (run.out + "--- stderr\n" + run.err).toStdString();
}
