#include "dashboard/dashboard_routes.h"

#include <QFile>
#include <QJsonDocument>
#include <QUrl>
#include <functional>

#include "server/json_answer.h"

namespace {

using Request = http_request;
using Response = http_response;

// Scripts, styles and pictures from the collector only; nothing inline, no
// frames, no forms sent anywhere.
const char* const content_policy =
    "default-src 'self'; img-src 'self' data:; object-src 'none'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'none'";

void harden(Response& res) {
    res.set_header("Content-Security-Policy", content_policy);
    res.set_header("X-Content-Type-Options", "nosniff");
    res.set_header("Referrer-Policy", "no-referrer");
    res.set_header("Cache-Control", "no-store");
}

QString param(const Request& req, const char* key) {
    return QString::fromStdString(req.get_param_value(key));
}

int number_param(const Request& req, const char* key, int fallback, int low, int high) {
    bool ok = false;
    const int value = param(req, key).toInt(&ok);
    return ok ? qBound(low, value, high) : fallback;
}

dashboard_filter filter_of(const Request& req) {
    return {param(req, "since"), param(req, "until"), param(req, "type"), param(req, "app")};
}

}  // namespace

dashboard_routes::dashboard_routes(dashboard_queries& queries, const QString& upload_dir)
    : queries_(queries), uploads_(upload_dir) {
    const std::pair<const char*, const char*> files[] = {
        {"index.html", "text/html;charset=utf-8"},
        {"dashboard.js", "text/javascript;charset=utf-8"},
        {"dashboard.css", "text/css;charset=utf-8"},
        {"chart.min.js", "text/javascript;charset=utf-8"}};
    for (const auto& file : files) {
        QFile resource(QString(":/dashboard/") + file.first);
        // Only Chart.js may be left out of the resources: then it is Debian's.
        if (!resource.exists()) resource.setFileName(INFORMATION_COLLECTOR_CHART_JS);
        resource.open(QIODevice::ReadOnly);
        assets_[file.first] = {resource.readAll(), file.second};
    }
}

void dashboard_routes::install(route_table& routes) {
    routes.get("/", [this](const Request&, Response& res) { serve_asset("index.html", res); });
    routes.get(R"(/dashboard/([a-z.]+))",
               [this](const Request& req, Response& res) { serve_asset(req.matches.at(1), res); });
    routes.get(R"(/dashboard/uploads/(.+))",
               [this](const Request& req, Response& res) { serve_upload(req, res); });
    // Each answer as JSON; a database failure as a failed answer.
    const auto json = [](const std::function<QJsonObject(const Request&)>& make) {
        return [make](const Request& req, Response& res) {
            try {
                const QJsonObject answer = make(req);
                res.set_content(QJsonDocument(answer).toJson(QJsonDocument::Compact).toStdString(),
                                "application/json;charset=utf-8");
            } catch (const database_error& e) {
                answer_failed(res, QString("could not read the database: ") + e.what(), 500);
            }
            harden(res);
        };
    };
    routes.get("/api/summary",
               json([this](const Request& req) { return queries_.summary(filter_of(req)); }));
    routes.get("/api/distributions",
               json([this](const Request& req) { return queries_.distributions(filter_of(req)); }));
    routes.get("/api/records", json([this](const Request& req) {
                   return queries_.records(filter_of(req),
                                           number_param(req, "offset", 0, 0, 1 << 30),
                                           number_param(req, "limit", 25, 1, 200));
               }));
    routes.get("/api/feedback", json([this](const Request& req) {
                   return queries_.feedback(filter_of(req), number_param(req, "limit", 10, 1, 100));
               }));
    routes.get("/api/files", json([this](const Request& req) {
                   return queries_.files(filter_of(req), number_param(req, "limit", 20, 1, 200));
               }));
    routes.get(R"(/api/records/(\d{1,18}))", [this](const Request& req, Response& res) {
        std::string body;
        try {
            if (queries_.record_body(std::stoll(req.matches.at(1)), body))
                res.set_content(body, "application/json;charset=utf-8");
            else
                answer_failed(res, "no such record", 404);
        } catch (const database_error& e) {
            answer_failed(res, QString("could not read the database: ") + e.what(), 500);
        }
        harden(res);
    });
}

bool dashboard_routes::is_routine(const Request& req, const Response& res) {
    return req.method == "GET" && res.status == 200 &&
           (req.path == "/" || req.path.rfind("/api/", 0) == 0 ||
            req.path.rfind("/dashboard/", 0) == 0);
}

void dashboard_routes::serve_asset(const std::string& name, Response& res) const {
    const auto found = assets_.find(name);
    if (found == assets_.end()) return answer_failed(res, "not found", 404);
    res.set_content(found->second.content.toStdString(), found->second.type);
    harden(res);
}

// As a download, never shown in the page's origin: an uploaded file may hold
// anything, also a page with scripts.
void dashboard_routes::serve_upload(const Request& req, Response& res) const {
    const QString stored = QString::fromStdString(req.matches.at(1));
    const QString path = uploads_.file(stored);
    if (path.isEmpty()) return answer_failed(res, "no uploaded file " + stored, 404);
    stream_file(res, path, "application/octet-stream");
    // Stored as <dfs_id>_<name>: the sender's name is what is offered.
    const QString name = stored.mid(stored.indexOf('_') + 1);
    res.set_header("Content-Disposition",
                   "attachment; filename*=UTF-8''" + QUrl::toPercentEncoding(name).toStdString());
    harden(res);
}
