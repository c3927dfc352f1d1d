// information_uploader download: PATH ends as the verified installer or
// exactly as it was, whatever the server sends, the disk does or the user
// left behind, and the message says why.
#include <QCryptographicHash>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <memory>

#include "local_server.h"
#include "uploader_fixture.h"

namespace {

struct download_row {
    const char* source;  // on the server
    bool tls;
    QStringList options;
    const char* target;  // in the row's own folder
    bool small_disk;
    int exit_code;  // 0: PATH holds the installer; 1: PATH keeps its former content
    QString message;
};

// Sends content with no length announced: a quarter, a pause (so that the
// toolkit reports the size as unknown), a quarter, then the rest or, when
// cut, a closed connection, which without a length looks like the end.
httplib::Server::Handler unsized(const std::string& content, bool cut) {
    return [&content, cut](const httplib::Request&, httplib::Response& res) {
        res.set_content_provider(
            "application/octet-stream", [&content, cut](size_t offset, httplib::DataSink& sink) {
                const size_t half = content.size() / 2;
                if (offset >= half && cut) return false;
                if (offset > 0) std::this_thread::sleep_for(std::chrono::milliseconds(250));
                sink.write(content.data() + offset,
                           offset < half ? half / 2 : content.size() - offset);
                if (offset >= half) sink.done();
                return true;
            });
    };
}

class uploader_download : public uploader_test {};

TEST_F(uploader_download, path_is_replaced_only_by_a_whole_verified_file) {
    std::string installer(2 * 1024 * 1024, '\0');
    for (size_t i = 0; i < installer.size(); ++i) installer[i] = char(i * 7 + i / 4096);
    const QByteArray bytes = QByteArray::fromStdString(installer);
    const QString sha = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
    const QString size = QString::number(bytes.size());
    QTemporaryDir certificate_folder;
    const auto tls =
        test_support::make_self_signed_certificate(certificate_folder.path().toStdString());
    test_support::local_server plain, secure(tls);
    for (test_support::local_server* server : {&plain, &secure}) {
        server->answer("/setup.exe", installer, "application/octet-stream");
        // Every row runs at once; none may wait for a free server thread.
        server->server().new_task_queue = [] { return new httplib::ThreadPool(32); };
    }
    plain.answer_json("/missing", R"({"status":"failed","result":"not found"})", 404);
    plain.answer_truncated("/cut", installer, installer.size() / 2);
    plain.on_get("/unsized", unsized(installer, false));
    plain.on_get("/unsized-cut", unsized(installer, true));
    plain.start();
    secure.start();
    // A connect time of 4 s: the watchdog waits that long, longer than a busy machine pauses.
    configure(1, 4, "");

    const QStringList checked{"--sha256", sha, "--size", size};
    // clang-format off
    const download_row rows[] = {
        {"/setup.exe", false, checked, "setup.exe", false, 0, "SHA-256 verified"},
        {"/setup.exe", false, {}, "setup.exe", false, 0, QString("download: %1 of %1 bytes (100%)").arg(size)},
        {"/setup.exe", false, {"--sha256", QString(64, '0')}, "setup.exe", false, 1, "SHA-256 mismatch"},
        {"/setup.exe", false, {"--size", "3"}, "setup.exe", false, 1, "the server announced " + size + " bytes, --size says 3"},
        {"/missing", false, checked, "setup.exe", false, 1, "the server refused the download: not found"},
        {"/cut", false, {}, "setup.exe", false, 1, "no data from"},
        {"/unsized-cut", false, {}, "setup.exe", false, 1, "the server announced no size"},
        {"/unsized-cut", false, {"--size", size}, "setup.exe", false, 1, QString("the file has %1 bytes, %2 expected").arg(bytes.size() / 2).arg(size)},
        {"/unsized", false, {"--sha256", sha}, "setup.exe", false, 0, "SHA-256 verified"},
        {"/setup.exe", false, {}, "setup.exe", true, 1, "write error: only 1048576 of the " + size + " bytes received reached the disk"},
        {"/setup.exe", false, checked, "y1/ab", false, 0, "SHA-256 verified"},
        {"/setup.exe", true, {}, "setup.exe", false, 0, "download: saved"},
        {"/setup.exe", true, {"--verify-tls"}, "setup.exe", false, 1, "a server certificate that is not trusted"},
        {"/setup.exe", true, {"--ca-file", QString::fromStdString(tls.certificate)}, "setup.exe", false, 0, "download: saved"},
    };
    // clang-format on
    std::vector<std::unique_ptr<QProcess>> runs;
    for (const download_row& row : rows) {
        // The installer of a former version in place, and the leftovers of
        // an interrupted run beside it.
        const QFileInfo target(QString("dl%1/%2").arg(runs.size()).arg(row.target));
        QDir().mkpath(target.absolutePath());
        tool_test::write_text(target.filePath(), "former installer");
        for (const char* leftover : {".temp", ".new"})
            tool_test::write_text(target.absolutePath() + "/." + target.fileName() + leftover,
                                  QByteArray(1 << 20, 'x'));
        // A small disk: files of at most 1 MiB, writes beyond fail.
        const QString shell = QString("ulimit -f %1 && trap '' XFSZ && exec \"$0\" \"$@\"")
                                  .arg(row.small_disk ? "1024" : "unlimited");
        runs.emplace_back(new QProcess);
        runs.back()->start("/bin/bash",
                           QStringList{"-c", shell, INFORMATION_UPLOADER_PATH, "download",
                                       (row.tls ? secure : plain).url(row.source),
                                       target.absoluteFilePath(), "--workdir", host} +
                               row.options);
    }
    auto entries = [](const QString& folder) {
        return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    };
    for (size_t i = 0; i < runs.size(); ++i) {
        const download_row& row = rows[i];
        ASSERT_TRUE(runs[i]->waitForFinished(30000));
        const QString output = runs[i]->readAllStandardOutput() + runs[i]->readAllStandardError();
        SCOPED_TRACE(QString("row %1: %2\n").arg(i).arg(output).toStdString());
        EXPECT_EQ(runs[i]->exitCode(), row.exit_code);
        EXPECT_TRUE(holds_all(output, {row.message}));
        EXPECT_EQ(output.contains(" is unchanged"), row.exit_code != 0);
        const QString folder = QString("dl%1").arg(i);
        QFile target(folder + "/" + row.target);
        ASSERT_TRUE(target.open(QIODevice::ReadOnly));
        EXPECT_TRUE(target.readAll() == (row.exit_code == 0 ? bytes : "former installer"));
        // No staging file, lock or temporary file is left, beside PATH or above.
        const QFileInfo path(target);
        EXPECT_EQ(entries(path.absolutePath()), QStringList{path.fileName()});
        EXPECT_EQ(entries(folder), QStringList{QString(row.target).section('/', 0, 0)});
    }
}

}  // namespace
