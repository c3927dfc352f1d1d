#include "log_capture.h"

#include <QString>
#include <atomic>

namespace test_support {

namespace {
std::atomic<log_capture*> active_capture{nullptr};
}

log_capture::log_capture() {
    google::AddLogSink(this);
    active_capture = this;
    previous_handler_ = qInstallMessageHandler(&log_capture::qt_handler);
}

log_capture::~log_capture() {
    qInstallMessageHandler(previous_handler_);
    active_capture = nullptr;
    google::RemoveLogSink(this);
}

void log_capture::send(google::LogSeverity, const char*, const char*, int,
                       const google::LogMessageTime&, const char* message, size_t message_len) {
    add({true, std::string(message, message_len)});
}

void log_capture::qt_handler(QtMsgType type, const QMessageLogContext& context,
                             const QString& msg) {
    log_capture* capture = active_capture.load();
    if (!capture) return;
    capture->add({false, msg.toStdString()});
    if (capture->previous_handler_) capture->previous_handler_(type, context, msg);
}

void log_capture::add(line entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back(std::move(entry));
}

std::vector<log_capture::line> log_capture::lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

int log_capture::count(const std::string& text) const {
    std::lock_guard<std::mutex> lock(mutex_);
    int n = 0;
    for (const line& l : lines_) n += l.text.find(text) != std::string::npos;
    return n;
}

void log_capture::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

}  // namespace test_support
