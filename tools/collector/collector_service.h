#pragma once

#include <httplib.h>

#include <QString>
#include <QStringList>

#include "collector_database.h"

// What the collector accepts and where it keeps and finds its files.
struct collector_config {
    QStringList app_ids;   // known values of "X-Auth-AppID"
    QString software_dir;  // <software_dir>/<id>/interface.json; empty: none
    QString files_dir;     // served under /files/; empty: none
    QString upload_dir;    // where uploaded files are stored
};

// The application ids the library itself uses: test service, release service.
QStringList default_app_ids();

// The routes of the stand-in service, installed on an httplib server:
//   POST <any path>            information upload, or file upload when the
//                              body is multipart/form-data
//   GET  /software/<id>/interface.json
//   GET  /files/<name>         installers, with their length
// Service-level refusals are answered with HTTP 200 and "status":"failed",
// as the real service does, so that a host tells them from network errors.
class collector_service {
public:
    collector_service(collector_config config, collector_database& database);

    void install(httplib::Server& server);

    // One line describing a request that has been answered.
    static std::string describe(const httplib::Request& req, const httplib::Response& res);

private:
    void on_post(const httplib::Request& req, httplib::Response& res);
    void accept_information(const httplib::Request& req, httplib::Response& res);
    void accept_file(const httplib::Request& req, httplib::Response& res);
    void serve_descriptor(const httplib::Request& req, httplib::Response& res);
    void serve_file(const httplib::Request& req, httplib::Response& res);
    bool known_app_id(const std::string& app_id) const;

    collector_config config_;
    collector_database& database_;
};
