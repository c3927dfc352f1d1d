#pragma once

#include <gtest/gtest.h>

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <memory>
#include <string>

#include "store_test_fixture.h"

namespace test_support {

using TarvoConsumerScanner::information_api::scan_description_t;
using TarvoConsumerScanner::information_api::scan_step_t;
using TarvoConsumerScanner::information_api::windows_information_imp;

// One record file as it lies on disk.
struct stored_record {
    bool exists = false;
    QString type;
    QByteArray data;  // the JSON text under "data"
    QJsonObject document;
};

inline stored_record read_stored_record(const QString& path) {
    stored_record record;
    record.exists = QFileInfo::exists(path);
    QSettings file(path, QSettings::IniFormat);
    record.type = file.value("type").toString();
    record.data = file.value("data").toByteArray();
    record.document = QJsonDocument::fromJson(record.data).object();
    return record;
}

// Expected documents are written out in the tests; a typo there should fail
// loudly rather than compare against an empty object.
inline QJsonObject json_object(const char* text) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << error.errorString().toStdString();
    return document.object();
}

// Both sides in the serialiser's form (sorted keys, numbers and strings
// distinct), so a mismatch shows as a readable diff.
inline std::string json_text(const QJsonValue& value) {
    if (value.isObject()) return QJsonDocument(value.toObject()).toJson().toStdString();
    if (value.isArray()) return QJsonDocument(value.toArray()).toJson().toStdString();
    return QJsonDocument(QJsonArray{value}).toJson().toStdString();
}

// The time stamp of a record file's name, read back with its kind's format
// (UTC); invalid when the name does not follow the format.
inline QDateTime name_stamp(const QString& path, const char* format) {
    QDateTime stamp = QDateTime::fromString(QFileInfo(path).completeBaseName(), format);
    stamp.setTimeSpec(Qt::UTC);
    return stamp;
}

// Checks that path is "./keploinfo/<stamp>.<extension>" with a stamp in
// exactly the given format (UTC) taken between before and after.
inline void expect_named_between(const QString& path, const char* format, const char* extension,
                                 const QDateTime& before, const QDateTime& after) {
    const QFileInfo file(path);
    EXPECT_TRUE(path.startsWith("./keploinfo/")) << path.toStdString();
    EXPECT_EQ(file.suffix().toStdString(), extension);
    const QString stamp = file.completeBaseName();
    const QDateTime parsed = name_stamp(path, format);
    ASSERT_TRUE(parsed.isValid()) << stamp.toStdString() << " does not follow " << format;
    EXPECT_EQ(parsed.toString(format), stamp) << "the name is exactly the format's text";
    // Fixed-width, most significant field first: text order is time order.
    EXPECT_LE(before.toUTC().toString(format), stamp);
    EXPECT_GE(after.toUTC().toString(format), stamp);
}

#define EXPECT_JSON_EQ(actual, expected_text) \
    EXPECT_EQ(json_text(actual), json_text(QJsonValue(json_object(expected_text))))

// The machine parts of every document made from fill_session().
const char* const filled_software_environment = R"({
    "osName": "Windows 10 Pro", "lang": "zh-CN", "resolution": "1920*1080",
    "installPath": "C:/Program Files/Keplo", "browser": {"name": "Firefox", "ver": "126.0"}})";
const char* const filled_hardware = R"({
    "cpu": [{"cpuCores": 8, "cpuModel": "Intel(R) Core(TM) i7-8700"}],
    "memSize": 17179869184,
    "gpu": [{"gpuModel": "GeForce GTX 1060", "gpuMemSize": 6442450944}],
    "hddSize": 512110190592, "hddRemainSize": 123456789012})";

// Checks the machine parts of a document made from fill_session() and
// returns the rest, for the test to compare with what it expects.
inline QJsonObject without_filled_machine(QJsonObject document) {
    EXPECT_JSON_EQ(document["osSoftExt"], filled_software_environment);
    EXPECT_JSON_EQ(document["osHdExt"], filled_hardware);
    document.remove("osSoftExt");
    document.remove("osHdExt");
    return document;
}

// Checks that "startOn" and "endOn" are both the UTC time of the call
// (between before and after) and returns the rest of the document.
inline QJsonObject without_call_time(QJsonObject document, const QDateTime& before,
                                     const QDateTime& after) {
    const char* const format = "yyyy-MM-ddThh:mm:ssZ";
    const QString start_on = document["startOn"].toString();
    EXPECT_GE(start_on, before.toUTC().toString(format));
    EXPECT_LE(start_on, after.toUTC().toString(format));
    EXPECT_EQ(document["endOn"].toString(), start_on);
    document.remove("startOn");
    document.remove("endOn");
    return document;
}

// A scan as the host describes it: two steps, numbers in decimal texts.
inline scan_description_t two_step_scan() {
    scan_description_t scan;
    scan.module_file = "scan-abcR550.ple";
    scan.model_name = "KS-400";
    scan.modular_name = "turntable";
    scan.software_version = "2.0.0";
    scan.start_on = "2024-05-02T07:00:00Z";
    scan.end_on = "2024-05-02T07:12:00Z";
    scan.steps = {scan_step_t{"2024-05-02T07:00:00Z", "2024-05-02T07:05:00Z", "fixed", "16", "on",
                              QStringList{"marker", "feature"}, "turntable"},
                  scan_step_t{"2024-05-02T07:06:00Z", "2024-05-02T07:12:00Z", "handheld", "0",
                              "off", QStringList{}, "handheld"}};
    scan.texture = "color";
    scan.total_points = "1234567";
    scan.point_distance = "0.25";
    scan.length = "120.5";
    scan.width = "80";
    scan.height = "33.75";
    scan.hand_held_point_gen_way = "auto";
    scan.mesh_type = "watertight";
    scan.file_name = "D:/scans/bust.ply";
    scan.modular_files = QStringList{"T.ple", "", "H.ple"};
    return scan;
}

// The store's test folder and application name, with a manager made as the
// separate uploader makes it: no probes run, so the session record holds
// exactly what the test puts there.
class record_test : public store_test {
protected:
    void SetUp() override {
        store_test::SetUp();
        manager_ = make_manager();
    }

    void TearDown() override {
        // The destructor rewrites the usage record, relative to this folder.
        manager_.reset();
        store_test::TearDown();
    }

    // A session record with every member set, as the probes and the host
    // would leave it.
    void fill_session() {
        windows_information_imp& m = *manager_;
        m.model_name = "KS-100";
        m.serial_number = "SN-0042";
        m.software_version = "3.1.4";
        m.start_on = "2024-05-01T08:00:00Z";
        m.end_on = "2024-05-01T09:30:00Z";
        m.os_name = "Windows 10 Pro";
        m.language = "zh-CN";
        m.resolution = "1920*1080";
        m.install_path = "C:/Program Files/Keplo";
        m.browser_name = "Firefox";
        m.browser_version = "126.0";
        m.cpu_cores = "8";
        m.cpu_model = "Intel(R) Core(TM) i7-8700";
        m.memory_size = "17179869184";
        m.gpu_models = QStringList{"GeForce GTX 1060"};
        m.gpu_memory_sizes = QStringList{"6442450944"};
        m.disk_size = "512110190592";
        m.disk_free_size = "123456789012";
        m.module_file = "C:/ple/KS-abc123R550.ple";
        m.modular_name = "turntable";
        m.modular_files = QStringList{"A.ple", "B.ple"};
        m.enable_guide = 1;
    }

    std::unique_ptr<windows_information_imp> manager_;
};

}  // namespace test_support
