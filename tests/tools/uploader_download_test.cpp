// information_uploader download: PATH ends as the verified installer or
// exactly as it was, whatever the server sends, the disk does or the user
// left behind, and the message says why.
#include <QCryptographicHash>
#include <QTemporaryDir>
#include <memory>

#include "local_server.h"
#include "uploader_fixture.h"

namespace {

struct download_row {
    QString url;
    QStringList options;
    const char* target;  // in the row's own folder; one under "small-disk/" may be 1 MiB at most
    int exit_code;       // 0: PATH holds the installer; 1: PATH keeps its former content
    QString message;
};

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
    for (test_support::local_server* server : {&plain, &secure})
        server->answer("/setup.exe", installer, "application/octet-stream");
    plain.answer_json("/missing", R"({"status":"failed","result":"not found"})", 404);
    plain.answer_truncated("/cut", installer, installer.size() / 2);
    plain.answer_chunked("/unsized", installer, installer.size() / 4, 250);
    // No length announced, and closed after half, which then looks like the
    // end; a quarter at a time, with pauses after which the toolkit reports
    // the size as unknown.
    plain.on_get("/unsized-cut", [&](const httplib::Request&, httplib::Response& res) {
        res.set_content_provider(
            "application/octet-stream", [&](size_t offset, httplib::DataSink& sink) {
                if (offset > 0) std::this_thread::sleep_for(std::chrono::milliseconds(250));
                return offset < installer.size() / 2 &&
                       sink.write(installer.data() + offset, installer.size() / 4);
            });
    });
    plain.start();
    secure.start();
    // A connect time of 12 s: the watchdog waits that long, longer than a busy machine (all
    // rows at once, under a sanitizer on two cores) pauses.
    configure(1, 12, "");
    // With a CA file each connection builds its trust store from the whole system store:
    // about 0.1 s, but seconds under the sanitizer's full-stack allocation tracking.
    const QString patient = host + "-patient";
    tool_test::write_system_ini(patient, 1, 60);

    const QStringList checked{"--sha256", sha, "--size", size};
    const QString exe = plain.url("/setup.exe"), tls_exe = secure.url("/setup.exe");
    // clang-format off
    const download_row rows[] = {
        {exe, checked, "setup.exe", 0, "SHA-256 verified"},
        {exe, {}, "setup.exe", 0, QString("download: %1 of %1 bytes (100%)").arg(size)},
        {exe, {"--sha256", QString(64, '0')}, "setup.exe", 1, "SHA-256 mismatch"},
        {exe, {"--size", "3"}, "setup.exe", 1, "the server announced " + size + " bytes, --size says 3"},
        {plain.url("/missing"), checked, "setup.exe", 1, "the server refused the download: not found"},
        // The toolkit reports a cut either as an error, which leaves the end to
        // the watchdog ("no data ... after N bytes"), or as an end ("the file has N bytes").
        {plain.url("/cut"), {}, "setup.exe", 1, "1048576 bytes"},
        {plain.url("/unsized-cut"), {}, "setup.exe", 1, "the server announced no size"},
        {plain.url("/unsized-cut"), {"--size", size}, "setup.exe", 1, "the file has 1048576 bytes, " + size + " expected"},
        {plain.url("/unsized"), {"--sha256", sha}, "setup.exe", 0, "SHA-256 verified"},
        {exe, {}, "small-disk/setup.exe", 1, "write error: only 1048576 of the " + size + " bytes received reached the disk"},
        {exe, checked, "y1/ab", 0, "SHA-256 verified"},
        {tls_exe, {}, "setup.exe", 0, "download: saved"},
        {tls_exe, {"--verify-tls"}, "setup.exe", 1, "no data from " + tls_exe + " for 12 s after 0 bytes (network error, silent server or a server certificate that is not trusted)"},
        // Verbose: should the handshake fail, the library's TLS errors show in the report.
        {tls_exe, {"--ca-file", QString::fromStdString(tls.certificate), "--verbose", "--workdir", patient}, "setup.exe", 0, "download: saved"},
    };
    // clang-format on
    // Every row runs at once.
    std::vector<std::unique_ptr<tool_test::running_tool>> runs;
    for (const download_row& row : rows) {
        // The installer of a former version in place, and the leftovers of
        // an interrupted run beside it.
        const QFileInfo target(QString("dl%1/%2").arg(runs.size()).arg(row.target));
        tool_test::write_text(target.filePath(), "former installer");
        for (const char* leftover : {".temp", ".new"})
            tool_test::write_text(target.absolutePath() + "/." + target.fileName() + leftover,
                                  QByteArray(1 << 20, 'x'));
        const QString shell =
            QString("ulimit -f %1 && trap '' XFSZ && exec \"$0\" \"$@\"")
                .arg(target.filePath().contains("small-disk") ? "1024" : "unlimited");
        const QStringList arguments{"-c",        shell,   INFORMATION_UPLOADER_PATH,
                                    "download",  row.url, target.absoluteFilePath(),
                                    "--workdir", host};
        runs.emplace_back(new tool_test::running_tool("/bin/bash", arguments + row.options));
    }
    auto entries = [](const QString& folder) {
        return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    };
    for (size_t i = 0; i < runs.size(); ++i) {
        const download_row& row = rows[i];
        const auto result = runs[i]->stop(0, 90000);
        SCOPED_TRACE(i);
        EXPECT_TRUE(ended(result, row.exit_code, {row.message}));
        EXPECT_EQ((result.out + result.err).contains(" is unchanged"), row.exit_code != 0);
        const QString folder = QString("dl%1").arg(i);
        QFile target(folder + "/" + row.target);
        EXPECT_TRUE(target.open(QIODevice::ReadOnly) &&
                    target.readAll() == (row.exit_code == 0 ? bytes : "former installer"));
        // No staging file, lock or temporary file is left, beside PATH or above.
        const QFileInfo path(target);
        EXPECT_EQ(entries(path.absolutePath()), QStringList{path.fileName()});
        EXPECT_EQ(entries(folder), QStringList{QString(row.target).section('/', 0, 0)});
    }
}

}  // namespace
