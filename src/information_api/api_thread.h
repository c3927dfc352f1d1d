#pragma once

#include <QThread>

// The library's worker thread: it only runs a Qt event loop, in which every
// connector's reply slots, time-out timers and sink callbacks are processed.
// Declared at global scope so that its meta-object is known as "api_thread".
class api_thread : public QThread {
    Q_OBJECT

public:
    void run() override;
    virtual int start_thread();
    virtual int stop_thread();
};
