#pragma once

#include <glog/logging.h>

#include <QtGlobal>

// The library logs every answer it reads; a fuzzer reads millions.
inline void fuzz_quiet() {
    FLAGS_minloglevel = google::GLOG_FATAL;
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
}
