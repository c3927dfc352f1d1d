#pragma once

#include <QString>
#include <QStringList>

namespace uploader {

struct uploader_options {
    QString command = "upload";  // upload, descriptor, send-file, download, status
    QStringList arguments;       // the command's own arguments
    QString workdir;             // absolute
    bool force = false;
    bool dry_run = false;
    bool watch = false;
    int parallel = 8;
    bool verbose = false;
    // Overrides of the library's addresses; empty: the library's.
    QString upload_url;
    QString file_url;
    QString cdn_url;
    // download: what the file must be; empty / -1: not given.
    QByteArray sha256;  // 64 lowercase hex digits
    qint64 size = -1;
    // Verified TLS for every request; ca_file adds trusted certificates.
    bool verify_tls = false;
    QString ca_file;  // absolute
};

// Result of reading the command line.
struct parse_result {
    enum { run, help, bad } what = run;
    QString text;  // help text, or what is wrong followed by the usage
};

parse_result parse_command_line(const QStringList& arguments, uploader_options& out);

}  // namespace uploader
