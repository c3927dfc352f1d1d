// The usage document every record carries, the record of each kind of event,
// and the session's usage record from its first write to the end of the
// session.
#include <functional>

#include "manager_fixture.h"

namespace test_support {
namespace {

using api::scan_description_t;
using api::scan_step_t;

class records_test : public manager_test {
protected:
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
        m.language = "2052";
        m.resolution = "1920*1080";
        m.install_path = "C:/Program Files/Keplo";
        m.browser_name = "Firefox";
        m.browser_version = "126.0";
        m.cpu_cores = "8";
        m.cpu_model = "AMD64;i7-8700";
        m.memory_size = "34359738369";  // 2^35 + 1: beyond 32 bits, exact
        m.gpu_models = QStringList{"GTX 1060", "UHD 630"};
        m.gpu_memory_sizes = QStringList{"6442450944"};
        m.disk_size = "9007199254740992";  // 2^53
        m.disk_free_size = "12 GB";        // not a number: 0
        m.module_file = "C:/ple/KS-abc123R550.ple";
        m.modular_name = "turntable";
        m.modular_files = QStringList{"A.ple", "B.ple"};
        m.enable_guide = 1;
    }

    QJsonObject built() {
        QJsonObject document;
        manager_->build_usage_document(document);
        return document;
    }

    // Runs record, which must make exactly one file, named by the UTC time of
    // the call in format; returns the file's path.
    QString only_new_file(const char* format, const char* extension,
                          const std::function<void()>& record) {
        const QStringList before = record_names();
        const QString earliest = QDateTime::currentDateTimeUtc().toString(format);
        record();
        const QString latest = QDateTime::currentDateTimeUtc().toString(format);
        QStringList made = record_names();
        for (const QString& name : before) made.removeAll(name);
        EXPECT_EQ(made.size(), 1) << made.join(", ").toStdString();
        const QFileInfo file(made.value(0));
        const QString stamp = file.completeBaseName();
        QDateTime parsed = QDateTime::fromString(stamp, format);
        EXPECT_TRUE(parsed.isValid() && parsed.toString(format) == stamp)
            << stamp.toStdString() << " is not " << format;
        // Fixed-width, most significant field first: text order is time order.
        EXPECT_TRUE(earliest <= stamp && stamp <= latest) << stamp.toStdString();
        EXPECT_EQ(file.suffix().toStdString(), extension);
        return "./keploinfo/" + made.value(0);
    }
};

TEST_F(records_test, the_usage_document_carries_every_session_member) {
    fill_session();
    EXPECT_JSON_EQ(built(), R"({
        "modelName": "KS-100", "seriaNum": "SN-0042", "softwareName": "keplo-express-software",
        "softwareVer": "3.1.4", "tracingType": "usage", "endOn": "2024-05-01T09:30:00Z",
        "startOn": "2024-05-01T08:00:00Z", "enableGuide": "yes",
        "osSoftExt": {"osName": "Windows 10 Pro", "lang": "2052", "resolution": "1920*1080",
            "installPath": "C:/Program Files/Keplo", "browser": {"name": "Firefox", "ver": "126.0"}},
        "osHdExt": {"cpu": [{"cpuCores": 8, "cpuModel": "AMD64;i7-8700"}],
            "memSize": 34359738369,
            "gpu": [{"gpuModel": "GTX 1060", "gpuMemSize": 6442450944}, {"gpuModel": "UHD 630"}],
            "hddSize": 9007199254740992, "hddRemainSize": 0},
        "modularExt": {"ple": "C:/ple/KS-abc123R550.ple", "modular": [
            {"name": "turntable", "sn": "", "mple": "A.ple"},
            {"name": "turntable", "sn": "", "mple": "B.ple"}]}})");
    EXPECT_NE(QJsonDocument(built()).toJson().indexOf("\"memSize\": 34359738369"), -1)
        << "written as a whole number";
}

TEST_F(records_test, session_rows_give_their_part_of_the_document) {
    struct row {
        std::function<void(windows_information_imp&)> session;
        const char* key;
        const char* expected;
    };
    const row rows[] = {
        // The first module is reported even when empty, later empty ones are dropped.
        {[](auto& m) {
             m.modular_name = "X";
             m.modular_files = QStringList{"", "A", ""};
         },
         "modularExt",
         R"({"ple": "", "modular": [{"name": "X", "sn": "", "mple": ""},
                                    {"name": "X", "sn": "", "mple": "A"}]})"},
        {[](auto& m) {
             m.modular_name = "X";
             m.modular_files = QStringList{"A", "", "B"};
         },
         "modularExt",
         R"({"ple": "", "modular": [{"name": "X", "sn": "", "mple": "A"},
                                    {"name": "X", "sn": "", "mple": "B"}]})"},
        {[](auto& m) { m.modular_name = "X"; }, "modularExt",
         R"({"ple": "", "modular": [{"name": "X", "sn": "", "mple": ""}]})"},
        {[](auto& m) { m.modular_files = QStringList{"A"}; }, "modularExt",
         R"({"ple": "", "modular": [{"name": "", "sn": "", "mple": "A"}]})"},
        {[](auto&) {}, "modularExt", R"({"ple": ""})"},
        {[](auto& m) {
             m.gpu_models = QStringList{"A"};
             m.gpu_memory_sizes = QStringList{"1", "2"};
         },
         "osHdExt",
         R"({"cpu": [{"cpuCores": 0, "cpuModel": ""}], "memSize": 0,
             "gpu": [{"gpuModel": "A", "gpuMemSize": 1}], "hddSize": 0, "hddRemainSize": 0})"},
        {[](auto& m) {
             m.cpu_cores = "abc";
             m.gpu_memory_sizes = QStringList{"1"};
         },
         "osHdExt",
         R"({"cpu": [{"cpuCores": 0, "cpuModel": ""}], "memSize": 0, "gpu": [],
             "hddSize": 0, "hddRemainSize": 0})"},
        {[](auto& m) { m.enable_guide = 0; }, "enableGuide", R"(["no"])"},
        {[](auto& m) { m.enable_guide = 2; }, "enableGuide", R"(["no"])"},
        {[](auto& m) { m.enable_guide = -1; }, "enableGuide", R"(["no"])"},
        {[](auto&) {}, "osSoftExt", R"({"osName": "", "lang": "", "resolution": "",
             "installPath": "", "browser": {"name": "", "ver": ""}})"},
    };
    for (const row& r : rows) {
        manager_ = std::make_unique<windows_information_imp>();
        r.session(*manager_);
        const QJsonValue value = built()[r.key];
        EXPECT_EQ(json_text(value.isString() ? QJsonValue(QJsonArray{value}) : value),
                  json_text(json_value(r.expected)))
            << r.key;
    }
    manager_->modular_files = QStringList{"A", "B"};
    built();
    EXPECT_TRUE(logs_.contains("modular=modular_ple.size=2"));
}

TEST_F(records_test, the_builder_keeps_keys_it_does_not_set_again) {
    QJsonObject document = json_value(R"({"content": "kept", "tracingType": "scan",
        "modularExt": {"ple": "old.ple", "modular": [{"name": "old", "sn": "", "mple": ""}]}})")
                               .toObject();
    manager_->module_file = "new.ple";
    manager_->build_usage_document(document);
    EXPECT_EQ(document["content"], QJsonValue("kept"));
    EXPECT_EQ(document["tracingType"], QJsonValue("usage"));
    EXPECT_JSON_EQ(document["modularExt"],
                   R"({"ple": "new.ple", "modular": [{"name": "old", "sn": "", "mple": ""}]})");
}

scan_description_t two_step_scan() {
    return {"scan-abcR550.ple",
            "KS-400",
            "turntable",
            "2.0.0",
            "2024-05-02T07:00:00Z",
            "2024-05-02T07:12:00Z",
            {{"s0", "e0", "fixed", "16", "on", {"marker", "feature"}, "turntable"},
             {"s1", "e1", "handheld", "0", "off", {}, "handheld"}},
            "color",
            "1234567",
            "0.25",
            "120.5",
            "80",
            "33.75",
            "auto",
            "watertight",
            "bust.ply",
            {"T.ple", "", "H.ple"}};
}

// Each event: the record it writes (named by the call's UTC time, with the
// session keys as the operation leaves them and its own content), the
// members it keeps for later records, and what it returns.
struct event_row {
    const char* name;
    std::function<QString(windows_information_imp&)> record;
    const char* format;
    const char* extension;
    // The document without osSoftExt and osHdExt, or its content alone.
    const char* expected;
    bool call_time;  // startOn and endOn are the call's UTC time
};

TEST_F(records_test, each_event_writes_its_record_and_keeps_its_values) {
    const event_row rows[] = {
        {"scan",
         [](auto& m) {
             m.record_scan(two_step_scan(), 3);
             return QString();
         },
         "yyyy-MM-ddThh-mm-ss.zzzZ", "info2", R"({
            "modelName": "KS-400", "softwareVer": "2.0.0", "tracingType": "scan",
            "startOn": "2024-05-02T07:00:00Z", "endOn": "2024-05-02T07:12:00Z",
            "enableGuide": "no", "modularExt": {"ple": "scan-abcR550.ple", "modular": [
                {"name": "turntable", "sn": "", "mple": "T.ple"},
                {"name": "turntable", "sn": "", "mple": "H.ple"}]},
            "content": {"mode": [
                {"startOn": "s0", "endOn": "e0", "classsify": "fixed", "hdr": "on",
                 "turntableSteps": "16", "modular": "turntable", "alignMode": ["marker", "feature"]},
                {"startOn": "s1", "endOn": "e1", "classsify": "handheld", "hdr": "off",
                 "turntableSteps": "0", "modular": "handheld", "alignMode": []}],
              "texture": "color", "totalPoint": 1234567, "pointDis": 0.25,
              "handHeldPointGenWay": "auto", "meshType": "watertight", "fileName": "bust.ply",
              "box": {"length": 120.5, "width": 80, "height": 33.75}}})",
         false},
        {"scan_without_steps",
         [](auto& m) {
             scan_description_t scan = two_step_scan();
             scan.steps.clear();
             scan.total_points = "many";
             scan.point_distance = "";
             m.record_scan(scan, 1);
             return QString();
         },
         "yyyy-MM-ddThh-mm-ss.zzzZ", "info2", R"({
            "content": {"texture": "color", "totalPoint": 0, "pointDis": 0,
              "handHeldPointGenWay": "auto", "meshType": "watertight", "fileName": "bust.ply",
              "box": {"length": 120.5, "width": 80, "height": 33.75}}})",
         false},
        {"calibration",
         [](auto& m) {
             m.record_calibration({"turntable", "handheld"}, "5.0.0", "cal-abcR550.ple", "KS-300",
                                  "turntable", {"", "A.ple", ""}, "c0", "c1", {"plane", "sphere"},
                                  {"p0", "s0"}, {"p1", "s1"}, {"pass", "fail"}, 1);
             return QString();
         },
         "yyyy-MM-ddThh-mm-ssZ", "info2", R"({
            "modelName": "KS-300", "softwareVer": "5.0.0", "tracingType": "calibration",
            "startOn": "c0", "endOn": "c1", "enableGuide": "yes",
            "modularExt": {"ple": "cal-abcR550.ple", "modular": [
                {"name": "turntable", "sn": "", "mple": ""},
                {"name": "turntable", "sn": "", "mple": "A.ple"}]},
            "content": [
                {"classsify": "plane", "startOn": "p0", "endOn": "p1", "result": "pass",
                 "modular": "turntable"},
                {"classsify": "sphere", "startOn": "s0", "endOn": "s1", "result": "fail",
                 "modular": "handheld"}]})",
         false},
        {"calibration_without_items",
         [](auto& m) {
             m.record_calibration({}, "5.0.0", "c.ple", "KS", "", {}, "c0", "c1", {}, {}, {}, {},
                                  0);
             return QString();
         },
         "yyyy-MM-ddThh-mm-ssZ", "info2", R"({"content": []})", false},
        // Lists shorter than the classes give empty texts.
        {"calibration_with_short_lists",
         [](auto& m) {
             m.record_calibration({"m"}, "5.0.0", "c.ple", "KS", "", {}, "c0", "c1", {"a", "b"},
                                  {"s"}, {}, {}, 0);
             return QString();
         },
         "yyyy-MM-ddThh-mm-ssZ", "info2", R"({"content": [
            {"classsify": "a", "startOn": "s", "endOn": "", "result": "", "modular": "m"},
            {"classsify": "b", "startOn": "", "endOn": "", "result": "", "modular": ""}]})",
         false},
        // The software version and modular files stay as the last record left them.
        {"share",
         [](auto& m) {
             m.record_share("share-abcR550.ple", "KS-500", "", "h0", "h1", "wechat", "bust.ply",
                            "user@example.com", 1);
             return QString();
         },
         "yyyy-MM-ddThh-mm-ssZ", "info2", R"({
            "modelName": "KS-500", "softwareVer": "3.1.4", "tracingType": "share",
            "startOn": "h0", "endOn": "h1", "enableGuide": "yes",
            "modularExt": {"ple": "share-abcR550.ple", "modular": [
                {"name": "", "sn": "", "mple": "A.ple"}, {"name": "", "sn": "", "mple": "B.ple"}]},
            "content": {"target": "wechat", "name": "bust.ply", "account": "user@example.com"}})",
         false},
        {"score",
         [](auto& m) {
             return m.record_score("87", "C:/ple/KS-abc123R550.ple", "2.1.0", "KS-600", "turntable",
                                   "dental", 0);
         },
         "yyyy-MM-ddThh-mm-ss", "score2", R"({
            "modelName": "KS-600", "softwareVer": "2.1.0", "tracingType": "score",
            "enableGuide": "no", "modularExt": {"ple": "C:/ple/KS-R550.ple",
                "modular": [{"name": "turntable", "sn": "", "mple": ""}]},
            "content": {"score": 87, "industry": "dental"}})",
         true},
        {"score_not_a_number",
         [](auto& m) { return m.record_score("4.5", "m.ple", "1", "KS", "", "art", 0); },
         "yyyy-MM-ddThh-mm-ss", "score2", R"({"content": {"score": 0, "industry": "art"}})", true},
        {"feedback",
         [](auto& m) {
             return m.record_feedback("C:/ple/KS-abc123R550.ple", "2.2.0", "KS-700", "turntable",
                                      {"T.ple", ""}, 1, "user@example.com", "education",
                                      "It stops.", {"C:/z.log", "C:/a.png"});
         },
         "yyyy-MM-ddThh-mm-ss", "info2", R"({
            "modelName": "KS-700", "softwareVer": "2.2.0", "tracingType": "feedback",
            "enableGuide": "yes", "modularExt": {"ple": "C:/ple/KS-R550.ple",
                "modular": [{"name": "turntable", "sn": "", "mple": "T.ple"}]},
            "content": {"email": "user@example.com", "industry": "education",
                        "content": "It stops.", "attachs": ["C:/z.log", "C:/a.png"]}})",
         true},
    };
    for (const event_row& row : rows) {
        SCOPED_TRACE(row.name);
        QDir("keploinfo").removeRecursively();
        manager_ = std::make_unique<windows_information_imp>();
        fill_session();
        QString returned;
        const QString before = QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ssZ");
        const QString path =
            only_new_file(row.format, row.extension, [&] { returned = row.record(*manager_); });
        const QString after = QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ssZ");
        if (!returned.isEmpty()) {
            EXPECT_EQ(returned, path);
        }
        const stored_record record = read_stored_record(path);
        EXPECT_EQ(record.type, record.document["tracingType"].toString());
        EXPECT_EQ(record.data, QJsonDocument(record.document).toJson()) << "indented form";
        // The values given stay in the session record: the next document is
        // the same but for its kind and content.
        QJsonObject next = built(), document = record.document;
        for (const char* key : {"tracingType", "content"}) {
            next.remove(key);
            document.remove(key);
        }
        EXPECT_EQ(json_text(next), json_text(document));
        document = record.document;
        EXPECT_EQ(document.take("seriaNum"), QJsonValue("SN-0042"));
        EXPECT_EQ(document.take("softwareName"), QJsonValue("keplo-express-software"));
        document.remove("osSoftExt");
        document.remove("osHdExt");
        if (row.call_time) {
            const QString stamp = document.take("startOn").toString();
            EXPECT_EQ(document.take("endOn").toString(), stamp);
            EXPECT_TRUE(before <= stamp && stamp <= after) << stamp.toStdString();
        }
        const QJsonObject expected = json_value(row.expected).toObject();
        if (expected.keys() == QStringList{"content"})
            document = {{"content", document["content"]}};
        EXPECT_EQ(json_text(document), json_text(expected));
    }
    EXPECT_TRUE(logs_.contains("modular=turntabledevice_ex_ple.size=3"));
}

TEST_F(records_test, events_named_alike_share_one_file) {
    // Score names have no milliseconds: two scores in a row almost always
    // fall in one second, and then the later replaces the earlier.
    const QString first = manager_->record_score("1", "m.ple", "1", "KS", "", "art", 0);
    const QString second = manager_->record_score("2", "m.ple", "1", "KS", "", "art", 0);
    EXPECT_EQ(record_names().size(), first == second ? 1 : 2);
    EXPECT_EQ(read_stored_record(second).document["content"].toObject()["score"], QJsonValue(2));
}

class usage_record_test : public records_test {
protected:
    void SetUp() override {
        records_test::SetUp();
        fill_session();
        manager_->start_time = QDateTime(QDate(2024, 5, 1), QTime(16, 5, 9), Qt::LocalTime);
    }
    const QString path = "./keploinfo/2024-05-01T16-05-09.info2";
};

TEST_F(usage_record_test, is_named_by_the_local_start_and_rewritten_by_each_call) {
    testing::internal::CaptureStdout();
    manager_->create_usage_info("dev-xyzR550.ple", "4.0.0", "KS-200", "turntable", 7);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\r\n create_usage_inifo=" + path.toStdString() + " ");
    EXPECT_TRUE(logs_.contains("create_usage_inifo 0") && logs_.contains("create_usage_inifo 1"));
    EXPECT_EQ(manager_->module_file, "dev-xyzR550.ple") << "stored uncut";
    EXPECT_EQ(manager_->software_version, "4.0.0");
    EXPECT_EQ(manager_->model_name, "KS-200");
    EXPECT_TRUE(manager_->modular_files.isEmpty());
    EXPECT_EQ(manager_->enable_guide, 7);
    EXPECT_EQ(manager_->usage_file_path(), path);
    stored_record record = read_stored_record(path);
    EXPECT_EQ(record.type, "usage");
    EXPECT_EQ(record.document, manager_->usage_document());
    EXPECT_EQ(record.document, built());

    // A second call rewrites the one file; the kept document is filled, not
    // emptied, so the first call's modules stay.
    manager_->create_usage_info("b.ple", "4.0.1", "KS-300", "", 1);
    EXPECT_EQ(record_names(), QStringList{"2024-05-01T16-05-09.info2"});
    record = read_stored_record(path);
    EXPECT_EQ(record.document["softwareVer"], QJsonValue("4.0.1"));
    EXPECT_JSON_EQ(record.document["modularExt"], R"({"ple": "b.ple",
        "modular": [{"name": "turntable", "sn": "", "mple": ""}]})");
}

TEST_F(usage_record_test, the_end_of_the_session_stamps_only_end_on) {
    manager_->create_usage_info("a.ple", "4.0.0", "KS-200", "turntable", 1);
    // Later records neither touch the usage record nor its document.
    manager_->record_calibration({"m"}, "6.0", "c.ple", "KS", "Y", {"B.ple"}, "s", "e", {"c"},
                                 {"s"}, {"e"}, {"r"}, 0);
    EXPECT_EQ(manager_->usage_file_path(), path);
    const QJsonObject written = read_stored_record(path).document;
    EXPECT_EQ(manager_->usage_document(), written);

    const QString before = QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ssZ");
    manager_.reset();
    const QString after = QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ssZ");
    EXPECT_TRUE(logs_.contains("~windows_information_imp"));
    QJsonObject rewritten = read_stored_record(path).document;
    const QString end_on = rewritten["endOn"].toString();
    EXPECT_TRUE(before <= end_on && end_on <= after) << end_on.toStdString();
    rewritten["endOn"] = written["endOn"];
    EXPECT_EQ(rewritten, written);
    EXPECT_EQ(read_stored_record(path).type, "usage");
}

TEST_F(records_test, a_session_that_never_started_names_its_usage_record_dot_info2) {
    testing::internal::CaptureStdout();
    manager_->create_usage_info("a.ple", "1.0", "KS", "", 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\r\n create_usage_inifo=./keploinfo/.info2 ");
    EXPECT_EQ(read_stored_record("./keploinfo/.info2").type, "usage");
    // Without a usage record, the end of a session writes nothing at all.
    manager_ = std::make_unique<windows_information_imp>();
    ASSERT_TRUE(QFile::remove("./keploinfo/.info2"));
    manager_.reset();
    EXPECT_TRUE(record_names().isEmpty());
    EXPECT_EQ(QDir().entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{"keploinfo"});
}

}  // namespace
}  // namespace test_support
