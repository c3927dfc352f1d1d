#pragma once

#include <QThread>

namespace TarvoConsumerScanner {
namespace information_api {

// The library's worker thread: it only runs a Qt event loop, in which every
// connector's reply slots, time-out timers and sink callbacks are processed.
class api_thread : public QThread {
    Q_OBJECT

public:
    void run() override;
    virtual int start_thread();
    virtual int stop_thread();
};

}  // namespace information_api
}  // namespace TarvoConsumerScanner
