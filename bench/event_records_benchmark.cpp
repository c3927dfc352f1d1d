// Measurements, run by hand (not part of the test suites): the time of a
// session start with its machine probes, the time to record one event of each
// kind, and 10,000 scans leaving 10,000 readable files.
//
//   event_records_benchmark [--gtest_filter=...]
//
// Each measurement runs in the manager's own working folder, on whatever disk
// the temporary folder lies on; the figures are printed.
#include <glog/logging.h>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>
#include <vector>

#include "manager_fixture.h"
#include "windows_information_imp/record_file.h"

namespace test_support {
namespace {

using api::scan_description_t;

scan_description_t sample_scan(int index) {
    scan_description_t scan;
    scan.module_file = "scan-abcR550.ple";
    scan.model_name = "KS-400";
    scan.steps = {{"s0", "e0", "fixed", "16", "on", {"marker", "feature"}, "turntable"},
                  {"s1", "e1", "handheld", "0", "off", {}, "handheld"}};
    scan.total_points = "1234567";
    scan.file_name = QString("scan-%1").arg(index);
    scan.modular_files = QStringList{"T.ple", "", "H.ple"};
    return scan;
}

// Sleeps into the next millisecond, so that the next scan gets a name of its
// own. Sleeping rather than spinning keeps the scheduler from charging the
// wait to the timed call that follows.
void next_millisecond() {
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    while (QDateTime::currentMSecsSinceEpoch() == now)
        std::this_thread::sleep_for(std::chrono::microseconds(200));
}

struct summary {
    double mean_ms, median_ms, p95_ms, max_ms;
};

summary summarise(std::vector<qint64> nanoseconds) {
    std::sort(nanoseconds.begin(), nanoseconds.end());
    double total = 0;
    for (qint64 n : nanoseconds) total += n;
    const auto at = [&](double q) {
        return nanoseconds[std::min(nanoseconds.size() - 1, size_t(q * nanoseconds.size()))] / 1e6;
    };
    return {total / nanoseconds.size() / 1e6, at(0.5), at(0.95), nanoseconds.back() / 1e6};
}

void print(const char* what, const summary& s) {
    std::fprintf(stderr, "%-34s mean %.3f ms  median %.3f ms  p95 %.3f ms  max %.3f ms\n", what,
                 s.mean_ms, s.median_ms, s.p95_ms, s.max_ms);
}

class event_records_benchmark : public manager_test {
protected:
    void SetUp() override {
        manager_test::SetUp();
        // A session record as a probed machine and a host leave it.
        QCoreApplication::setApplicationName("scanner");
        manager_ = std::make_unique<windows_information_imp>();
        manager_->model_name = "KS-100";
        manager_->software_version = "3.1.4";
        manager_->modular_name = "turntable";
        manager_->modular_files = QStringList{"A.ple", "B.ple"};
        // Log lines go to stderr as in the tests; the host's glog setup decides
        // that, so keep it out of what is measured here.
        FLAGS_logtostderr = false;
        FLAGS_minloglevel = google::GLOG_WARNING;
    }
    void TearDown() override {
        FLAGS_minloglevel = google::GLOG_INFO;
        FLAGS_logtostderr = true;
        manager_test::TearDown();
    }

    // Times record once per round into an empty record folder (emptied
    // outside the timed part), so every call writes a new file.
    summary time_new_files(const std::function<void()>& record, int rounds = 500) {
        std::vector<qint64> nanoseconds;
        QElapsedTimer timer;
        for (int i = 0; i < rounds; ++i) {
            for (const QString& name : record_names()) QFile::remove("keploinfo/" + name);
            timer.start();
            record();
            nanoseconds.push_back(timer.nsecsElapsed());
        }
        return summarise(nanoseconds);
    }
};

TEST_F(event_records_benchmark, session_start_with_the_machine_probes) {
    // The first start of a process also makes the desktop widget.
    std::vector<qint64> nanoseconds;
    QElapsedTimer timer;
    for (int i = 0; i < 21; ++i) {
        timer.start();
        { windows_information_imp session; }
        nanoseconds.push_back(timer.nsecsElapsed());
    }
    std::fprintf(stderr, "first session start: %.3f ms\n", nanoseconds.front() / 1e6);
    nanoseconds.erase(nanoseconds.begin());
    print("session start, later", summarise(nanoseconds));
}

// The record store over 10,000 records: half of them 40 days old, half 10.
TEST_F(event_records_benchmark, record_store_over_ten_thousand_records) {
    const int total = 10000;
    const QDateTime start = QDateTime::currentDateTime();
    qApp->setProperty("start_time", start);
    QStringList oldest_first;
    for (int i = 0; i < total; ++i) {
        const QString name = QString("keploinfo/%1.").arg(i, 5, 10, QChar('0'));
        for (const char* extension : {"info2", "score2"}) {
            QFile file(name + extension);
            ASSERT_TRUE(file.open(QIODevice::WriteOnly));
            file.write("[General]\ntype=usage\ndata=@ByteArray({})\n");
            file.flush();
            file.setFileTime(start.addDays(i < total / 2 ? -40 : -10).addSecs(i),
                             QFileDevice::FileModificationTime);
        }
        oldest_first << QFileInfo(name + "info2").absoluteFilePath();
    }
    const auto best_of = [](int runs, const std::function<void()>& work) {
        std::vector<qint64> nanoseconds;
        QElapsedTimer timer;
        for (int i = 0; i < runs; ++i) {
            timer.start();
            work();
            nanoseconds.push_back(timer.nsecsElapsed());
        }
        return summarise(nanoseconds);
    };
    QStringList due;
    print("list_due_records, 10,000 due", best_of(7, [&] {
              due.clear();
              manager_->list_due_records(due);
          }));
    EXPECT_EQ(due, oldest_first);
    QStringList scores;
    print("list_score_files, 10,000", best_of(7, [&] {
              scores.clear();
              manager_->list_score_files(scores);
          }));
    EXPECT_EQ(scores.size(), total);
    print("delete_old_records, 5,000 of 10,000",
          best_of(1, [&] { manager_->delete_old_records(); }));
    print("delete_old_records, none of 5,000", best_of(7, [&] { manager_->delete_old_records(); }));
    due.clear();
    EXPECT_EQ(manager_->list_due_records(due), total / 2);
}

TEST_F(event_records_benchmark, one_event_of_each_kind) {
    int n = 0;
    print("scan", time_new_files([&] { manager_->record_scan(sample_scan(n++), 1); }));
    print("share", time_new_files([&] {
              manager_->record_share("s.ple", "KS", "turntable", "a", "b", "wechat", "bust.ply",
                                     "user@example.com", 1);
          }));
    print("calibration", time_new_files([&] {
              manager_->record_calibration({"m", "n"}, "2.0", "c.ple", "KS", "turntable", {"T.ple"},
                                           "s", "e", {"plane", "sphere"}, {"s1", "s2"},
                                           {"e1", "e2"}, {"pass", "pass"}, 1);
          }));
    print("score", time_new_files([&] {
              manager_->record_score("87", "KS-abcR550.ple", "2.0", "KS", "turntable", "dental", 1);
          }));
    print("feedback", time_new_files([&] {
              manager_->record_feedback("KS-abcR550.ple", "2.0", "KS", "turntable", {"T.ple"}, 1,
                                        "user@example.com", "dental", "text", {"a.log", "b.png"});
          }));
    manager_->start_time = QDateTime::currentDateTime();
    print("usage (create_usage_info)",
          time_new_files([&] { manager_->create_usage_info("u.ple", "2.0", "KS", "X", 1); }));

    // Where the time of one record goes.
    std::vector<qint64> build, write;
    QElapsedTimer timer;
    for (int i = 0; i < 500; ++i) {
        timer.start();
        QJsonObject document;
        manager_->build_usage_document(document);
        const QByteArray json = QJsonDocument(document).toJson();
        build.push_back(timer.nsecsElapsed());
        QFile::remove("keploinfo/part.info2");
        timer.start();
        TarvoConsumerScanner::information_api::write_record_file("./keploinfo/part.info2", json,
                                                                 "scan");
        write.push_back(timer.nsecsElapsed());
    }
    print("  of which: document and JSON", summarise(build));
    print("  of which: INI file write", summarise(write));
}

TEST_F(event_records_benchmark, ten_thousand_scans_leave_ten_thousand_readable_files) {
    const int count = 10000;
    std::vector<qint64> nanoseconds;
    QElapsedTimer timer;
    for (int i = 0; i < count; ++i) {
        next_millisecond();
        timer.start();
        manager_->record_scan(sample_scan(i), 1);
        nanoseconds.push_back(timer.nsecsElapsed());
    }
    print("scan, 10,000 in distinct ms", summarise(nanoseconds));

    const QStringList names = record_names();
    std::fprintf(stderr, "files: %d\n", int(names.size()));
    EXPECT_EQ(names.size(), count);

    // Read every file back as the uploader does and find each scan once.
    QSet<QString> scans;
    int unreadable = 0;
    timer.start();
    for (const QString& name : names) {
        QString data, type;
        const int found = manager_->read_record_file("./keploinfo/" + name, data, type);
        const QJsonObject document = QJsonDocument::fromJson(data.toUtf8()).object();
        if (found != 0 || type != "scan" || document["tracingType"] != QJsonValue("scan")) {
            ++unreadable;
            continue;
        }
        scans.insert(document["content"].toObject()["fileName"].toString());
    }
    std::fprintf(stderr, "read back: %d records in %.0f ms, %d unreadable, %d distinct scans\n",
                 int(names.size()), timer.nsecsElapsed() / 1e6, unreadable, int(scans.size()));
    EXPECT_EQ(unreadable, 0);
    EXPECT_EQ(scans.size(), count);
}

TEST_F(event_records_benchmark, scans_back_to_back_collapse_within_a_millisecond) {
    // Without waiting, scans that fall in one millisecond share a file: the
    // distinct files are fewer than the scans.
    const int count = 10000;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < count; ++i) manager_->record_scan(sample_scan(i), 1);
    const double total_ms = timer.nsecsElapsed() / 1e6;
    std::fprintf(stderr, "scan, %d back to back: %.0f ms (%.3f ms each), %d distinct files\n",
                 count, total_ms, total_ms / count, int(record_names().size()));
    EXPECT_GT(record_names().size(), 0);
}

}  // namespace
}  // namespace test_support
