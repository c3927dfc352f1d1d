#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>

#include "tool_process.h"

// A host's working folder for information_uploader: res/system.ini,
// url_config.ini and keploinfo/, in the test's own temporary folder. A table
// gives each row a fresh one with use_host.
class uploader_test : public testing::Test {
protected:
    QString host;

    void SetUp() override { use_host("host"); }

    void use_host(const QString& name) {
        host = QDir::current().absoluteFilePath(name);
        QDir().mkpath(host + "/keploinfo");
    }

    // Writes res/system.ini and url_config.ini (the information-upload address).
    void configure(int enable, int connect_time, const QString& address, int interval = 60,
                   int test = 0) {
        tool_test::write_text(host + "/res/system.ini",
                              QString::asprintf("[General]\nenable=%d\nconnect_time=%d\n"
                                                "time_intval=%d\ntest=%d\n",
                                                enable, connect_time, interval, test)
                                  .toUtf8());
        tool_test::write_text(host + "/url_config.ini",
                              "[General]\nupload_url=" + address.toUtf8());
    }

    // A record last written age_seconds ago; returns its path.
    QString add_record(const QString& name, const QString& type, int age_seconds = 60) {
        const QString path = host + "/keploinfo/" + name;
        tool_test::write_record(path, QString(R"({"record":"%1"})").arg(name).toUtf8(), type,
                                age_seconds);
        return path;
    }

    tool_test::tool_result uploader(const QStringList& arguments) {
        return tool_test::run_tool(INFORMATION_UPLOADER_PATH,
                                   arguments + QStringList{"--workdir", host});
    }
};

// A run's output, for the message of a failed assertion.
inline std::string shown(const tool_test::tool_result& result) {
    return "exit " + std::to_string(result.exit_code) + "\n--- stdout\n" +
           result.out.toStdString() + "--- stderr\n" + result.err.toStdString();
}

// Whether text holds every one of lines; names the first one missing.
inline testing::AssertionResult holds_all(const QString& text, const QStringList& lines) {
    for (const QString& line : lines)
        if (!text.contains(line)) return testing::AssertionFailure() << "no " << line.toStdString();
    return testing::AssertionSuccess();
}
