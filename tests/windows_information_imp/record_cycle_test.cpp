// The whole life of the records: one run records a session and an event of
// every kind; a later run lists the due records and the score files, reads
// each back, uploads it with upload_information and prunes old records.
#include <QFile>
#include <QMap>

#include "event_wait.h"
#include "local_server.h"
#include "record_test_fixture.h"
#include "recording_sink.h"

namespace test_support {
namespace {

const char* const release_app_id = "a94e07b3c2d851f6e0b7a4c39d2f6e58";

class record_cycle_test : public record_test {
protected:
    void TearDown() override {
        api::information_clean();
        record_test::TearDown();
    }

    // The first run: a session that started a minute ago, with one event of
    // every kind, ended by destroying its manager. Returns what lies on disk:
    // each file's absolute path with its type and JSON text.
    QMap<QString, stored_record> record_first_run() {
        const QDateTime session_start = QDateTime::currentDateTime().addSecs(-60);
        qApp->setProperty("start_time", session_start);
        fill_session();
        manager_->start_time = session_start;

        manager_->create_usage_info("KS-abcR550.ple", "3.1.4", "KS-100", "turntable", 1);
        scan_description_t scan;
        scan.module_file = "KS-abcR550.ple";
        scan.model_name = "KS-100";
        scan.software_version = "3.1.4";
        scan.steps = {scan_step_t{"a", "b", "fixed", "16", "on", {"marker"}, "turntable"}};
        scan.total_points = "1000";
        scan.file_name = "bust.ply";
        manager_->record_scan(scan, 1);
        manager_->record_calibration({"turntable"}, "3.1.4", "KS-abcR550.ple", "KS-100",
                                     "turntable", {"T.ple"}, "c0", "c1", {"plane"}, {"c0"}, {"c1"},
                                     {"pass"}, 1);
        // Calibration and share are named to the second: keep them apart.
        const QString second = QDateTime::currentDateTimeUtc().toString("ss");
        EXPECT_TRUE(wait_until(
            [&] { return QDateTime::currentDateTimeUtc().toString("ss") != second; }, 2000));
        manager_->record_share("KS-abcR550.ple", "KS-100", "turntable", "s0", "s1", "wechat",
                               "bust.ply", "user@example.com", 1);
        manager_->record_score("9", "KS-abcR550.ple", "3.1.4", "KS-100", "turntable", "dental", 1);
        manager_->record_feedback("KS-abcR550.ple", "3.1.4", "KS-100", "turntable", {"T.ple"}, 1,
                                  "user@example.com", "dental",
                                  QString::fromUtf8("转台停止 \"quoted\" \\ & = ; line\nbreak"),
                                  {"C:/logs/a.log"});

        QStringList due;
        EXPECT_EQ(manager_->list_due_records(due), 0) << "the running session's files wait";
        manager_.reset();

        QMap<QString, stored_record> files;
        for (const QFileInfo& file : QDir("keploinfo").entryInfoList(QDir::Files))
            files.insert(file.absoluteFilePath(), read_stored_record(file.absoluteFilePath()));
        return files;
    }

    // The second run starts later than every file of the first was written.
    api::KeploInfoMgr* start_second_run() {
        qApp->setProperty("start_time", QDateTime::currentDateTime().addSecs(5));
        return api::information_init();
    }

    static QStringList paths_of(const QMap<QString, stored_record>& files, const char* suffix) {
        QStringList paths;
        for (const QString& path : files.keys())
            if (path.endsWith(suffix)) paths << path;
        return paths;
    }

    static QStringList sorted(QStringList list) {
        list.sort();
        return list;
    }

    local_server server_;
    recording_sink sink_;
};

TEST_F(record_cycle_test, later_run_uploads_every_record_intact) {
    const QMap<QString, stored_record> written = record_first_run();
    ASSERT_EQ(written.size(), 6);
    QStringList types;
    for (const stored_record& record : written) types << record.type;
    EXPECT_EQ(sorted(types),
              (QStringList{"calibration", "feedback", "scan", "score", "share", "usage"}));

    api::KeploInfoMgr* manager = start_second_run();
    QStringList due;
    EXPECT_EQ(manager->list_due_records(due), 5);
    EXPECT_EQ(sorted(due), sorted(paths_of(written, ".info2")));
    QStringList scores;
    manager->list_score_files(scores);
    EXPECT_EQ(scores, paths_of(written, ".score2"));

    server_.answer_json("/dtta", R"({"status":"success"})");
    server_.start();
    manager->set_upload_urls(server_.url("/dtta"), QString());
    int enable = 0, interval = 0;
    QString address, app_id;
    manager->get_upload_config(enable, interval, address, app_id);
    EXPECT_EQ(address, server_.url("/dtta"));
    EXPECT_EQ(app_id, release_app_id);

    int connection_id = 100;
    QMap<std::string, std::string> sent;  // type -> JSON text
    for (const QString& path : due + scores) {
        QString data, type;
        ASSERT_EQ(manager->read_record_file(path, data, type), 0) << path.toStdString();
        EXPECT_EQ(type, written[path].type);
        EXPECT_EQ(data.toUtf8(), written[path].data) << path.toStdString();
        sent.insert(type.toStdString(), written[path].data.toStdString());
        EXPECT_EQ(
            api::upload_information(address, data, app_id, type, &sink_, ++connection_id, 5000), 0);
    }

    ASSERT_TRUE(server_.wait_for_requests(6));
    ASSERT_TRUE(sink_.wait_for_responses(6));
    for (const auto& response : sink_.responses()) {
        EXPECT_TRUE(response.info.ok) << response.connection_id;
        EXPECT_EQ(response.info.state, 0);
    }
    const auto requests = server_.requests();
    ASSERT_EQ(requests.size(), 6u);
    for (const received_request& request : requests) {
        const std::string type = request.target.substr(request.target.find("type=") + 5);
        ASSERT_TRUE(sent.contains(type)) << request.target;
        EXPECT_EQ(request.body, sent[type]) << type;
        EXPECT_EQ(request.header("X-Auth-AppID"), release_app_id);
        const QJsonObject document =
            QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object();
        EXPECT_EQ(document["tracingType"].toString().toStdString(), type);
        sent.remove(type);
    }
    EXPECT_TRUE(sent.isEmpty()) << "every record arrived once";
    for (int id = 101; id <= connection_id; ++id) EXPECT_EQ(api::release_connect(id), 0);
}

TEST_F(record_cycle_test, pruning_removes_old_records_and_keeps_score_files) {
    const QMap<QString, stored_record> written = record_first_run();
    const QDateTime long_ago = QDateTime::currentDateTime().addDays(-40);
    for (const QString& path : written.keys()) set_modified(path, long_ago);

    api::KeploInfoMgr* manager = start_second_run();
    manager->delete_old_records();

    EXPECT_EQ(record_names(), QStringList{QFileInfo(paths_of(written, ".score2")[0]).fileName()});
    for (const QString& path : paths_of(written, ".info2"))
        EXPECT_TRUE(logs_.contains("delete file " + path.toStdString())) << path.toStdString();
    QStringList due, scores;
    EXPECT_EQ(manager->list_due_records(due), 0);
    manager->list_score_files(scores);
    EXPECT_EQ(scores, paths_of(written, ".score2"));
    QString data, type;
    EXPECT_EQ(manager->read_record_file(scores.value(0), data, type), 0);
    EXPECT_EQ(type, "score");
}

}  // namespace
}  // namespace test_support
