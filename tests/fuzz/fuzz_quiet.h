#pragma once

#include <glog/logging.h>

#include <QtGlobal>
#include <cstdio>

// The library logs every answer it reads; a fuzzer reads millions. Qt's own
// fatal and critical messages still show: they explain a crash.
inline void fuzz_quiet() {
    FLAGS_minloglevel = google::GLOG_FATAL;
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
        if (type == QtFatalMsg || type == QtCriticalMsg)
            std::fprintf(stderr, "%s\n", qPrintable(message));
    });
}
