#pragma once

#include <QRegularExpression>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "server/http_exchange.h"

// What the server does with a request once its head has been read, before
// any of its body: the guards in the order added (each may answer it and so
// end it there: a wrong Host, a method not served, and whatever a later
// check needs), then the first route whose method and pattern match the
// whole path. Everything here runs on a worker thread, never on the thread
// that moves the bytes. Observers see each request once its answer is out.
class route_table {
public:
    // Answers a request outright; its body, if any, is read and dropped first.
    using handler = std::function<void(const http_request&, http_response&)>;
    // Takes a request's body: a receiver, or none with res holding the refusal.
    using receiver_maker =
        std::function<std::unique_ptr<body_receiver>(const http_request&, http_response&)>;
    // True when it has answered the request (res holds the refusal).
    using guard_check = std::function<bool(const http_request&, http_response&)>;
    using observer = std::function<void(const http_request&, const http_response&)>;

    // GET, and HEAD answered as GET without the body.
    void get(const std::string& pattern, handler answer);
    void post(const std::string& pattern, receiver_maker make);
    void guard(guard_check check);
    void observe(observer watch);

    // The receiver of req's body, with req.matches filled; none when a guard
    // or the route refused it, or no route matched (404), with res set.
    std::unique_ptr<body_receiver> begin(http_request& req, http_response& res) const;
    void answered(const http_request& req, const http_response& res) const;

private:
    struct route {
        std::string method;
        QRegularExpression pattern;  // of the whole path
        receiver_maker make;
    };
    std::vector<route> routes_;
    std::vector<guard_check> guards_;
    std::vector<observer> observers_;
};
