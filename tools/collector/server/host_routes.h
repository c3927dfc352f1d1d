#pragma once

#include <QString>
#include <QStringList>

#include "server/route_table.h"
#include "server/served_folder.h"
#include "storage/collector_database.h"

// What the collector accepts and where it keeps and finds its files.
struct collector_config {
    QStringList app_ids;                  // known values of "X-Auth-AppID"
    served_folder software;               // <software>/<id>/interface.json; unset: none
    served_folder files;                  // served under /files/; unset: none
    QString upload_dir;                   // where uploaded files are stored
    quint64 max_body = quint64(4) << 30;  // largest request body, in bytes
};

// Information uploads are held in memory and stored in one row: at most this
// much, or max_body when that is smaller.
const quint64 information_body_limit = 16 << 20;

// The application ids the library itself uses: test service, release service.
QStringList default_app_ids();

// The routes of the stand-in service:
//   POST <any path>            information upload, or file upload when the
//                              body is multipart/form-data
//   GET  /software/<id>/interface.json
//   GET  /files/<name>         installers, with their length
// The application id and the announced length are checked before any of a
// body is read; file uploads go to disk as they arrive.
class host_routes {
public:
    host_routes(collector_config config, collector_database& database);

    void install(route_table& routes);

    // One line describing a request that has been answered.
    static std::string describe(const http_request& req, const http_response& res);

private:
    class information_upload;
    class file_upload;

    bool refused_before_body(const http_request& req, http_response& res) const;
    quint64 body_limit(const http_request& req) const;
    void serve_descriptor(const http_request& req, http_response& res);
    void serve_file(const http_request& req, http_response& res);

    collector_config config_;
    collector_database& database_;
};
