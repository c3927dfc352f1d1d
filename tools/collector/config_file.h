#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QList>
#include <QString>
#include <QStringList>

// The collector's config file (--config FILE): one "key = value" a line, the
// key being the long name of a command-line option, so that every option has
// a key; "true" or "false" for an option without a value; lines starting with
// "#" and blank lines are left out. A value is taken as it stands, without
// quotes or escapes, spaces around it left out. Only the keys of options named
// in repeatable may appear more than once, as such options may on the command
// line.
//
// Returns arguments with the file's options put before the command line's
// own, leaving out every option that command_line (arguments parsed) sets, so
// that the command line wins, for a repeatable option with all of its values.
// On an unreadable file, an unknown key or a malformed line, returns nothing
// and sets error to a message naming the file and the line.
QStringList with_config_file(const QString& path, const QList<QCommandLineOption>& options,
                             const QStringList& repeatable, const QCommandLineParser& command_line,
                             const QStringList& arguments, QString& error);
