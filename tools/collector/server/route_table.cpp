#include "server/route_table.h"

#include "server/json_answer.h"

namespace {

// A body nobody asked for (a GET may carry one) is read and dropped, up to a
// little; the answer comes once it has been read.
class dropped_body : public body_receiver {
public:
    explicit dropped_body(route_table::handler answer) : answer_(std::move(answer)) {}

    bool take(const char*, std::size_t length, http_response& res) override {
        dropped_ += length;
        if (dropped_ <= limit) return true;
        answer_failed(res, QString("request body larger than %1 bytes").arg(limit), 413);
        res.close_connection = true;
        return false;
    }
    void finish(const http_request& req, bool, http_response& res) override { answer_(req, res); }

private:
    static constexpr std::size_t limit = 64 * 1024;
    route_table::handler answer_;
    std::size_t dropped_ = 0;
};

QRegularExpression whole(const std::string& pattern) {
    return QRegularExpression(QRegularExpression::anchoredPattern(QString::fromStdString(pattern)));
}

}  // namespace

void route_table::get(const std::string& pattern, handler answer) {
    routes_.push_back({"GET", whole(pattern), [answer](const http_request&, http_response&) {
                           return std::make_unique<dropped_body>(answer);
                       }});
}

void route_table::post(const std::string& pattern, receiver_maker make) {
    routes_.push_back({"POST", whole(pattern), std::move(make)});
}

void route_table::guard(guard_check check) {
    guards_.push_back(std::move(check));
}

void route_table::observe(observer watch) {
    observers_.push_back(std::move(watch));
}

std::unique_ptr<body_receiver> route_table::begin(http_request& req, http_response& res) const {
    for (const guard_check& check : guards_)
        if (check(req, res)) return nullptr;
    const std::string& method = req.method == "HEAD" ? std::string("GET") : req.method;
    const QString path = QString::fromStdString(req.path);
    for (const route& candidate : routes_) {
        if (candidate.method != method) continue;
        const QRegularExpressionMatch match = candidate.pattern.match(path);
        if (!match.hasMatch()) continue;
        for (const QString& captured : match.capturedTexts())
            req.matches.push_back(captured.toStdString());
        return candidate.make(req, res);
    }
    answer_failed(res, "not found", 404);
    return std::make_unique<dropped_body>([](const http_request&, http_response&) {});
}

void route_table::answered(const http_request& req, const http_response& res) const {
    for (const observer& watch : observers_) watch(req, res);
}
