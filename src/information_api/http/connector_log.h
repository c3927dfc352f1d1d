#pragma once

#include <QDebug>

// Trace lines of the connector start with the method's fully qualified name.
#define CONNECTOR_TRACE(method) \
    qDebug().noquote() << "TarvoConsumerScanner::information_api::http_connector::" method

// Pointers appear in the log as 32-bit integers.
#define LOG_POINTER(pointer) static_cast<int>(reinterpret_cast<quintptr>(pointer))
