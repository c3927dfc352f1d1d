#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>
#include <QVariant>
#include <initializer_list>
#include <memory>
#include <utility>

#include "log_capture.h"
#include "windows_information_imp/record_file.h"
#include "windows_information_imp/windows_information_imp.h"

namespace test_support {

namespace api = TarvoConsumerScanner::information_api;

// Each test works in a folder of its own (the store and the settings files are
// relative to the working directory) and leaves the application name and the
// "start_time" property as it found them. Managers are made as the separate
// uploader makes them unless a test says otherwise: no probes run.
class store_test : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(workdir_.isValid());
        previous_dir_ = QDir::currentPath();
        ASSERT_TRUE(QDir::setCurrent(workdir_.path()));
        previous_name_ = QCoreApplication::applicationName();
        QCoreApplication::setApplicationName("information_uploader");
    }

    void TearDown() override {
        qApp->setProperty("start_time", QVariant());
        QCoreApplication::setApplicationName(previous_name_);
        QDir::setCurrent(previous_dir_);
    }

    static std::unique_ptr<api::windows_information_imp> make_manager() {
        return std::unique_ptr<api::windows_information_imp>(new api::windows_information_imp());
    }

    // Writes "./res/system.ini"; call it before making the manager.
    static void write_system_settings(std::initializer_list<std::pair<const char*, int>> values) {
        QDir().mkpath("res");
        QSettings settings("./res/system.ini", QSettings::IniFormat);
        for (const auto& value : values) settings.setValue(value.first, value.second);
        settings.sync();
        ASSERT_EQ(settings.status(), QSettings::NoError);
    }

    static void write_url_config(const QString& upload_url) {
        QSettings settings("./url_config.ini", QSettings::IniFormat);
        settings.setValue("upload_url", upload_url);
        settings.sync();
        ASSERT_EQ(settings.status(), QSettings::NoError);
    }

    // Writes a record file under ./keploinfo/ last modified at modified;
    // returns its absolute path.
    static QString write_record(const QString& name, const QDateTime& modified,
                                const QString& type = "usage") {
        QDir().mkpath("keploinfo");
        const QString path = QFileInfo("keploinfo/" + name).absoluteFilePath();
        api::write_record_file(path, "{\n    \"name\": \"" + name.toUtf8() + "\"\n}\n", type);
        set_modified(path, modified);
        return path;
    }

    static void set_modified(const QString& path, const QDateTime& modified) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite)) << path.toStdString();
        ASSERT_TRUE(file.setFileTime(modified, QFileDevice::FileModificationTime));
    }

    // Now, to the whole second, so that second differences are exact.
    static QDateTime now_in_seconds() {
        return QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch());
    }

    // Noon of the day days before today: whole calendar days apart from now
    // whatever the time of day the test runs.
    static QDateTime days_ago(int days) {
        return QDateTime(QDate::currentDate().addDays(-days), QTime(12, 0));
    }

    static QStringList record_names() {
        return QDir("keploinfo").entryList(QDir::Files, QDir::Name);
    }

    QTemporaryDir workdir_;
    QString previous_dir_;
    QString previous_name_;
    log_capture logs_;
};

}  // namespace test_support
