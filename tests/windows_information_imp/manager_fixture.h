#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>
#include <memory>

#include "log_capture.h"
#include "windows_information_imp/record_file.h"
#include "windows_information_imp/windows_information_imp.h"

namespace test_support {

namespace api = TarvoConsumerScanner::information_api;
using api::windows_information_imp;

// Each test works in a folder of its own (the store and the settings files
// are relative to the working directory) with a manager made as the separate
// uploader makes it: no probes run, so the session record holds exactly what
// the test puts there.
class manager_test : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(QDir::setCurrent(workdir_.path()));
        QCoreApplication::setApplicationName("information_uploader");
        manager_ = std::make_unique<windows_information_imp>();
    }
    void TearDown() override {
        manager_.reset();  // its destructor writes relative to this folder
        qApp->setProperty("start_time", QVariant());
        QCoreApplication::setApplicationName("test");
        QDir::setCurrent(QDir::tempPath());
    }

    // Writes "./res/system.ini" and makes the manager afresh to read it.
    void system_settings(const QVariantMap& values) {
        QDir().mkpath("res");
        QFile::remove("res/system.ini");
        QSettings settings("./res/system.ini", QSettings::IniFormat);
        for (auto it = values.begin(); it != values.end(); ++it) settings.setValue(it.key(), *it);
        settings.sync();
        manager_ = std::make_unique<windows_information_imp>();
    }

    // A record file under ./keploinfo/ last modified at modified; returns its
    // absolute path.
    static QString write_record(const QString& name, const QDateTime& modified,
                                const QString& type = "usage") {
        const QString path = QFileInfo("keploinfo/" + name).absoluteFilePath();
        api::write_record_file(path, "{\"name\": \"" + name.toUtf8() + "\"}", type);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadWrite) &&
                    file.setFileTime(modified, QFileDevice::FileModificationTime));
        return path;
    }

    static QStringList record_names() {
        return QDir("keploinfo").entryList(QDir::Files | QDir::Hidden, QDir::Name);
    }

    QTemporaryDir workdir_;
    log_capture logs_;
    std::unique_ptr<windows_information_imp> manager_;
};

}  // namespace test_support
