#pragma once

#include <glog/logging.h>

#include <QtGlobal>
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

    log_capture();
    ~log_capture() override;
    log_capture(const log_capture&) = delete;
    log_capture& operator=(const log_capture&) = delete;

    void send(google::LogSeverity, const char*, const char*, int, const google::LogMessageTime&,
              const char* message, size_t message_len) override;

    std::vector<line> lines() const;
    // Number of captured lines that contain text.
    int count(const std::string& text) const;
    bool contains(const std::string& text) const { return count(text) > 0; }
    void clear();

private:
    static void qt_handler(QtMsgType type, const QMessageLogContext& context, const QString& msg);
    void add(line entry);

    mutable std::mutex mutex_;
    std::vector<line> lines_;
    QtMessageHandler previous_handler_;
};

}  // namespace test_support
