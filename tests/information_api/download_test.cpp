// downLoadApp: through a temporary file beside the target, progress and the
// end on the worker thread, and the log lines of the download path. Every
// successful download holds the worker thread for two seconds before it
// reports, so each test completes as few as it can.
#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QTemporaryDir>
#include <algorithm>

#include "http/http_connector.h"
#include "library_host.h"

namespace test_support {
namespace {

// Bytes of every value in no repeating period, for a byte-exact transfer.
QByteArray sample_bytes(int size) {
    QByteArray bytes(size, '\0');
    quint32 x = 2463534242u;
    for (char& byte : bytes) x ^= x << 13, x ^= x >> 17, x ^= x << 5, byte = char(x);
    return bytes;
}

class download_test : public library_host {
protected:
    bool wait_for_received(qint64 size) const {
        return wait_until([&] {
            const auto progress = sink_.calls_of(kind::progress);
            return !progress.empty() && progress.back().received >= size;
        });
    }

    // Progress arrives on the worker thread, growing, with the toolkit's
    // total. When the size was unknown the toolkit closes with one report of
    // the received count as the total; every report before it carries -1.
    void expect_progress_up_to(qint64 size, qint64 total) const {
        auto progress = sink_.calls_of(kind::progress);
        ASSERT_FALSE(progress.empty());
        EXPECT_EQ(progress.back().received, size);
        if (total == -1 && progress.back().total == size) progress.pop_back();
        ASSERT_FALSE(progress.empty());
        qint64 previous = -1;
        for (const call& p : progress) {
            EXPECT_EQ(p.thread, worker());
            EXPECT_EQ(p.total, total);
            EXPECT_GE(p.received, previous);
            previous = p.received;
        }
    }

    void expect_finished(std::size_t count) const {
        const auto finished = sink_.calls_of(kind::finished);
        ASSERT_EQ(finished.size(), count);
        const call& end = finished.back();
        EXPECT_EQ(std::make_tuple(end.ok, end.state, end.net_error, end.thread),
                  std::make_tuple(true, 0, 0, worker()));
        EXPECT_TRUE(sink_.responses().empty()) << "downloads never use on_response";
    }

    recording_sink big_sink_;  // a second download's
};

TEST_F(download_test, a_setup_file_lands_byte_exact_after_the_pause) {
    const QByteArray content = sample_bytes(12 * 1024 * 1024);
    server_.answer("/app/setup.exe", content.toStdString(), "application/octet-stream");
    server_.start();
    const QString target = QDir::current().filePath("installer/setup.exe");
    const QString temp = QDir::current().filePath("installer/setup.temp");
    write_file(target, "an older installer");

    QElapsedTimer since_start;
    since_start.start();
    EXPECT_EQ(api::downLoadApp(41, &sink_, server_.url("/app/setup.exe"), target), 0);

    // Everything has arrived and sits in the temporary file during the pause.
    ASSERT_TRUE(wait_for_received(content.size()));
    EXPECT_FALSE(QFile::exists(target));
    EXPECT_EQ(QFileInfo(temp).size(), content.size());
    ASSERT_TRUE(sink_.wait_for(kind::finished, 1));
    EXPECT_GE(since_start.elapsed(), 2000) << "reported only after the pause";
    expect_finished(1);
    expect_progress_up_to(content.size(), content.size());
    EXPECT_TRUE(read_all(target) == content) << "target differs from the served file";
    EXPECT_FALSE(QFile::exists(temp));

    // The lines of the download's path.
    const std::string method = "TarvoConsumerScanner::information_api::http_connector::";
    for (const std::string& line :
         {method + "downloadAppFile downloadUrl  :  " + server_.url("/app/setup.exe").toStdString(),
          method + "downloadAppFile fileNamePath :  " + target.toStdString(),
          method + "downloadAppFile remove ret :  true",
          method + "slot_onDownLoadFileDownloadProgressrecive : ",
          method + "slot_onDownLoadFileDownloadProgresstotal  : ",
          method + "slot_onDownLoadFileReadyRead " + temp.toStdString(),
          std::string("reply_->error()= NoError"), std::string(" ;rename ret :  true")})
        EXPECT_TRUE(logs_.contains(line)) << line;
    EXPECT_EQ(logs_.count("downloadAppFile reply_ = "), 2) << "glog and the debug stream";
    const auto lines = logs_.lines();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const auto& l) {
        return l.text == method + "slot_onDownLoadFileFinished";
    })) << "the end's own line, the method's name alone";
}

// Data waits in the reply while the temporary file cannot be opened, beyond
// the bound the reply holds otherwise, and up to 16 MiB, where the download
// is given up; a chunked ".zip" target goes through a ".temp" of its own name
// and reports a total of -1.
TEST_F(download_test, data_waits_while_the_temp_file_cannot_be_opened_up_to_16_mib) {
    const QByteArray content = sample_bytes(7 * 1024 * 1024);
    server_.answer_chunked("/app/update.zip", content.toStdString(), 256 * 1024, 25);
    server_.answer_chunked("/big.exe", std::string(24 << 20, 'x'), 1 << 20, 0);
    server_.start();
    const QString target = QDir::current().filePath("update.zip");
    const QString temp = QDir::current().filePath("update.temp");
    const QString big_temp = QDir::current().filePath("big.temp");
    for (const QString& folder : {temp, big_temp})
        ASSERT_TRUE(QDir().mkpath(folder)) << "a folder in the way: the file cannot be opened";

    api::downLoadApp(60, &big_sink_, server_.url("/big.exe"), QDir::current().filePath("big.exe"));
    ASSERT_TRUE(wait_until([&] { return logs_.contains("reply->errorString()="); }));
    EXPECT_TRUE(logs_.contains("download given up: " + big_temp.toStdString()));
    EXPECT_TRUE(logs_.contains("reply_->error()= OperationCanceledError"));
    EXPECT_TRUE(QFileInfo(big_temp).isDir());

    EXPECT_EQ(api::downLoadApp(45, &sink_, server_.url("/app/update.zip"), target), 0);
    EXPECT_TRUE(logs_.contains("remove ret :  false"));
    ASSERT_TRUE(wait_for_received(5 * 1024 * 1024));
    EXPECT_TRUE(QFileInfo(temp).isDir()) << "nothing could be written yet";
    ASSERT_TRUE(QDir(temp).removeRecursively());

    ASSERT_TRUE(sink_.wait_for(kind::finished, 1));
    expect_finished(1);
    expect_progress_up_to(content.size(), -1);
    EXPECT_TRUE(read_all(target) == content) << "data held back in the reply was lost";
    EXPECT_FALSE(QFile::exists(temp));
    EXPECT_EQ(big_sink_.count(kind::finished), 0u) << "a failed download is only logged";
}

// A failed download is only logged (a certificate refused under verified TLS
// with its errors) and leaves its temporary file, which the next attempt at
// the same target continues; an ".msi" target is cut as any other.
TEST_F(download_test, a_failure_is_only_logged_and_its_leftover_is_continued) {
    server_.answer("/missing/a.msi", "not here", "text/plain", 404);
    server_.answer("/full/a.msi", "installer", "application/octet-stream");
    server_.start();
    QTemporaryDir folder;
    local_server self_signed(make_self_signed_certificate(folder.path().toStdString()));
    self_signed.answer("/a.msi", "installer", "application/octet-stream");
    self_signed.start();
    const QString target = QDir::current().filePath("a.msi");
    const QString temp = QDir::current().filePath("a.temp");

    EXPECT_EQ(api::downLoadApp(50, &sink_, unreachable_url("/a.msi"), target), 0);
    EXPECT_EQ(api::downLoadApp(51, &sink_, server_.url("/missing/a.msi"), target), 0);
    qputenv("INFORMATION_API_VERIFY_TLS", "1");
    EXPECT_EQ(api::downLoadApp(53, &sink_, self_signed.url("/a.msi"), target), 0);
    ASSERT_TRUE(wait_until([&] { return logs_.count("reply->errorString()=") == 3; }));
    EXPECT_TRUE(logs_.contains("networkError= ConnectionRefusedError"));
    EXPECT_TRUE(logs_.contains("reply_->error()= ContentNotFoundError"));
    EXPECT_TRUE(logs_.contains(
        "TarvoConsumerScanner::information_api::http_connector::slot_onDownLoadFileSSLError "
        "sslErrors= ("));
    ASSERT_TRUE(worker_caught_up(worker())) << "both ends of a download have been handled";
    EXPECT_EQ(sink_.count(kind::finished), 0u) << "a failure is only logged";
    EXPECT_FALSE(QFile::exists(target));
    EXPECT_EQ(read_all(temp), "not here");

    EXPECT_EQ(api::downLoadApp(52, &sink_, server_.url("/full/a.msi"), target), 0);
    ASSERT_TRUE(sink_.wait_for(kind::finished, 1));
    expect_finished(1);
    EXPECT_EQ(read_all(target), "not hereinstaller") << "the leftover was not continued";
    EXPECT_FALSE(QFile::exists(temp));
}

// replyDownload, which nothing connects, writes a whole reply at once; a
// reply with an error is reported with state 7, which rt() keeps.
TEST_F(download_test, a_whole_reply_handed_over_with_an_error_is_reported) {
    server_.answer("/missing.exe", "not here", "text/plain", 404);
    server_.start();
    QNetworkAccessManager manager;
    QNetworkReply* reply = manager.get(QNetworkRequest(QUrl(server_.url("/missing.exe"))));
    ASSERT_TRUE(wait_until([&] { return reply->isFinished(); }));
    TarvoConsumerScanner::information_api::http_connector connector(70, &sink_, nullptr);
    connector.replyDownload(reply);
    const auto finished = sink_.calls_of(kind::finished);
    ASSERT_EQ(finished.size(), 1u);
    EXPECT_EQ(
        std::make_tuple(finished[0].ok, finished[0].state, finished[0].net_error, connector.rt()),
        std::make_tuple(false, 7, int(QNetworkReply::ContentNotFoundError), 7));
}

}  // namespace
}  // namespace test_support
