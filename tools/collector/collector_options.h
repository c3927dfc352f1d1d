#pragma once

#include <QString>
#include <QStringList>

#include "server/collector_server.h"
#include "server/host_routes.h"

// Everything the command line sets.
struct collector_options {
    QString host;
    int port = 0;
    QString database;
    QString cert;
    QString key;
    collector_config config;
    collector_server::settings server;
};

// Parses the command line; returns -1 to go on, or the exit code: 0 after
// --help, 2 after a usage message on standard error.
int parse_options(const QStringList& arguments, collector_options& out);

// Whether only this machine can reach an address to listen on.
bool is_loopback(const QString& host);
