#pragma once

#include <QByteArray>
#include <map>
#include <string>

#include "dashboard/dashboard_queries.h"
#include "server/route_table.h"
#include "server/served_folder.h"

// The dashboard: one page (GET /) with its script, style and Chart.js, all
// compiled into the collector, and the JSON answers behind it:
//   GET /api/summary, /api/distributions, /api/records, /api/feedback,
//       /api/files        each with the filter ?since=&until=&type=&app=
//   GET /api/records/<id> the record's JSON as posted
//   GET /dashboard/uploads/<stored name>  an uploaded file, as a download
// The page puts every text of a record into the document as text, never as
// markup, and its Content-Security-Policy allows no script but its own.
class dashboard_routes {
public:
    dashboard_routes(dashboard_queries& queries, const QString& upload_dir);

    void install(route_table& routes);

    // Whether a request is the page's own polling, answered as expected: the
    // collector prints no line for these.
    static bool is_routine(const http_request& req, const http_response& res);

private:
    struct asset {
        QByteArray content;
        const char* type;
    };
    void serve_asset(const std::string& name, http_response& res) const;
    void serve_upload(const http_request& req, http_response& res) const;

    dashboard_queries& queries_;
    served_folder uploads_;
    std::map<std::string, asset> assets_;
};
