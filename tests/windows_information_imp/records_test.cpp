// The usage document every record carries, the record of each kind of event,
// the session's usage record from its first write to the end of the session,
// and the whole life of the records: one run records a session and an event
// of every kind; a later run lists the due records and the score files, reads
// each back and uploads it with upload_information.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <functional>

#include "event_wait.h"
#include "local_server.h"
#include "manager_fixture.h"
#include "recording_sink.h"

namespace test_support {
namespace {

using api::scan_description_t;

// One record file as it lies on disk.
struct stored_record {
    QString type;
    QByteArray data;  // the JSON text under "data"
    QJsonObject document;
};

stored_record read_stored_record(const QString& path) {
    const QSettings file(path, QSettings::IniFormat);
    const QByteArray data = file.value("data").toByteArray();
    return {file.value("type").toString(), data, QJsonDocument::fromJson(data).object()};
}

// JSON in the serialiser's form (sorted keys), so that a mismatch shows as a
// readable diff.
std::string json_text(const QJsonValue& value) {
    return QJsonDocument(QJsonArray{value}).toJson().toStdString();
}

// A document of expected/records.json; a typo in its name fails loudly.
QJsonObject expected(const char* name) {
    static const QJsonObject all = [] {
        QFile file(MANAGER_TEST_DATA "/records.json");
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return QJsonDocument::fromJson(file.readAll()).object();
    }();
    EXPECT_TRUE(all.contains(name)) << name;
    return all[name].toObject();
}

// Compares the keys that the expected document names, each as a whole.
void expect_keys(const QJsonObject& document, const QJsonObject& expected) {
    for (const QString& key : expected.keys())
        EXPECT_EQ(json_text(document[key]), json_text(expected[key])) << key.toStdString();
}

const char* const utc_format = "yyyy-MM-ddThh:mm:ssZ";  // startOn and endOn

QString utc_now() {
    return QDateTime::currentDateTimeUtc().toString(utc_format);
}

class records_test : public manager_test {
protected:
    // A session record with every member set, as the probes and the host
    // would leave it.
    void fill_session() {
        windows_information_imp& m = *manager_;
        m.model_name = "KS-100", m.serial_number = "SN-0042", m.software_version = "3.1.4";
        m.start_on = "2024-05-01T08:00:00Z", m.end_on = "2024-05-01T09:30:00Z";
        m.os_name = "Windows 10 Pro", m.language = "2052", m.resolution = "1920*1080";
        m.install_path = "C:/Program Files/Keplo", m.browser_name = "Firefox";
        m.browser_version = "126.0", m.cpu_cores = "8", m.cpu_model = "AMD64;i7-8700";
        m.memory_size = "34359738369";  // 2^35 + 1: beyond 32 bits, exact
        m.gpu_models = QStringList{"GTX 1060", "UHD 630"},
        m.gpu_memory_sizes = QStringList{"6442450944"};
        m.disk_size = "9007199254740992";  // 2^53
        m.disk_free_size = "12 GB";        // not a number: 0
        m.module_file = "C:/ple/KS-abc123R550.ple", m.modular_name = "turntable";
        m.modular_files = QStringList{"A.ple", "B.ple"}, m.enable_guide = 1;
    }

    QJsonObject built() {
        QJsonObject document;
        manager_->build_usage_document(document);
        return document;
    }
};

TEST_F(records_test, the_usage_document_carries_every_session_member) {
    fill_session();
    EXPECT_EQ(json_text(built()), json_text(expected("usage document of the filled session")));
    EXPECT_TRUE(logs_.contains("modular=turntablemodular_ple.size=2"));
}

TEST_F(records_test, session_rows_give_their_part_of_the_document) {
    const struct {
        QString modular_name;
        QStringList modular_files, gpu_models, gpu_memory_sizes;
        QString cpu_cores;
        int enable_guide;
        const char* expected;  // in expected/records.json: the keys to compare
    } rows[] = {{"X", {"", "A", ""}, {"A"}, {"1", "2"}, "abc", 2, "row: a first empty module"},
                {"", {"A", "", "B"}, {}, {"1"}, "", 0, "row: modules without a name"},
                {"X", {}, {}, {}, "", -1, "row: a module name without files"},
                {"", {}, {}, {}, "", 1, "row: no module at all"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expected);
        manager_ = std::make_unique<windows_information_imp>();
        manager_->modular_name = row.modular_name, manager_->modular_files = row.modular_files;
        manager_->gpu_models = row.gpu_models, manager_->gpu_memory_sizes = row.gpu_memory_sizes;
        manager_->cpu_cores = row.cpu_cores, manager_->enable_guide = row.enable_guide;
        expect_keys(built(), expected(row.expected));
    }
}

scan_description_t two_step_scan() {
    scan_description_t scan;
    scan.module_file = "scan-abcR550.ple", scan.model_name = "KS-400";
    scan.modular_name = "turntable", scan.software_version = "2.0.0";
    scan.start_on = "a0", scan.end_on = "a1";
    scan.steps = {{"s0", "e0", "fixed", "16", "on", {"marker", "feature"}, "turntable"},
                  {"s1", "e1", "handheld", "0", "off", {}, "handheld"}};
    scan.texture = "color", scan.total_points = "1234567", scan.point_distance = "0.25";
    scan.length = "120.5", scan.width = "80", scan.height = "33.75";
    scan.hand_held_point_gen_way = "auto", scan.mesh_type = "watertight";
    scan.file_name = "bust.ply", scan.modular_files = QStringList{"T.ple", "", "H.ple"};
    return scan;
}

const char* const to_the_ms = "yyyy-MM-ddThh-mm-ss.zzzZ";
const char* const to_the_second = "yyyy-MM-ddThh-mm-ss";
const char* const to_the_second_z = "yyyy-MM-ddThh-mm-ssZ";

// Each event: the record it writes (named by the call's UTC time, with the
// session keys as the operation leaves them and its own content), the
// members it keeps for later records, and the path it returns.
struct event_row {
    std::function<QString(windows_information_imp&)> record;
    const char* format;
    const char* extension;
    // The document it writes, in expected/records.json: the session keys the
    // operation sets and its content, or its content alone.
    const char* expected;
};

TEST_F(records_test, each_event_writes_its_record_and_keeps_its_values) {
    // clang-format off
    const event_row rows[] = {
        {[](auto& m) { return m.record_scan(two_step_scan(), 3), QString(); }, to_the_ms, "info2",
         "scan"},
        {[](auto& m) {
             scan_description_t scan = two_step_scan();
             scan.steps.clear(), scan.total_points = "many", scan.point_distance = "";
             return m.record_scan(scan, 1), QString(); },
         to_the_ms, "info2", "scan without steps, numbers not numbers"},
        {[](auto& m) { return m.record_calibration({"turntable", "handheld"}, "5.0.0",
             "cal-abcR550.ple", "KS-300", "turntable", {"", "A.ple", ""}, "c0", "c1",
             {"plane", "sphere"}, {"p0", "s0"}, {"p1", "s1"}, {"pass", "fail"}, 1), QString(); },
         to_the_second_z, "info2", "calibration"},
        {[](auto& m) { return m.record_calibration({"m"}, "5", "c", "KS", "", {}, "c0", "c1",
             {"a", "b"}, {"s"}, {}, {}, 0), QString(); },
         to_the_second_z, "info2", "calibration with lists shorter than the classes"},
        {[](auto& m) { return m.record_calibration({}, "5", "c", "KS", "", {}, "", "", {}, {}, {},
             {}, 0), QString(); },
         to_the_second_z, "info2", "calibration without items"},
        {[](auto& m) { return m.record_share("share-abcR550.ple", "KS-500", "", "h0", "h1",
             "wechat", "bust.ply", "user@example.com", 1), QString(); },
         to_the_second_z, "info2", "share, keeping the software version and modular files"},
        {[](auto& m) { return m.record_score("87", "C:/ple/KS-abc123R550.ple", "2.1.0", "KS-600",
             "turntable", "dental", 0); },
         to_the_second, "score2", "score"},
        {[](auto& m) { return m.record_score("4.5", "m.ple", "1", "KS", "", "art", 0); },
         to_the_second, "score2", "score not a number"},
        {[](auto& m) { return m.record_feedback("C:/ple/KS-abc123R550.ple", "2.2.0", "KS-700",
             "turntable", {"T.ple", ""}, 1, "user@example.com", "education", "It stops.",
             {"C:/z.log", "C:/a.png"}); },
         to_the_second, "info2", "feedback"}};
    // clang-format on
    for (const event_row& row : rows) {
        SCOPED_TRACE(row.expected);
        QDir("keploinfo").removeRecursively();
        manager_ = std::make_unique<windows_information_imp>();
        fill_session();
        const QDateTime start = QDateTime::currentDateTimeUtc();
        const QString returned = row.record(*manager_);
        const QDateTime end = QDateTime::currentDateTimeUtc();
        const QStringList made = record_names();
        ASSERT_EQ(made.size(), 1) << made.join(", ").toStdString();
        const QString path = "./keploinfo/" + made[0], stamp = QFileInfo(path).completeBaseName();
        EXPECT_EQ(QDateTime::fromString(stamp, row.format).toString(row.format), stamp);
        // Fixed-width, most significant field first: text order is time order.
        EXPECT_TRUE(start.toString(row.format) <= stamp && stamp <= end.toString(row.format))
            << stamp.toStdString();
        EXPECT_EQ(QFileInfo(path).suffix().toStdString(), row.extension);
        EXPECT_TRUE(returned.isEmpty() || returned == path);
        const stored_record record = read_stored_record(path);
        EXPECT_EQ(record.type, record.document["tracingType"].toString());
        EXPECT_EQ(record.data, QJsonDocument(record.document).toJson()) << "indented form";
        // The values given stay in the session record: the next document is
        // the same but for its kind and content.
        QJsonObject next = built(), document = record.document;
        for (const char* key : {"tracingType", "content"}) next.remove(key), document.remove(key);
        EXPECT_EQ(json_text(next), json_text(document));
        const QJsonObject expected = test_support::expected(row.expected);
        document = record.document;
        for (const char* key : {"startOn", "endOn"}) {
            const QString on = document[key].toString();
            if (expected[key] == QJsonValue("the call's UTC time") &&
                start.toString(utc_format) <= on && on <= end.toString(utc_format))
                document[key] = expected[key];
        }
        expect_keys(document, expected);
    }
    EXPECT_TRUE(logs_.contains("modular=turntabledevice_ex_ple.size=3"));
}

TEST_F(records_test,
       the_usage_record_is_named_by_the_local_start_rewritten_and_stamped_at_the_end) {
    fill_session();
    manager_->start_time = QDateTime(QDate(2024, 5, 1), QTime(16, 5, 9), Qt::LocalTime);
    const QString path = "./keploinfo/2024-05-01T16-05-09.info2";
    testing::internal::CaptureStdout();
    manager_->create_usage_info("dev-xyzR550.ple", "4.0.0", "KS-200", "turntable", 7);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\r\n create_usage_inifo=" + path.toStdString() + " ");
    EXPECT_TRUE(logs_.contains("create_usage_inifo 0") && logs_.contains("create_usage_inifo 1"));
    EXPECT_EQ(manager_->usage_file_path(), path);
    stored_record record = read_stored_record(path);
    EXPECT_EQ(record.type, "usage");
    EXPECT_EQ(record.document, built());
    expect_keys(record.document, expected("usage record, first call"));

    // A second call rewrites the one file; the kept document is filled, not
    // emptied, so the first call's modules stay.
    manager_->create_usage_info("b.ple", "4.0.1", "KS-300", "", 1);
    EXPECT_EQ(record_names(), QStringList{"2024-05-01T16-05-09.info2"});
    const QJsonObject written = read_stored_record(path).document;
    expect_keys(written, expected("usage record, second call"));

    // Later records touch neither the usage record nor its document; the end
    // of the session stamps only endOn.
    manager_->record_calibration({"m"}, "6.0", "c.ple", "KS", "Y", {"B.ple"}, "s", "e", {"c"},
                                 {"s"}, {"e"}, {"r"}, 0);
    EXPECT_EQ(manager_->usage_document(), written);
    const QString before = utc_now();
    manager_.reset();
    const QString after = utc_now();
    EXPECT_TRUE(logs_.contains("~windows_information_imp"));
    record = read_stored_record(path);
    const QString end_on = record.document["endOn"].toString();
    EXPECT_TRUE(before <= end_on && end_on <= after) << end_on.toStdString();
    record.document["endOn"] = written["endOn"];
    EXPECT_EQ(record.document, written);
    EXPECT_EQ(record.type, "usage");
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
    EXPECT_EQ(QDir().entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{"keploinfo"});
    EXPECT_TRUE(record_names().isEmpty());
}

// The whole life of the records across two runs of the host.
class record_cycle_test : public manager_test {
protected:
    void TearDown() override {
        api::information_clean();
        free_deferred_objects();
        manager_test::TearDown();
    }
};

TEST_F(record_cycle_test, a_later_run_uploads_every_record_intact) {
    // The first run: a session that started a minute ago, with one event of
    // every kind, ended by destroying its manager.
    const QDateTime session_start = QDateTime::currentDateTime().addSecs(-60);
    qApp->setProperty("start_time", session_start);
    manager_->start_time = session_start;
    manager_->create_usage_info("KS-abcR550.ple", "3.1.4", "KS-100", "turntable", 1);
    api::scan_description_t scan;
    scan.steps = {api::scan_step_t{"a", "b", "fixed", "16", "on", {"marker"}, "turntable"}};
    manager_->record_scan(scan, 1);
    manager_->record_calibration({"turntable"}, "3.1.4", "KS-abcR550.ple", "KS-100", "turntable",
                                 {"T.ple"}, "c0", "c1", {"plane"}, {"c0"}, {"c1"}, {"pass"}, 1);
    // Calibration and share are named to the second: keep them apart.
    const QString second = QDateTime::currentDateTimeUtc().toString("ss");
    ASSERT_TRUE(
        wait_until([&] { return QDateTime::currentDateTimeUtc().toString("ss") != second; }, 2000));
    manager_->record_share("KS-abcR550.ple", "KS-100", "turntable", "s0", "s1", "wechat",
                           "bust.ply", "user@example.com", 1);
    manager_->record_score("9", "KS-abcR550.ple", "3.1.4", "KS-100", "turntable", "dental", 1);
    manager_->record_feedback(
        "KS-abcR550.ple", "3.1.4", "KS-100", "turntable", {"T.ple"}, 1, "user@example.com",
        "dental", QString::fromUtf8("转台停止 \"quoted\" \\ & = ; line\nbreak"), {"C:/logs/a.log"});
    QStringList due, scores;
    EXPECT_EQ(manager_->list_due_records(due), 0) << "the running session's files wait";
    manager_.reset();
    QMap<QString, stored_record> written;  // by absolute path
    for (const QFileInfo& file : QDir("keploinfo").entryInfoList(QDir::Files))
        written.insert(file.absoluteFilePath(), read_stored_record(file.absoluteFilePath()));
    ASSERT_EQ(written.size(), 6);

    // The second run starts later than every file of the first was written.
    qApp->setProperty("start_time", QDateTime::currentDateTime().addSecs(5));
    QCoreApplication::setApplicationName("scanner");
    api::KeploInfoMgr* manager = api::information_init();
    EXPECT_EQ(manager->list_due_records(due), 5);
    manager->list_score_files(scores);
    due.sort();
    const QStringList paths = written.keys();
    EXPECT_EQ(due + scores, paths.filter(".info2") + paths.filter(".score2"));

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
}

}  // namespace
}  // namespace test_support
