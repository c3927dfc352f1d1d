#pragma once

#include <glog/logging.h>

#include <QString>
#include <QtGlobal>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace test_support {

// Captures the glog lines and the Qt debug lines written while it exists.
// Every line is also passed on, so test output still shows it.
class log_capture : public google::LogSink {
public:
    struct line {
        bool from_glog;
        std::string text;
    };

    log_capture() {
        google::AddLogSink(this);
        active_ = this;
        previous_handler_ = qInstallMessageHandler(&log_capture::qt_handler);
    }
    ~log_capture() override {
        qInstallMessageHandler(previous_handler_);
        active_ = nullptr;
        google::RemoveLogSink(this);
    }

    void send(google::LogSeverity, const char*, const char*, int, const google::LogMessageTime&,
              const char* message, size_t message_len) override {
        add({true, std::string(message, message_len)});
    }

    std::vector<line> lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    // Number of captured lines that contain text.
    int count(const std::string& text) const {
        std::lock_guard<std::mutex> lock(mutex_);
        int n = 0;
        for (const line& l : lines_) n += l.text.find(text) != std::string::npos;
        return n;
    }
    bool contains(const std::string& text) const { return count(text) > 0; }
    void clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.clear();
    }

private:
    static void qt_handler(QtMsgType type, const QMessageLogContext& context, const QString& msg) {
        log_capture* capture = active_.load();
        if (!capture) return;
        capture->add({false, msg.toStdString()});
        if (capture->previous_handler_) capture->previous_handler_(type, context, msg);
    }
    void add(line entry) {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(std::move(entry));
    }

    static inline std::atomic<log_capture*> active_{nullptr};
    mutable std::mutex mutex_;
    std::vector<line> lines_;
    QtMessageHandler previous_handler_;
};

}  // namespace test_support
