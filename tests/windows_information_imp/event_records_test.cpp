// Scan, share, score and feedback records: each event's document, file name,
// record kind and what it leaves in the session record.
#include <QJsonArray>

#include "record_test_fixture.h"
#include "windows_information_imp/record_file.h"

namespace test_support {
namespace {

const char* const scan_name = "yyyy-MM-ddThh-mm-ss.zzzZ";
const char* const share_name = "yyyy-MM-ddThh-mm-ssZ";
const char* const score_name = "yyyy-MM-ddThh-mm-ss";
const char* const feedback_name = "yyyy-MM-ddThh-mm-ss";

class event_record_test : public record_test {
protected:
    // Runs record and returns the path of the one file it made.
    template <class F>
    QString only_new_file(F&& record) {
        const QStringList before = record_names();
        record();
        QStringList made = record_names();
        for (const QString& name : before) made.removeAll(name);
        EXPECT_EQ(made.size(), 1) << made.join(", ").toStdString();
        return made.isEmpty() ? QString() : "./keploinfo/" + made[0];
    }

    // One record made by record, with the clock read around it.
    struct made_record {
        QString path;
        stored_record record;
        QDateTime before, after;
    };

    // Runs record, checks that it made one file named by the call's time in
    // format, and reads that file.
    template <class F>
    made_record record_one(const char* format, const char* extension, F&& record) {
        made_record made;
        made.before = QDateTime::currentDateTimeUtc();
        made.path = only_new_file(record);
        made.after = QDateTime::currentDateTimeUtc();
        expect_named_between(made.path, format, extension, made.before, made.after);
        made.record = read_stored_record(made.path);
        return made;
    }

    // Runs record_twice until both its records fall within one unit of the
    // file-name format (the clock may cross a boundary between them).
    template <class F>
    bool within_one_name(const char* format, F&& record_twice, int attempts) {
        for (int i = 0; i < attempts; ++i) {
            QDir("keploinfo").removeRecursively();
            QDir(".").mkdir("keploinfo");
            const QString before = QDateTime::currentDateTimeUtc().toString(format);
            record_twice();
            if (QDateTime::currentDateTimeUtc().toString(format) == before) return true;
        }
        return false;
    }
};

TEST_F(event_record_test, scan_record_carries_the_description_and_its_steps) {
    fill_session();
    const stored_record record =
        record_one(scan_name, "info2", [&] { manager_->record_scan(two_step_scan(), 1); }).record;
    EXPECT_EQ(record.type, "scan");
    EXPECT_JSON_EQ(without_filled_machine(record.document), R"({
        "modelName": "KS-400", "seriaNum": "SN-0042", "softwareName": "keplo-express-software",
        "softwareVer": "2.0.0", "tracingType": "scan",
        "endOn": "2024-05-02T07:12:00Z", "startOn": "2024-05-02T07:00:00Z",
        "enableGuide": "yes",
        "modularExt": {"ple": "scan-abcR550.ple", "modular": [
            {"name": "turntable", "sn": "", "mple": "T.ple"},
            {"name": "turntable", "sn": "", "mple": "H.ple"}]},
        "content": {
            "mode": [
                {"startOn": "2024-05-02T07:00:00Z", "endOn": "2024-05-02T07:05:00Z",
                 "classsify": "fixed", "hdr": "on", "turntableSteps": "16",
                 "modular": "turntable", "alignMode": ["marker", "feature"]},
                {"startOn": "2024-05-02T07:06:00Z", "endOn": "2024-05-02T07:12:00Z",
                 "classsify": "handheld", "hdr": "off", "turntableSteps": "0",
                 "modular": "handheld", "alignMode": []}],
            "texture": "color",
            "totalPoint": 1234567,
            "pointDis": 0.25,
            "handHeldPointGenWay": "auto",
            "meshType": "watertight",
            "fileName": "D:/scans/bust.ply",
            "box": {"length": 120.5, "width": 80, "height": 33.75}
        }
    })");
}

TEST_F(event_record_test, scan_without_steps_has_no_mode_and_non_numbers_are_zero) {
    scan_description_t scan = two_step_scan();
    scan.steps.clear();
    scan.total_points = "many";
    scan.point_distance = "";
    const QString path = only_new_file([&] { manager_->record_scan(scan, 0); });

    EXPECT_JSON_EQ(read_stored_record(path).document["content"], R"({
        "texture": "color", "totalPoint": 0, "pointDis": 0, "handHeldPointGenWay": "auto",
        "meshType": "watertight", "fileName": "D:/scans/bust.ply",
        "box": {"length": 120.5, "width": 80, "height": 33.75}})");
}

TEST_F(event_record_test, scan_keeps_its_values_in_the_session_record) {
    manager_->record_scan(two_step_scan(), 3);
    EXPECT_EQ(manager_->module_file, "scan-abcR550.ple") << "stored uncut";
    EXPECT_EQ(manager_->model_name, "KS-400");
    EXPECT_EQ(manager_->modular_name, "turntable");
    EXPECT_EQ(manager_->software_version, "2.0.0");
    EXPECT_EQ(manager_->start_on, "2024-05-02T07:00:00Z");
    EXPECT_EQ(manager_->end_on, "2024-05-02T07:12:00Z");
    EXPECT_EQ(manager_->modular_files, (QStringList{"T.ple", "", "H.ple"}));
    EXPECT_EQ(manager_->enable_guide, 3);
}

TEST_F(event_record_test, share_record_names_the_target_and_keeps_the_software_version) {
    fill_session();
    manager_->software_version = "1.9.9";
    manager_->modular_files = QStringList{"kept.ple"};
    const stored_record record =
        record_one(share_name, "info2", [&] {
            manager_->record_share("share-abcR550.ple", "KS-500", "", "2024-05-03T01:00:00Z",
                                   "2024-05-03T01:02:00Z", "wechat", "bust.ply", "user@example.com",
                                   1);
        }).record;
    EXPECT_EQ(record.type, "share");
    EXPECT_JSON_EQ(without_filled_machine(record.document), R"({
        "modelName": "KS-500", "seriaNum": "SN-0042", "softwareName": "keplo-express-software",
        "softwareVer": "1.9.9", "tracingType": "share",
        "endOn": "2024-05-03T01:02:00Z", "startOn": "2024-05-03T01:00:00Z",
        "enableGuide": "yes",
        "modularExt": {"ple": "share-abcR550.ple",
                       "modular": [{"name": "", "sn": "", "mple": "kept.ple"}]},
        "content": {"target": "wechat", "name": "bust.ply", "account": "user@example.com"}
    })");
    EXPECT_EQ(manager_->module_file, "share-abcR550.ple") << "stored uncut";
    EXPECT_EQ(manager_->start_on, "2024-05-03T01:00:00Z");
    EXPECT_EQ(manager_->end_on, "2024-05-03T01:02:00Z");
    EXPECT_EQ(manager_->modular_files, QStringList{"kept.ple"});
}

TEST_F(event_record_test, score_record_is_a_score2_file_with_the_score_parsed) {
    fill_session();
    manager_->modular_files = QStringList{"gone.ple"};
    QString returned;
    const made_record made = record_one(score_name, "score2", [&] {
        returned = manager_->record_score("87", "C:/ple/KS-abc123R550.ple", "2.1.0", "KS-600",
                                          "turntable", "dental", 0);
    });

    EXPECT_EQ(returned, made.path);
    const stored_record& record = made.record;
    EXPECT_EQ(record.type, "score");
    EXPECT_JSON_EQ(
        without_call_time(without_filled_machine(record.document), made.before, made.after),
        R"({
        "modelName": "KS-600", "seriaNum": "SN-0042", "softwareName": "keplo-express-software",
        "softwareVer": "2.1.0", "tracingType": "score", "enableGuide": "no",
        "modularExt": {"ple": "C:/ple/KS-R550.ple",
                       "modular": [{"name": "turntable", "sn": "", "mple": ""}]},
        "content": {"score": 87, "industry": "dental"}
    })");
    EXPECT_EQ(manager_->module_file, "C:/ple/KS-R550.ple");
    EXPECT_TRUE(manager_->modular_files.isEmpty());
    EXPECT_EQ(manager_->start_on, record.document["startOn"].toString());
    EXPECT_EQ(manager_->end_on, record.document["endOn"].toString());
}

TEST_F(event_record_test, score_that_is_not_a_number_is_zero) {
    for (const QString score : {"abc", "4.5", ""}) {
        const QString path = manager_->record_score(score, "m.ple", "1", "KS", "", "art", 0);
        EXPECT_EQ(read_stored_record(path).document["content"].toObject()["score"], QJsonValue(0))
            << score.toStdString();
    }
}

TEST_F(event_record_test, feedback_record_lists_the_attachments_in_order) {
    fill_session();
    QString returned;
    const made_record made = record_one(feedback_name, "info2", [&] {
        returned = manager_->record_feedback("C:/ple/KS-abc123R550.ple", "2.2.0", "KS-700",
                                             "turntable", {"T.ple", ""}, 1, "user@example.com",
                                             "education", "The turntable stops.",
                                             {"C:/logs/z.log", "C:/logs/a.png", "C:/logs/m.zip"});
    });

    EXPECT_EQ(returned, made.path);
    const stored_record& record = made.record;
    EXPECT_EQ(record.type, "feedback");
    EXPECT_JSON_EQ(
        without_call_time(without_filled_machine(record.document), made.before, made.after),
        R"({
        "modelName": "KS-700", "seriaNum": "SN-0042", "softwareName": "keplo-express-software",
        "softwareVer": "2.2.0", "tracingType": "feedback", "enableGuide": "yes",
        "modularExt": {"ple": "C:/ple/KS-R550.ple",
                       "modular": [{"name": "turntable", "sn": "", "mple": "T.ple"}]},
        "content": {"email": "user@example.com", "industry": "education",
                    "content": "The turntable stops.",
                    "attachs": ["C:/logs/z.log", "C:/logs/a.png", "C:/logs/m.zip"]}
    })");
    EXPECT_EQ(manager_->module_file, "C:/ple/KS-R550.ple");
    EXPECT_EQ(manager_->modular_files, (QStringList{"T.ple", ""}));
    EXPECT_EQ(manager_->enable_guide, 1);
}

TEST_F(event_record_test, later_records_report_the_values_given_last) {
    manager_->record_scan(two_step_scan(), 1);
    const QString share = only_new_file([&] {
        manager_->record_share("s.ple", "KS-800", "", "2024-05-04T00:00:00Z",
                               "2024-05-04T00:30:00Z", "mail", "n", "acc", 1);
    });
    const QJsonObject shared = read_stored_record(share).document;
    EXPECT_EQ(shared["softwareVer"], QJsonValue("2.0.0")) << "the scan's version";
    EXPECT_EQ(shared["modularExt"].toObject()["modular"].toArray().size(), 2)
        << "the scan's modular files";

    manager_->start_time = QDateTime(QDate(2024, 5, 4), QTime(9, 0, 0), Qt::LocalTime);
    manager_->create_usage_info("u.ple", "2.0.1", "KS-800", "", 1);
    EXPECT_EQ(manager_->usage_document()["startOn"], QJsonValue("2024-05-04T00:00:00Z"));
    EXPECT_EQ(manager_->usage_document()["endOn"], QJsonValue("2024-05-04T00:30:00Z"));
}

TEST_F(event_record_test, events_in_the_same_second_share_one_file) {
    // Calibration and share are both named to the second with a "Z".
    ASSERT_TRUE(within_one_name(
        share_name,
        [&] {
            manager_->record_calibration({"m"}, "1", "c.ple", "KS", "", {}, "s", "e", {"c"}, {"s"},
                                         {"e"}, {"r"}, 0);
            manager_->record_share("s.ple", "KS", "", "s", "e", "target", "n", "a", 0);
        },
        20));
    ASSERT_EQ(record_names().size(), 1);
    stored_record record = read_stored_record("./keploinfo/" + record_names()[0]);
    EXPECT_EQ(record.type, "share") << "the later record replaces the earlier";
    EXPECT_EQ(record.document["content"].toObject()["target"], QJsonValue("target"));

    QString first, second;
    ASSERT_TRUE(within_one_name(
        score_name,
        [&] {
            first = manager_->record_score("1", "m.ple", "1", "KS", "", "art", 0);
            second = manager_->record_score("2", "m.ple", "1", "KS", "", "art", 0);
        },
        20));
    EXPECT_EQ(first, second);
    EXPECT_EQ(record_names(), QStringList{QFileInfo(second).fileName()});
    EXPECT_EQ(read_stored_record(second).document["content"].toObject()["score"], QJsonValue(2));

    ASSERT_TRUE(within_one_name(
        feedback_name,
        [&] {
            first = manager_->record_feedback("m.ple", "1", "KS", "", {}, 0, "e", "i", "one", {});
            second = manager_->record_feedback("m.ple", "1", "KS", "", {}, 0, "e", "i", "two", {});
        },
        20));
    EXPECT_EQ(first, second);
    EXPECT_EQ(record_names().size(), 1);
    EXPECT_EQ(read_stored_record(second).document["content"].toObject()["content"],
              QJsonValue("two"));
}

TEST_F(event_record_test, a_scan_replaces_the_record_of_its_millisecond) {
    // One scan record syncs a file to disk, so two scans seldom fall in one
    // millisecond. Stand in the earlier scan with a record written ahead under
    // the name of a coming millisecond, then scan in it.
    bool pinned = false;
    for (int attempt = 0; attempt < 20 && !pinned; ++attempt) {
        QDir("keploinfo").removeRecursively();
        QDir(".").mkdir("keploinfo");
        const QDateTime at = QDateTime::currentDateTimeUtc().addMSecs(20);
        const QString path = "./keploinfo/" + at.toString(scan_name) + ".info2";
        TarvoConsumerScanner::information_api::write_record_file(
            path, R"({"tracingType": "scan", "content": {"texture": "earlier"}})", "scan");
        while (QDateTime::currentDateTimeUtc() < at) {
        }
        manager_->record_scan(two_step_scan(), 0);
        // Preempted past the millisecond: the scan made a file of its own.
        pinned = record_names().size() == 1;
        if (!pinned) continue;
        const stored_record record = read_stored_record(path);
        EXPECT_EQ(record.type, "scan");
        EXPECT_EQ(record.document["content"].toObject()["texture"], QJsonValue("color"));
        EXPECT_EQ(record.document["modelName"], QJsonValue("KS-400"));
    }
    EXPECT_TRUE(pinned);
}

TEST_F(event_record_test, scans_a_millisecond_apart_make_two_files) {
    QStringList paths;
    for (int i = 0; i < 2; ++i) {
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        while (QDateTime::currentMSecsSinceEpoch() == now) {
        }
        paths << only_new_file([&] { manager_->record_scan(two_step_scan(), 0); });
    }
    EXPECT_NE(paths[0], paths[1]);
    EXPECT_EQ(record_names().size(), 2);
}

}  // namespace
}  // namespace test_support
