#include "compare_runner.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryFile>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>

namespace bench {

namespace {

// The resident set of a running process in KiB, 0 once it is gone.
long resident_kib(pid_t pid) {
    QFile status(QString("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly)) return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:")) return line.mid(6).trimmed().split(' ').first().toLong();
    return 0;
}

}  // namespace

process_run run_process(const QStringList& command, const QString& folder, const QString& error_log,
                        long ceiling_kib) {
    process_run run;
    QTemporaryFile output;
    if (!output.open()) return run;
    std::vector<QByteArray> words;
    for (const QString& word : command) words.push_back(QFile::encodeName(word));
    std::vector<char*> argv;
    for (QByteArray& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const QByteArray where = QFile::encodeName(folder);
    const QByteArray log = QFile::encodeName(error_log);
    const int out = output.handle();

    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = ::fork();
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec.
        const int err = ::open(log.constData(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (::chdir(where.constData()) != 0 || err < 0) ::_exit(127);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    if (pid < 0) return run;
    int status = 0;
    rusage usage{};
    // With a ceiling the resident set is looked at every 10 ms until the end.
    const int options = ceiling_kib > 0 ? WNOHANG : 0;
    for (;;) {
        const pid_t ended = ::wait4(pid, &status, options, &usage);
        if (ended == pid || (ended < 0 && errno != EINTR)) break;
        if (ended == 0 && !run.killed && resident_kib(pid) > ceiling_kib) {
            run.killed = true;
            ::kill(pid, SIGKILL);
        }
        if (ended == 0) ::usleep(10000);
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.peak_kib = usage.ru_maxrss;
    run.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    output.seek(0);
    run.output = output.readAll();
    return run;
}

spread spread_of(std::vector<double> figures) {
    std::sort(figures.begin(), figures.end());
    const size_t n = figures.size();
    const double median = n % 2 ? figures[n / 2] : (figures[n / 2 - 1] + figures[n / 2]) / 2;
    return {median, figures.front(), figures.back()};
}

}  // namespace bench
