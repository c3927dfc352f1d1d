// The record store: which records are due, which are pruned, reading them
// back, and the upload configuration; the manager's construction.
#include "default_endpoints.h"
#include "manager_fixture.h"

namespace test_support {
namespace {

using store_test = manager_test;

const char* const test_app_id = "3c1f9a7e55d04b28a6e2f0b9d4c87a13";
const char* const release_app_id = "a94e07b3c2d851f6e0b7a4c39d2f6e58";

// Now to the whole second, so that second differences are exact.
QDateTime now_in_seconds() {
    return QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch());
}

// Noon of the day `days` before today: whole calendar days from now.
QDateTime days_ago(int days) {
    return QDateTime(QDate::currentDate().addDays(-days), QTime(12, 0));
}

TEST_F(store_test, due_records_were_last_written_three_seconds_before_the_start) {
    const QDateTime start = now_in_seconds();
    // clang-format off
    const std::pair<const char*, int> rows[] = {  // the name, the last write from the start
        {"ten.info2", -10}, {"three.info2", -3}, {"two.info2", -2}, {"running.info2", 5},
        {".info2", -60},  // the usage record of a session that never started (Linux: a dot file)
        // Equal times come in the order of a time-sorted folder walked backwards.
        {"b.info2", -30}, {"d.info2", -30}, {"a.info2", -30},
        {"old.score2", -100}, {"new.score2", 5},  // scores are listed apart, whatever their age
        {"../elsewhere.info2", -60}};             // a record outside, listed through links
    // clang-format on
    for (const auto& [name, seconds] : rows) write_record(name, start.addSecs(seconds));
    for (const char* link : {"keploinfo/link.info2", "keploinfo/link.score2"})
        ASSERT_TRUE(QFile::link(workdir_.filePath("elsewhere.info2"), link));
    QDir().mkpath("keploinfo/folder.info2");
    QStringList listed{"first", "second"}, expected = listed;
    for (const char* name :
         {"link.info2", ".info2", "d.info2", "b.info2", "a.info2", "ten.info2", "three.info2"})
        expected << QFileInfo("keploinfo/" + QString(name)).absoluteFilePath();

    EXPECT_EQ(manager_->list_due_records(listed), 0) << "without a start time nothing is due";
    EXPECT_EQ(listed.size(), 2);
    qApp->setProperty("start_time", start);
    EXPECT_EQ(manager_->list_due_records(listed), 9) << "the size after the last append";
    EXPECT_EQ(listed, expected);
    EXPECT_TRUE(logs_.contains("day_diff10upload file " + expected[7].toStdString()));
    EXPECT_EQ(logs_.count("upload file "), 7);
    QStringList scores{"first"};
    manager_->list_score_files(scores);
    EXPECT_EQ(scores, (QStringList{"first", QFileInfo("keploinfo/old.score2").absoluteFilePath(),
                                   QFileInfo("keploinfo/link.score2").absoluteFilePath(),
                                   QFileInfo("keploinfo/new.score2").absoluteFilePath()}));
    EXPECT_TRUE(logs_.contains("file=old.score2") && logs_.contains("file=new.score2"));
    EXPECT_EQ(record_names().size(), 12) << "listing removes nothing";

    qApp->setProperty("start_time", start.addSecs(-100));
    EXPECT_EQ(manager_->list_due_records(listed), 0) << "nothing appended, whatever the list held";
    QDir("keploinfo").removeRecursively();  // a missing folder gives empty listings
    QStringList none;
    manager_->list_score_files(none);
    manager_->delete_old_records();
    EXPECT_TRUE(manager_->list_due_records(none) == 0 && none.isEmpty());
}

TEST_F(store_test, pruning_deletes_usage_records_older_than_remain_days_oldest_first) {
    const struct {
        QVariantMap settings;
        int kept_age, deleted_age;
    } rows[] = {{{}, 30, 31}, {{{"remain", 5}}, 5, 6}, {{{"remain", 0}}, 0, 1}};
    for (const auto& row : rows) {
        system_settings(row.settings);
        QDir("keploinfo").removeRecursively();
        QDir().mkpath("keploinfo");
        logs_.clear();
        const QString older = write_record("older.info2", days_ago(row.deleted_age + 9));
        const QString old = write_record("old.info2", days_ago(row.deleted_age));
        write_record("kept.info2", days_ago(row.kept_age));
        write_record("ancient.score2", days_ago(400), "score");
        manager_->delete_old_records();
        EXPECT_EQ(record_names(), (QStringList{"ancient.score2", "kept.info2"})) << row.kept_age;
        std::vector<std::string> deleted;
        for (const auto& line : logs_.lines())
            if (line.from_glog && line.text.rfind("delete file ", 0) == 0)
                deleted.push_back(line.text);
        EXPECT_EQ(deleted, (std::vector<std::string>{"delete file " + older.toStdString(),
                                                     "delete file " + old.toStdString()}));
    }
}

TEST_F(store_test, an_existing_file_reads_back_as_its_ini_keys_give_them) {
    const QByteArray json = u8"{\n    \"industry\": \"齿科\",\n    \"score\": 5\n}\n";
    api::write_record_file("keploinfo/ours.score2", json, "score");
    const QSettings read_plainly("keploinfo/ours.score2", QSettings::IniFormat);
    EXPECT_EQ(read_plainly.childKeys(), (QStringList{"data", "type"}));
    EXPECT_EQ(read_plainly.value("data").type(), QVariant::ByteArray);
    QSettings("keploinfo/theirs.info2", QSettings::IniFormat).setValue("type", "feedback");
    QSettings("keploinfo/odd.info2", QSettings::IniFormat).setValue("data", "no byte array");
    const std::pair<const char*, QByteArray> files[] = {
        {"garbage.txt", "hello"},
        {"extra.info2", "[General]\ntype=scan\nextra=\"a, b\"\n[Other]\nx=1\n"},
        {"variant.info2", "type=scan\nx=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x6)\n"},
        {"email.info2", "type=feedback\nfrom=me@example.com\n"},
        {"huge.info2", "type=scan\n"}};
    for (const auto& [name, bytes] : files) {
        QFile file(QString("keploinfo/") + name);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }
    ASSERT_TRUE(QFile("keploinfo/huge.info2").resize(qint64(257) << 20));  // sparse
    ASSERT_TRUE(
        QFile::link(write_record("../elsewhere.info2", now_in_seconds()), "keploinfo/link.info2"));
    QDir().mkpath("keploinfo/folder.info2");
    const QString untouched = "untoucheduntouched";
    const std::tuple<const char*, int, QString> rows[] = {
        {"ours.score2", 0, QString::fromUtf8(json) + "score"},
        {"theirs.info2", 0, "feedback"},                               // without data
        {"odd.info2", 0, "no byte array"},                             // data as text, no type
        {"garbage.txt", 0, ""},                                        // neither key
        {"extra.info2", 0, "scan"},                                    // other keys and sections
        {"link.info2", 0, "{\"name\": \"../elsewhere.info2\"}usage"},  // what it leads to
        {"folder.info2", 0, ""},                                       // exists, holds no keys
        {"variant.info2", 0, ""},        // would make QSettings rebuild a Qt type
        {"email.info2", 0, "feedback"},  // an '@' inside a value
        {"huge.info2", 0, ""},           // larger than any record
        {"missing.info2", -1, untouched}};
    for (const auto& [name, result, data_and_type] : rows) {
        QString data = "untouched", type = "untouched";
        const QString path = QFileInfo(QString("keploinfo/") + name).absoluteFilePath();
        EXPECT_EQ(manager_->read_record_file(path, data, type), result) << name;
        EXPECT_EQ(data + type, data_and_type) << name;
    }
    EXPECT_TRUE(logs_.contains("type= \"score\""));
    EXPECT_TRUE(logs_.contains(
        "file not exist" + QFileInfo("keploinfo/missing.info2").absoluteFilePath().toStdString()));
}

TEST(record_shape, qsettings_reads_only_texts_where_no_value_can_name_a_qt_type) {
    const std::pair<const char*, bool> rows[] = {
        // Shaped like a record: '@' only where the library writes a byte array.
        {"[General]\ndata=@ByteArray({\\\"a\\\":1})\ntype=usage\n", true},
        {"[General]\r\ndata=\"@ByteArray({\\\"a\\\": 1, \\\"b\\\": 2})\"\r\ntype=score\r\n", true},
        {"type=\"a&type=b\"\n", true},
        {"type=\"\"\n", true},
        // Any other text, as long as no value can start with '@'.
        {"hello", true},
        {"type=\"\n", true},
        {"[Other]\ndata=x, y\n;comment \\n\\\"\n", true},
        {"type=scan\nfrom=me@example.com ;@Variant(\\0)\n", true},   // no element starts with '@'
        {"type=caf\\xe9, @@Variant(\\0), @ByteArray(\\0)\n", true},  // text, text, bytes
        {"[Other]\ndata=@ByteArray(x)\n", true},
        {"data=@ByteArray(x), @Rect(1 2 3 4)\n", false},  // a list: each element is obeyed
        {"data=\"@Rect(1 2 3 4)\"\n", false},
        {"data=\"@ByteArray(x)\", \"@Rect(1 2 3 4)\"\n", false},
        {"type=\\x40Variant(\\0\\0)\n", false},  // an escaped '@'
        {"type=\\100Variant()\n", false},        // the same in octal
        {"type=\\q@Variant()\n", false},         // an escape that vanishes
        {"type=\"\"@Variant()\n", false},        // an empty quoted part
        {"type=a\\\n@Variant()\n", false},       // a continued line
        {"type=@Variant(\\0\\0)\n", false},
        {"=\r\xb3=@Variant(\\0)\n", false}};  // a carriage return ends a line too
    for (const auto& [ini, safe] : rows) EXPECT_EQ(api::safe_for_qsettings(ini), safe) << ini;
}

TEST_F(store_test, settings_give_the_upload_configuration) {
    const QString release = INFORMATION_API_RELEASE_SERVICE_URL,
                  test_up = INFORMATION_API_TEST_UPLOAD_URL,
                  release_id = QString(" ") + release_app_id + " ",
                  test_id = QString(" ") + test_app_id + " ";
    // clang-format off
    const struct {
        QVariantMap settings;
        const char* url_config;              // upload_url of ./url_config.ini, or none
        QStringList upload_urls, file_urls;  // the host's, release and test
        QString expected;  // switch, interval, connect time, address, app id, file address
    } rows[] = {
        {{}, nullptr, {}, {}, "0 60 20 " + release + release_id + test_up},
        {{{"enable", 1}, {"time_intval", 15}, {"connect_time", 7}}, "https://r/file", {},
         {"https://r/files", "https://t/f"}, "1 15 7 https://r/file" + release_id + "https://r/files"},
        {{}, "https://r/file", {"https://r/set", "https://t/info"}, {"", "https://t/f"},
         "0 60 20 https://r/set" + release_id + test_up},
        {{{"test", 1}}, "https://r/file", {"https://r/set", "https://t/info"},
         {"https://r/files", "https://t/f"}, "0 60 20 https://t/info" + test_id + "https://t/f"},
        {{{"test", 1}}, nullptr, {"https://r/set", ""}, {"https://r/files", ""},
         "0 60 20 " + test_id + test_up}};
    // clang-format on
    for (const auto& row : rows) {
        QFile::remove("url_config.ini");
        if (row.url_config)
            QSettings("./url_config.ini", QSettings::IniFormat)
                .setValue("upload_url", row.url_config);
        system_settings(row.settings);
        if (!row.upload_urls.isEmpty())
            manager_->set_upload_urls(row.upload_urls[0], row.upload_urls[1]);
        if (!row.file_urls.isEmpty())
            manager_->set_file_upload_urls(row.file_urls[0], row.file_urls[1]);
        int enable = -1, interval = -1;
        QString address = "unset", app_id = "unset", file_url = "unset", cdn_url = "unset";
        manager_->get_upload_config(enable, interval, address, app_id);
        manager_->get_file_upload_url(file_url);
        manager_->get_cdn_url(cdn_url);
        EXPECT_EQ(QString::asprintf("%d %d %d ", enable, interval, manager_->get_connect_time()) +
                      QStringList({address, app_id, file_url}).join(' '),
                  row.expected);
        EXPECT_EQ(cdn_url, INFORMATION_API_CDN_URL) << "in both modes";
    }
    EXPECT_TRUE(logs_.contains("get_upload_config _release_url= \"https://r/set\""));
}

TEST_F(store_test, url_config_is_read_again_only_while_its_address_is_empty) {
    const std::pair<const char*, const char*> rows[] = {
        {"", ""}, {"https://r/first", "https://r/first"}, {"https://r/second", "https://r/first"}};
    for (const auto& [url_config, expected] : rows) {
        QSettings("./url_config.ini", QSettings::IniFormat).setValue("upload_url", url_config);
        int enable, interval;
        QString address, app_id;
        manager_->get_upload_config(enable, interval, address, app_id);
        EXPECT_EQ(address, expected) << url_config;
    }
    EXPECT_EQ(logs_.count("url_config.ini get_upload_config _release_url="), 2);
    EXPECT_TRUE(
        logs_.contains("url_config.ini get_upload_config _release_url= \"https://r/first\""));
}

TEST_F(store_test, a_session_starts_unless_the_application_is_the_uploader) {
    EXPECT_TRUE(QFileInfo("keploinfo").isDir());
    EXPECT_TRUE(manager_->start_time.isNull() && manager_->start_on.isEmpty());
    EXPECT_TRUE(manager_->cpu_cores.isEmpty() && manager_->resolution.isEmpty());
    EXPECT_EQ(manager_->enable_guide, 0);
    for (const char* name : {"scanner", "Information_Uploader", "information_uploader2", ""}) {
        QCoreApplication::setApplicationName(name);
        const QDateTime before = now_in_seconds();
        windows_information_imp session;
        QDateTime start_on = QDateTime::fromString(session.start_on, "yyyy-MM-ddThh:mm:ssZ");
        EXPECT_EQ(start_on.toString("yyyy-MM-ddThh:mm:ssZ"), session.start_on) << name;
        start_on.setTimeSpec(Qt::UTC);
        EXPECT_LE(qAbs(start_on.secsTo(session.start_time)), 1);
        EXPECT_EQ(session.end_on, session.start_on);
        EXPECT_EQ(session.start_time.timeSpec(), Qt::LocalTime);
        EXPECT_TRUE(before <= session.start_time &&
                    session.start_time <= QDateTime::currentDateTime());
        EXPECT_FALSE(session.cpu_cores.isEmpty() || session.resolution.isEmpty()) << name;
    }
}

TEST_F(store_test, set_ple_file_cuts_between_the_last_dash_and_the_suffix) {
    // Kept as given: no dash, the dash right before or first, a dash after.
    // clang-format off
    const std::pair<const char*, const char*> rows[] = {
        {"C:/ple/x-abc123R550.ple", "C:/ple/x-R550.ple"}, {"x-abc123r550.PLE", "x-r550.PLE"},
        {"a-1R550.ple/b-c-2R550.ple", "a-1R550.ple/b-c-R550.ple"}, {"x-2R550.ple", "x-R550.ple"},
        {"abc123R550.ple", "abc123R550.ple"}, {"x-R550.ple", "x-R550.ple"},
        {"-abcR550.ple", "-abcR550.ple"}, {"x-abcR550.ple-2", "x-abcR550.ple-2"},
        {"x-abc.ple", "x-abc.ple"}, {"", ""}};
    // clang-format on
    for (const auto& [path, cut] : rows) {
        manager_->set_ple_file(path);
        EXPECT_EQ(manager_->module_file, cut) << path;
    }
}

}  // namespace
}  // namespace test_support
