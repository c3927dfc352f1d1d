#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <vector>

namespace bench {

// One finished process: its wall time from start to exit, the peak resident
// memory of it and the children it waited for, its exit code and its
// standard output; killed when it grew past the ceiling it was given.
struct process_run {
    double seconds = 0;
    long peak_kib = 0;
    int exit_code = -1;
    bool killed = false;
    QByteArray output;
};

// Starts program with arguments in folder, standard error appended to
// error_log, and waits for it; kills it once its resident memory passes
// ceiling_kib (0: no ceiling).
process_run run_process(const QStringList& command, const QString& folder, const QString& error_log,
                        long ceiling_kib = 0);

// Median, smallest and largest of at least one figure.
struct spread {
    double median = 0;
    double min = 0;
    double max = 0;
};
spread spread_of(std::vector<double> figures);

}  // namespace bench
