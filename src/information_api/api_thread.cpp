#include "api_thread.h"

#include <climits>

void api_thread::run() {
    exec();
}

int api_thread::start_thread() {
    start(QThread::InheritPriority);
    return 0;
}

int api_thread::stop_thread() {
    quit();
    wait(ULONG_MAX);
    return 0;
}
