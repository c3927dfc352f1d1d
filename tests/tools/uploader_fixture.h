#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>

#include "tool_process.h"

// A host's working folder for information_uploader: res/system.ini,
// url_config.ini and keploinfo/, in the test's own temporary folder.
class uploader_test : public testing::Test {
protected:
    const QString host = QDir::current().absoluteFilePath("host");

    void SetUp() override { QDir().mkpath(host + "/keploinfo"); }

    // Writes res/system.ini.
    void system_settings(int enable, int connect_time, int interval = 60, int test = 0) {
        tool_test::write_text(host + "/res/system.ini",
                              QString("[General]\nenable=%1\nconnect_time=%2\ntime_intval=%3\n"
                                      "test=%4\n")
                                  .arg(enable)
                                  .arg(connect_time)
                                  .arg(interval)
                                  .arg(test)
                                  .toUtf8());
    }

    // Writes url_config.ini with the information-upload address.
    void upload_address(const QString& url) {
        tool_test::write_text(host + "/url_config.ini",
                              QString("[General]\nupload_url=%1\n").arg(url).toUtf8());
    }

    QString record(const QString& name) const { return host + "/keploinfo/" + name; }

    // A record last written age_seconds ago.
    QString add_record(const QString& name, const QString& type, int age_seconds = 60) {
        const QString path = record(name);
        tool_test::write_record(path, QString(R"({"record":"%1"})").arg(name).toUtf8(), type,
                                age_seconds);
        return path;
    }

    tool_test::tool_result uploader(const QStringList& arguments, int timeout_ms = 20000) {
        return tool_test::run_tool(INFORMATION_UPLOADER_PATH,
                                   arguments + QStringList{"--workdir", host}, QString(),
                                   timeout_ms);
    }
};

// Prints a run's output when an assertion about it fails.
inline std::string shown(const tool_test::tool_result& result) {
    return "exit " + std::to_string(result.exit_code) + "\n--- stdout\n" +
           result.out.toStdString() + "--- stderr\n" + result.err.toStdString();
}
