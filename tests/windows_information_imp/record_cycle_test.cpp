// The whole life of the records: one run records a session and an event of
// every kind; a later run lists the due records and the score files, reads
// each back, uploads it with upload_information, and, forty days on, prunes
// them but for the score.
#include <QMap>
#include <QRegularExpression>

#include "event_wait.h"
#include "local_server.h"
#include "manager_fixture.h"
#include "recording_sink.h"

namespace test_support {
namespace {

class record_cycle_test : public manager_test {
protected:
    void TearDown() override {
        api::information_clean();
        pump_events_for(20);  // the thread object goes with the host's event loop
        manager_test::TearDown();
    }

    // The first run: a session that started a minute ago, with one event of
    // every kind, ended by destroying its manager. Returns each file's
    // absolute path with what lies in it.
    QMap<QString, stored_record> record_first_run() {
        const QDateTime session_start = QDateTime::currentDateTime().addSecs(-60);
        qApp->setProperty("start_time", session_start);
        manager_->start_time = session_start;
        manager_->create_usage_info("KS-abcR550.ple", "3.1.4", "KS-100", "turntable", 1);
        api::scan_description_t scan;
        scan.steps = {api::scan_step_t{"a", "b", "fixed", "16", "on", {"marker"}, "turntable"}};
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
    static api::KeploInfoMgr* start_second_run() {
        qApp->setProperty("start_time", QDateTime::currentDateTime().addSecs(5));
        QCoreApplication::setApplicationName("scanner");
        return api::information_init();
    }

    static QStringList paths_of(const QMap<QString, stored_record>& files, const char* suffix) {
        return files.keys().filter(QRegularExpression(QString("\\.%1$").arg(suffix)));
    }
};

TEST_F(record_cycle_test, a_later_run_uploads_every_record_intact_and_prunes_them_later) {
    const QMap<QString, stored_record> written = record_first_run();
    QStringList types;
    for (const stored_record& record : written) types << record.type;
    types.sort();
    EXPECT_EQ(types, (QStringList{"calibration", "feedback", "scan", "score", "share", "usage"}));

    api::KeploInfoMgr* manager = start_second_run();
    QStringList due, scores;
    EXPECT_EQ(manager->list_due_records(due), 5);
    due.sort();
    EXPECT_EQ(due, paths_of(written, "info2"));
    manager->list_score_files(scores);
    EXPECT_EQ(scores, paths_of(written, "score2"));

    local_server server;
    recording_sink sink;
    server.answer_json("/dtta", R"({"status":"success"})");
    server.start();
    manager->set_upload_urls(server.url("/dtta"), QString());
    int enable = 0, interval = 0, id = 100;
    QString address, app_id;
    manager->get_upload_config(enable, interval, address, app_id);
    QMap<std::string, std::string> sent;  // type -> JSON text
    for (const QString& path : due + scores) {
        QString data, type;
        ASSERT_EQ(manager->read_record_file(path, data, type), 0) << path.toStdString();
        EXPECT_EQ(type, written[path].type);
        EXPECT_EQ(data.toUtf8(), written[path].data) << path.toStdString();
        sent.insert(type.toStdString(), written[path].data.toStdString());
        api::upload_information(address, data, app_id, type, &sink, ++id, 5000);
    }

    ASSERT_TRUE(server.wait_for_requests(6) && sink.wait_for_responses(6));
    for (const auto& response : sink.responses()) EXPECT_TRUE(response.info.ok);
    for (const received_request& request : server.requests()) {
        const std::string type = request.target.substr(request.target.find("type=") + 5);
        EXPECT_EQ(request.body, sent.take(type)) << type;
        EXPECT_EQ(request.header("X-Auth-AppID"), "a94e07b3c2d851f6e0b7a4c39d2f6e58");
    }
    EXPECT_TRUE(sent.isEmpty()) << "every record arrived once";

    for (const QString& path : written.keys()) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite) &&
                    file.setFileTime(QDateTime::currentDateTime().addDays(-40),
                                     QFileDevice::FileModificationTime));
    }
    manager->delete_old_records();
    due.clear();
    EXPECT_EQ(manager->list_due_records(due), 0);
    EXPECT_EQ(record_names(), QStringList{QFileInfo(scores.value(0)).fileName()});
    for (const QString& path : paths_of(written, "info2"))
        EXPECT_TRUE(logs_.contains("delete file " + path.toStdString())) << path.toStdString();
}

}  // namespace
}  // namespace test_support
