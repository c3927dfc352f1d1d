#include <QElapsedTimer>
#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "store_test_fixture.h"

namespace test_support {
namespace {

// --- Due records -----------------------------------------------------------

TEST_F(store_test, due_records_are_those_last_written_at_least_three_seconds_before_the_start) {
    const QDateTime start = now_in_seconds();
    qApp->setProperty("start_time", start);
    const QString ten = write_record("ten.info2", start.addSecs(-10));
    const QString three = write_record("three.info2", start.addSecs(-3));
    write_record("two.info2", start.addSecs(-2));
    write_record("running.info2", start.addSecs(5));
    write_record("old.score2", start.addSecs(-100), "score");
    auto manager = make_manager();

    QStringList due;
    EXPECT_EQ(manager->list_due_records(due), 2);

    EXPECT_EQ(due, (QStringList{ten, three}));  // oldest first
    EXPECT_TRUE(logs_.contains("day_diff10upload file " + ten.toStdString()));
    EXPECT_TRUE(logs_.contains("day_diff3upload file " + three.toStdString()));
    EXPECT_EQ(logs_.count("upload file "), 2);
    // Listing does not remove anything.
    EXPECT_EQ(record_names().size(), 5);
}

TEST_F(store_test, the_nameless_usage_record_of_a_session_that_never_started_is_listed) {
    const QDateTime start = now_in_seconds();
    qApp->setProperty("start_time", start);
    const QString nameless = write_record(".info2", start.addSecs(-60));
    auto manager = make_manager();
    QStringList due;
    EXPECT_EQ(manager->list_due_records(due), 1);
    EXPECT_EQ(due, QStringList{nameless});
}

TEST_F(store_test, nothing_is_due_when_the_host_set_no_start_time) {
    write_record("a.info2", days_ago(3));
    write_record("b.info2", days_ago(40));
    auto manager = make_manager();

    QStringList due;
    EXPECT_EQ(manager->list_due_records(due), 0);
    EXPECT_TRUE(due.isEmpty());
    EXPECT_FALSE(logs_.contains("upload file "));
}

TEST_F(store_test, due_listing_appends_and_returns_the_size_after_the_last_append) {
    const QDateTime start = now_in_seconds();
    qApp->setProperty("start_time", start);
    const QString due_file = write_record("due.info2", start.addSecs(-60));
    auto manager = make_manager();

    QStringList listed{"first", "second"};
    EXPECT_EQ(manager->list_due_records(listed), 3);
    EXPECT_EQ(listed, (QStringList{"first", "second", due_file}));
}

TEST_F(store_test, due_listing_returns_zero_when_it_appends_nothing_whatever_the_list_held) {
    const QDateTime start = now_in_seconds();
    qApp->setProperty("start_time", start);
    write_record("running.info2", start.addSecs(1));
    auto manager = make_manager();

    QStringList listed{"first", "second"};
    EXPECT_EQ(manager->list_due_records(listed), 0);
    EXPECT_EQ(listed, (QStringList{"first", "second"}));
}

// Files changed at the same moment come in the order of a QDir sorted by time
// (newest first, then by name) walked from its end.
TEST_F(store_test, due_records_come_in_the_order_of_a_time_sorted_folder_walked_backwards) {
    const QDateTime start = now_in_seconds();
    qApp->setProperty("start_time", start);
    for (const char* name : {"b", "d", "a", "c"})
        write_record(name + QString(".info2"), start.addSecs(-60));
    for (const char* name : {"f", "e"}) write_record(name + QString(".info2"), start.addSecs(-90));
    write_record("g.info2", start.addSecs(-30));
    auto manager = make_manager();

    QStringList due;
    EXPECT_EQ(manager->list_due_records(due), 7);

    QFileInfoList sorted = QDir("keploinfo").entryInfoList({"*.info2"}, QDir::Files, QDir::Time);
    std::reverse(sorted.begin(), sorted.end());
    QStringList expected;
    for (const QFileInfo& file : sorted) expected.append(file.absoluteFilePath());
    EXPECT_EQ(due, expected);
    QStringList names;
    for (const QString& path : due) names.append(QFileInfo(path).fileName());
    EXPECT_EQ(names, (QStringList{"f.info2", "e.info2", "d.info2", "c.info2", "b.info2", "a.info2",
                                  "g.info2"}));
}

// --- Pruning ---------------------------------------------------------------

TEST_F(store_test, pruning_deletes_usage_files_older_than_thirty_days_by_default) {
    const QString older = write_record("older.info2", days_ago(45));
    const QString old = write_record("old.info2", days_ago(31));
    write_record("kept.info2", days_ago(30));
    write_record("today.info2", QDateTime::currentDateTime());
    auto manager = make_manager();

    manager->delete_old_records();

    EXPECT_EQ(record_names(), (QStringList{"kept.info2", "today.info2"}));
    // Oldest first, one line per deleted file.
    const std::vector<log_capture::line> lines = logs_.lines();
    std::vector<std::string> deleted;
    for (const log_capture::line& l : lines)
        if (l.from_glog && l.text.rfind("delete file ", 0) == 0) deleted.push_back(l.text);
    EXPECT_EQ(deleted, (std::vector<std::string>{"delete file " + older.toStdString(),
                                                 "delete file " + old.toStdString()}));
}

TEST_F(store_test, pruning_keeps_as_many_days_as_remain_says) {
    write_system_settings({{"remain", 30}});
    write_record("a.info2", days_ago(31));
    write_record("b.info2", days_ago(30));
    auto manager = make_manager();
    manager->delete_old_records();
    EXPECT_EQ(record_names(), QStringList{"b.info2"});

    manager.reset();
    write_system_settings({{"remain", 5}});
    write_record("c.info2", days_ago(6));
    write_record("d.info2", days_ago(5));
    manager = make_manager();
    manager->delete_old_records();
    EXPECT_EQ(record_names(), QStringList{"d.info2"});
    EXPECT_EQ(logs_.count("delete file "), 3);
}

TEST_F(store_test, pruning_stops_at_the_first_young_file) {
    write_record("young.info2", days_ago(2));
    write_record("younger.info2", days_ago(1));
    write_record("newest.info2", QDateTime::currentDateTime());
    auto manager = make_manager();

    manager->delete_old_records();

    EXPECT_EQ(record_names().size(), 3);
    EXPECT_FALSE(logs_.contains("delete file "));
}

TEST_F(store_test, pruning_never_touches_score_files) {
    write_record("ancient.score2", days_ago(400), "score");
    write_record("ancient.info2", days_ago(400));
    auto manager = make_manager();

    manager->delete_old_records();

    EXPECT_EQ(record_names(), QStringList{"ancient.score2"});
}

TEST_F(store_test, a_missing_record_folder_gives_empty_listings) {
    qApp->setProperty("start_time", QDateTime::currentDateTime());
    auto manager = make_manager();
    ASSERT_TRUE(QDir("keploinfo").removeRecursively());

    QStringList due, scores;
    EXPECT_EQ(manager->list_due_records(due), 0);
    manager->list_score_files(scores);
    manager->delete_old_records();
    EXPECT_TRUE(due.isEmpty());
    EXPECT_TRUE(scores.isEmpty());
}

// --- Score listing ---------------------------------------------------------

TEST_F(store_test, score_listing_appends_every_score_file_oldest_first_without_an_age_test) {
    const QString recent = write_record("recent.score2", QDateTime::currentDateTime(), "score");
    const QString old = write_record("old.score2", days_ago(90), "score");
    write_record("usage.info2", days_ago(90));
    auto manager = make_manager();

    QStringList listed{"first"};
    manager->list_score_files(listed);

    EXPECT_EQ(listed, (QStringList{"first", old, recent}));
    EXPECT_TRUE(logs_.contains("file=old.score2"));
    EXPECT_TRUE(logs_.contains("file=recent.score2"));
}

// --- Reading back ----------------------------------------------------------

TEST_F(store_test, a_record_reads_back_with_its_data_and_type) {
    const QByteArray json = u8"{\n    \"industry\": \"齿科\",\n    \"score\": 5\n}\n";
    const QString path = QFileInfo("keploinfo/r.score2").absoluteFilePath();
    auto manager = make_manager();
    api::write_record_file(path, json, "score");

    QString data, type;
    EXPECT_EQ(manager->read_record_file(path, data, type), 0);
    EXPECT_EQ(data, QString::fromUtf8(json));
    EXPECT_EQ(type, "score");
    EXPECT_TRUE(logs_.contains("type= \"score\""));
}

TEST_F(store_test, a_missing_record_gives_minus_one_and_leaves_the_outputs_alone) {
    auto manager = make_manager();
    const QString path = QFileInfo("keploinfo/missing.info2").absoluteFilePath();

    QString data = "untouched data", type = "untouched type";
    EXPECT_EQ(manager->read_record_file(path, data, type), -1);
    EXPECT_EQ(data, "untouched data");
    EXPECT_EQ(type, "untouched type");
    EXPECT_TRUE(logs_.contains("file not exist" + path.toStdString()));
}

TEST_F(store_test, record_files_are_plain_ini_files_both_ways) {
    auto manager = make_manager();
    const QByteArray json = "{\n    \"kind\": \"share\"\n}\n";

    const QString ours = QFileInfo("keploinfo/ours.info2").absoluteFilePath();
    api::write_record_file(ours, json, "share");
    const QSettings read_plainly(ours, QSettings::IniFormat);
    EXPECT_EQ(read_plainly.childKeys(), (QStringList{"data", "type"}));
    EXPECT_EQ(read_plainly.value("data").type(), QVariant::ByteArray);
    EXPECT_EQ(read_plainly.value("data").toByteArray(), json);
    EXPECT_EQ(read_plainly.value("type").toString(), "share");

    const QString theirs = QFileInfo("keploinfo/theirs.info2").absoluteFilePath();
    {
        QSettings written_plainly(theirs, QSettings::IniFormat);
        written_plainly.setValue("data", json);
        written_plainly.setValue("type", "feedback");
    }
    QString data, type;
    EXPECT_EQ(manager->read_record_file(theirs, data, type), 0);
    EXPECT_EQ(data, QString::fromUtf8(json));
    EXPECT_EQ(type, "feedback");
}

// --- Ten thousand records --------------------------------------------------

TEST_F(store_test, ten_thousand_records_are_listed_read_and_pruned) {
    const int total = 10000;
    const int old_count = total / 2;
    const QDateTime start = now_in_seconds();
    qApp->setProperty("start_time", start);

    // One written record copied; the modification times give a strict
    // order: the old half 40 days back, the young half 10 days back.
    auto manager = make_manager();
    const QString model = write_record("model.json", start);
    QString model_text, model_type;
    ASSERT_EQ(manager->read_record_file(model, model_text, model_type), 0);
    QByteArray model_bytes;
    {
        QFile model_file(model);
        ASSERT_TRUE(model_file.open(QIODevice::ReadOnly));
        model_bytes = model_file.readAll();
    }
    ASSERT_TRUE(QFile::remove(model));
    QStringList oldest_first;
    for (int i = 0; i < total; ++i) {
        const bool old = i < old_count;
        QFile copy(QString("keploinfo/%1.info2").arg(i, 5, 10, QChar('0')));
        ASSERT_TRUE(copy.open(QIODevice::WriteOnly));
        ASSERT_EQ(copy.write(model_bytes), model_bytes.size());
        // Out before the time is set, or closing would stamp the file again.
        ASSERT_TRUE(copy.flush());
        ASSERT_TRUE(copy.setFileTime(start.addDays(old ? -40 : -10).addSecs(i),
                                     QFileDevice::FileModificationTime));
        oldest_first.append(QFileInfo(copy).absoluteFilePath());
    }

    QStringList due;
    QElapsedTimer timer;
    timer.start();
    const int listed = manager->list_due_records(due);
    const qint64 listing_ms = timer.elapsed();
    std::cout << "list_due_records on " << total << " files: " << listing_ms << " ms" << std::endl;
    RecordProperty("list_due_records_ms", static_cast<int>(listing_ms));
    EXPECT_EQ(listed, total);
    EXPECT_EQ(due, oldest_first);

    int unreadable = 0;
    for (const QString& path : due) {
        QString data, type;
        if (manager->read_record_file(path, data, type) != 0 || data != model_text ||
            type != "usage")
            ++unreadable;
    }
    EXPECT_EQ(unreadable, 0);

    manager->delete_old_records();
    EXPECT_EQ(logs_.count("delete file "), old_count);
    QStringList left;
    EXPECT_EQ(manager->list_due_records(left), total - old_count);
    EXPECT_EQ(left, oldest_first.mid(old_count));
}

}  // namespace
}  // namespace test_support
