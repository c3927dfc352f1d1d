#pragma once

#include <QProcess>
#include <QString>
#include <atomic>
#include <memory>
#include <thread>

namespace httplib {
class Server;
}

namespace bench {

// information_collector on a free loopback port, its database and uploads
// in folder, its request lines in folder/collector.log.
class collector_server {
public:
    collector_server(const QString& program, const QString& folder);
    ~collector_server();
    QString url() const { return url_; }

private:
    QProcess process_;
    QString url_;
};

// Serves a large file for downloads, and takes multipart uploads (counting
// the bytes, storing nothing). The file comes from nginx when it is
// installed, else from a small cpp-httplib server in this process, which
// takes the uploads in any case.
class transfer_server {
public:
    transfer_server(const QString& folder, qint64 file_size);
    ~transfer_server();
    QString download_url() const { return download_url_; }
    QString upload_url() const { return upload_url_; }
    // "nginx" or "cpp-httplib".
    QString download_server() const { return nginx_port_ ? "nginx" : "cpp-httplib"; }

private:
    // The port nginx listens on, 0 when it is not installed or did not start.
    int start_nginx(const QString& folder, qint64 file_size);

    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    QProcess nginx_;
    QString download_url_;
    QString upload_url_;
    int nginx_port_ = 0;
};

}  // namespace bench
