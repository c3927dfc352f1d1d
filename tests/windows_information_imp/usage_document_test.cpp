// The usage document key by key, the session's usage record and the
// calibration record.
#include <QJsonArray>

#include "record_test_fixture.h"

namespace test_support {
namespace {

// The document of fill_session(), as the service receives it.
const char* const full_usage_document = R"({
    "modelName": "KS-100",
    "seriaNum": "SN-0042",
    "softwareName": "keplo-express-software",
    "softwareVer": "3.1.4",
    "tracingType": "usage",
    "endOn": "2024-05-01T09:30:00Z",
    "startOn": "2024-05-01T08:00:00Z",
    "enableGuide": "yes",
    "osSoftExt": {
        "osName": "Windows 10 Pro",
        "lang": "zh-CN",
        "resolution": "1920*1080",
        "installPath": "C:/Program Files/Keplo",
        "browser": {"name": "Firefox", "ver": "126.0"}
    },
    "osHdExt": {
        "cpu": [{"cpuCores": 8, "cpuModel": "Intel(R) Core(TM) i7-8700"}],
        "memSize": 17179869184,
        "gpu": [{"gpuModel": "GeForce GTX 1060", "gpuMemSize": 6442450944}],
        "hddSize": 512110190592,
        "hddRemainSize": 123456789012
    },
    "modularExt": {
        "ple": "C:/ple/KS-abc123R550.ple",
        "modular": [
            {"name": "turntable", "sn": "", "mple": "A.ple"},
            {"name": "turntable", "sn": "", "mple": "B.ple"}
        ]
    }
})";

using usage_document_test = record_test;

QJsonObject built(windows_information_imp& manager) {
    QJsonObject document;
    manager.build_usage_document(document);
    return document;
}

TEST_F(usage_document_test, carries_every_session_member_with_its_key_and_type) {
    fill_session();
    EXPECT_JSON_EQ(built(*manager_), full_usage_document);
}

TEST_F(usage_document_test, empty_session_reports_empty_texts_and_zero_numbers) {
    EXPECT_JSON_EQ(built(*manager_), R"({
        "modelName": "", "seriaNum": "", "softwareName": "keplo-express-software",
        "softwareVer": "", "tracingType": "usage", "endOn": "", "startOn": "",
        "enableGuide": "no",
        "osSoftExt": {"osName": "", "lang": "", "resolution": "", "installPath": "",
                      "browser": {"name": "", "ver": ""}},
        "osHdExt": {"cpu": [{"cpuCores": 0, "cpuModel": ""}], "memSize": 0, "gpu": [],
                    "hddSize": 0, "hddRemainSize": 0},
        "modularExt": {"ple": ""}
    })");
}

TEST_F(usage_document_test, enable_guide_is_yes_for_exactly_one) {
    const std::pair<int, const char*> cases[] = {{1, "yes"}, {0, "no"}, {2, "no"}, {-1, "no"}};
    for (const auto& c : cases) {
        manager_->enable_guide = c.first;
        EXPECT_EQ(built(*manager_)["enableGuide"], QJsonValue(c.second)) << c.first;
    }
}

struct module_case {
    const char* name;
    QString modular_name;
    QStringList modular_files;
    const char* expected_modular_ext;
};

std::ostream& operator<<(std::ostream& out, const module_case& c) {
    return out << c.name;
}

class module_rule_test : public record_test, public ::testing::WithParamInterface<module_case> {};

TEST_P(module_rule_test, reports_the_first_module_always_and_later_ones_when_named) {
    const module_case& c = GetParam();
    manager_->module_file = "dev.ple";
    manager_->modular_name = c.modular_name;
    manager_->modular_files = c.modular_files;

    const QJsonObject document = built(*manager_);

    EXPECT_JSON_EQ(document["modularExt"], c.expected_modular_ext);
    EXPECT_TRUE(logs_.contains("modular=" + c.modular_name.toStdString() +
                               "modular_ple.size=" + std::to_string(c.modular_files.size())));
}

INSTANTIATE_TEST_SUITE_P(
    cases, module_rule_test,
    ::testing::Values(
        module_case{"empty_a_empty", "X", {"", "A", ""}, R"({"ple": "dev.ple", "modular": [
            {"name": "X", "sn": "", "mple": ""}, {"name": "X", "sn": "", "mple": "A"}]})"},
        module_case{"a_empty_b", "X", {"A", "", "B"}, R"({"ple": "dev.ple", "modular": [
            {"name": "X", "sn": "", "mple": "A"}, {"name": "X", "sn": "", "mple": "B"}]})"},
        module_case{"no_name_no_files", "", {}, R"({"ple": "dev.ple"})"},
        module_case{"name_and_no_files",
                    "X",
                    {},
                    R"({"ple": "dev.ple", "modular": [{"name": "X", "sn": "", "mple": ""}]})"},
        module_case{"files_without_a_name",
                    "",
                    {"A"},
                    R"({"ple": "dev.ple", "modular": [{"name": "", "sn": "", "mple": "A"}]})"}),
    [](const ::testing::TestParamInfo<module_case>& info) { return info.param.name; });

TEST_F(usage_document_test, pairs_gpu_memory_sizes_with_models_by_index) {
    manager_->gpu_models = QStringList{"GPU A", "GPU B"};
    manager_->gpu_memory_sizes = QStringList{"2147483648"};
    EXPECT_JSON_EQ(built(*manager_)["osHdExt"], R"({
        "cpu": [{"cpuCores": 0, "cpuModel": ""}], "memSize": 0,
        "gpu": [{"gpuModel": "GPU A", "gpuMemSize": 2147483648}, {"gpuModel": "GPU B"}],
        "hddSize": 0, "hddRemainSize": 0})");

    manager_->gpu_models = QStringList{"GPU A"};
    manager_->gpu_memory_sizes = QStringList{"1", "2"};
    EXPECT_JSON_EQ(built(*manager_)["osHdExt"].toObject()["gpu"].toArray()[0],
                   R"({"gpuModel": "GPU A", "gpuMemSize": 1})")
        << "surplus memory sizes are ignored";

    manager_->gpu_models.clear();
    EXPECT_EQ(built(*manager_)["osHdExt"].toObject()["gpu"], QJsonValue(QJsonArray()));
}

TEST_F(usage_document_test, parses_decimal_texts_and_makes_anything_else_zero) {
    manager_->cpu_cores = "abc";
    manager_->cpu_model = "M";
    manager_->memory_size = "34359738369";     // 2^35 + 1: beyond 32 bits, exact
    manager_->disk_size = "9007199254740992";  // 2^53
    manager_->disk_free_size = "12 GB";
    EXPECT_JSON_EQ(built(*manager_)["osHdExt"], R"({
        "cpu": [{"cpuCores": 0, "cpuModel": "M"}], "memSize": 34359738369, "gpu": [],
        "hddSize": 9007199254740992, "hddRemainSize": 0})");
    EXPECT_NE(QJsonDocument(built(*manager_)).toJson().indexOf("\"memSize\": 34359738369"), -1)
        << "written as a whole number";
}

TEST_F(usage_document_test, builder_keeps_keys_it_does_not_set_again) {
    QJsonObject document = json_object(R"({"content": "kept", "tracingType": "scan",
        "modularExt": {"ple": "old.ple", "modular": [{"name": "old", "sn": "", "mple": ""}]}})");
    manager_->module_file = "new.ple";
    manager_->build_usage_document(document);
    EXPECT_EQ(document["content"], QJsonValue("kept"));
    EXPECT_EQ(document["tracingType"], QJsonValue("usage"));
    EXPECT_JSON_EQ(document["modularExt"],
                   R"({"ple": "new.ple", "modular": [{"name": "old", "sn": "", "mple": ""}]})");
}

// The session's usage record.

class usage_record_test : public record_test {
protected:
    void SetUp() override {
        record_test::SetUp();
        fill_session();
        manager_->start_time = QDateTime(QDate(2024, 5, 1), QTime(16, 5, 9), Qt::LocalTime);
    }
    const QString usage_path = "./keploinfo/2024-05-01T16-05-09.info2";
};

TEST_F(usage_record_test, writes_the_file_named_by_the_local_start_time) {
    testing::internal::CaptureStdout();
    manager_->create_usage_info("dev-xyzR550.ple", "4.0.0", "KS-200", "", 1);
    const std::string printed = testing::internal::GetCapturedStdout();

    EXPECT_EQ(record_names(), QStringList{"2024-05-01T16-05-09.info2"});
    const stored_record record = read_stored_record(usage_path);
    EXPECT_EQ(record.type, "usage");
    EXPECT_EQ(record.data, QJsonDocument(record.document).toJson()) << "indented serialiser form";
    EXPECT_JSON_EQ(without_filled_machine(record.document), R"({
        "modelName": "KS-200", "seriaNum": "SN-0042", "softwareName": "keplo-express-software",
        "softwareVer": "4.0.0", "tracingType": "usage",
        "endOn": "2024-05-01T09:30:00Z", "startOn": "2024-05-01T08:00:00Z",
        "enableGuide": "yes",
        "modularExt": {"ple": "dev-xyzR550.ple"}
    })");

    EXPECT_EQ(manager_->usage_file_path(), usage_path);
    EXPECT_EQ(manager_->usage_document(), record.document);
    EXPECT_EQ(printed, "\r\n create_usage_inifo=./keploinfo/2024-05-01T16-05-09.info2 ");
    EXPECT_TRUE(logs_.contains("create_usage_inifo 0"));
    EXPECT_TRUE(logs_.contains("create_usage_inifo 1"));
}

TEST_F(usage_record_test, stores_the_values_and_empties_the_modular_files) {
    manager_->create_usage_info("dev-xyzR550.ple", "4.0.0", "KS-200", "turntable", 7);

    EXPECT_EQ(manager_->module_file, "dev-xyzR550.ple") << "stored uncut";
    EXPECT_EQ(manager_->software_version, "4.0.0");
    EXPECT_EQ(manager_->model_name, "KS-200");
    EXPECT_EQ(manager_->modular_name, "turntable");
    EXPECT_TRUE(manager_->modular_files.isEmpty());
    EXPECT_EQ(manager_->enable_guide, 7);
    EXPECT_JSON_EQ(read_stored_record(usage_path).document["modularExt"],
                   R"({"ple": "dev-xyzR550.ple",
                       "modular": [{"name": "turntable", "sn": "", "mple": ""}]})");
    EXPECT_EQ(read_stored_record(usage_path).document["enableGuide"], QJsonValue("no"));
}

TEST_F(usage_record_test, second_call_rewrites_the_same_file_and_keeps_earlier_modules) {
    manager_->create_usage_info("a.ple", "4.0.0", "KS-200", "turntable", 1);
    manager_->create_usage_info("b.ple", "4.0.1", "KS-300", "", 0);

    EXPECT_EQ(record_names(), QStringList{"2024-05-01T16-05-09.info2"});
    const QJsonObject document = read_stored_record(usage_path).document;
    EXPECT_EQ(document["softwareVer"], QJsonValue("4.0.1"));
    EXPECT_EQ(document["enableGuide"], QJsonValue("no"));
    // The kept document is filled, not emptied: the first call's modules stay.
    EXPECT_JSON_EQ(document["modularExt"], R"({"ple": "b.ple",
        "modular": [{"name": "turntable", "sn": "", "mple": ""}]})");
}

TEST_F(usage_document_test, usage_record_of_a_session_that_never_started_is_named_dot_info2) {
    ASSERT_TRUE(manager_->start_time.isNull());
    testing::internal::CaptureStdout();
    manager_->create_usage_info("a.ple", "1.0", "KS", "", 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\r\n create_usage_inifo=./keploinfo/.info2 ");
    EXPECT_EQ(manager_->usage_file_path(), "./keploinfo/.info2");
    EXPECT_EQ(read_stored_record("./keploinfo/.info2").type, "usage");
}

TEST_F(usage_record_test, end_of_session_stamps_end_on_and_keeps_the_rest) {
    manager_->create_usage_info("a.ple", "4.0.0", "KS-200", "turntable", 1);
    const QJsonObject written = read_stored_record(usage_path).document;
    manager_->model_name = "changed after the usage record";

    const QDateTime before = QDateTime::currentDateTimeUtc();
    manager_.reset();
    const QDateTime after = QDateTime::currentDateTimeUtc();

    QJsonObject rewritten = read_stored_record(usage_path).document;
    const QString end_on = rewritten["endOn"].toString();
    EXPECT_GE(end_on, before.toString("yyyy-MM-ddThh:mm:ssZ"));
    EXPECT_LE(end_on, after.toString("yyyy-MM-ddThh:mm:ssZ"));
    rewritten["endOn"] = written["endOn"];
    EXPECT_EQ(rewritten, written) << "only endOn changes at the end of the session";
}

// The calibration record.

class calibration_record_test : public record_test {
protected:
    QString record_calibration(const QStringList& classes) {
        const QStringList modules{"turntable", "handheld"};
        const QStringList starts{"2024-05-01T10:00:00Z", "2024-05-01T10:05:00Z"};
        const QStringList ends{"2024-05-01T10:01:00Z", "2024-05-01T10:06:00Z"};
        const QStringList results{"pass", "fail"};
        const QDateTime before = QDateTime::currentDateTimeUtc();
        manager_->record_calibration(modules, "5.0.0", "cal-abcR550.ple", "KS-300", "turntable",
                                     {"", "A.ple", ""}, "2024-05-01T10:00:00Z",
                                     "2024-05-01T10:06:00Z", classes, starts, ends, results, 1);
        const QDateTime after = QDateTime::currentDateTimeUtc();
        const QStringList names = record_names();
        EXPECT_EQ(names.size(), 1);
        if (names.isEmpty()) return QString();
        const QString path = "./keploinfo/" + names[0];
        expect_named_between(path, "yyyy-MM-ddThh-mm-ssZ", "info2", before, after);
        return path;
    }
};

TEST_F(calibration_record_test, carries_the_usage_keys_and_one_item_per_class) {
    fill_session();
    const stored_record record = read_stored_record(record_calibration({"plane", "sphere"}));

    EXPECT_EQ(record.type, "calibration");
    EXPECT_JSON_EQ(without_filled_machine(record.document), R"({
        "modelName": "KS-300", "seriaNum": "SN-0042", "softwareName": "keplo-express-software",
        "softwareVer": "5.0.0", "tracingType": "calibration",
        "endOn": "2024-05-01T10:06:00Z", "startOn": "2024-05-01T10:00:00Z",
        "enableGuide": "yes",
        "modularExt": {"ple": "cal-abcR550.ple", "modular": [
            {"name": "turntable", "sn": "", "mple": ""},
            {"name": "turntable", "sn": "", "mple": "A.ple"}]},
        "content": [
            {"classsify": "plane", "startOn": "2024-05-01T10:00:00Z",
             "endOn": "2024-05-01T10:01:00Z", "result": "pass", "modular": "turntable"},
            {"classsify": "sphere", "startOn": "2024-05-01T10:05:00Z",
             "endOn": "2024-05-01T10:06:00Z", "result": "fail", "modular": "handheld"}]
    })");
    EXPECT_TRUE(logs_.contains("modular=turntabledevice_ex_ple.size=3"));
}

TEST_F(calibration_record_test, keeps_its_values_in_the_session_record) {
    record_calibration({"plane"});
    EXPECT_EQ(manager_->software_version, "5.0.0");
    EXPECT_EQ(manager_->module_file, "cal-abcR550.ple") << "stored uncut";
    EXPECT_EQ(manager_->model_name, "KS-300");
    EXPECT_EQ(manager_->modular_name, "turntable");
    EXPECT_EQ(manager_->modular_files, (QStringList{"", "A.ple", ""}));
    EXPECT_EQ(manager_->start_on, "2024-05-01T10:00:00Z");
    EXPECT_EQ(manager_->end_on, "2024-05-01T10:06:00Z");
    EXPECT_EQ(manager_->enable_guide, 1);

    // A later usage record reports them.
    manager_->create_usage_info("u.ple", "5.0.1", "KS-300", "", 1);
    const QJsonObject usage = manager_->usage_document();
    EXPECT_EQ(usage["startOn"], QJsonValue("2024-05-01T10:00:00Z"));
    EXPECT_EQ(usage["endOn"], QJsonValue("2024-05-01T10:06:00Z"));
}

TEST_F(calibration_record_test, without_items_has_an_empty_content_array) {
    const stored_record record = read_stored_record(record_calibration({}));
    EXPECT_EQ(record.document["content"], QJsonValue(QJsonArray()));
}

TEST_F(calibration_record_test, leaves_the_usage_record_alone) {
    manager_->start_time = QDateTime(QDate(2024, 5, 1), QTime(16, 5, 9), Qt::LocalTime);
    manager_->create_usage_info("u.ple", "5.0.1", "KS-300", "X", 1);
    const QString usage_path = manager_->usage_file_path();
    const stored_record usage_before = read_stored_record(usage_path);

    manager_->record_calibration({"m"}, "6.0", "c.ple", "KS", "Y", {"B.ple"}, "s", "e", {"c"},
                                 {"s"}, {"e"}, {"r"}, 0);

    EXPECT_EQ(manager_->usage_file_path(), usage_path);
    EXPECT_EQ(manager_->usage_document(), usage_before.document);
    EXPECT_EQ(read_stored_record(usage_path).data, usage_before.data);
    EXPECT_EQ(record_names().size(), 2);
}

}  // namespace
}  // namespace test_support
