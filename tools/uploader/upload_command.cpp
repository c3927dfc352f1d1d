// The upload command: one pass over the due records and score files, or a
// pass every configured interval with --watch.
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QSocketNotifier>
#include <QTimer>

#include "upload_pass.h"
#include "uploader_command.h"

namespace uploader {

namespace {

int interrupt_pipe[2] = {-1, -1};

void on_interrupt(int) {
    const char byte = 1;
    // Nothing more can be done in a signal handler if the write fails.
    if (::write(interrupt_pipe[0], &byte, 1) < 0) return;
}

class upload_command : public uploader_command {
public:
    using uploader_command::uploader_command;

    void start() override {
        if (context_.options.watch) catch_interrupts();
        run_pass();
    }

private:
    // SIGINT and SIGTERM end --watch after the pass under way; a second one
    // ends the process at once (the default action is back by then).
    void catch_interrupts() {
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, interrupt_pipe) != 0) return;
        auto* notifier = new QSocketNotifier(interrupt_pipe[1], QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, [this, notifier] {
            char byte;
            if (::read(interrupt_pipe[1], &byte, 1) < 0) return;
            notifier->setEnabled(false);
            signal(SIGINT, SIG_DFL);
            signal(SIGTERM, SIG_DFL);
            interrupted_ = true;
            if (pass_) {
                say("upload: interrupted; stopping after this pass");
            } else {
                next_pass_.stop();
                say("upload: interrupted");
                emit finished(last_exit_code_);
            }
        });
        struct sigaction action = {};
        action.sa_handler = on_interrupt;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, nullptr);
        sigaction(SIGTERM, &action, nullptr);
        next_pass_.setSingleShot(true);
        connect(&next_pass_, &QTimer::timeout, this, &upload_command::run_pass);
    }

    void run_pass() {
        // Every pass after the first counts as a fresh start, so records the
        // host wrote meanwhile become due.
        if (passes_++ > 0)
            QCoreApplication::instance()->setProperty("start_time", QDateTime::currentDateTime());
        int enable = 0;
        QString address;
        QString app_id;
        context_.manager.get_upload_config(enable, interval_, address, app_id);
        const uploader_options& options = context_.options;

        if (enable == 0 && !options.force && !options.dry_run) {
            say("upload: uploading is switched off (\"enable\" is 0 in res/system.ini); nothing "
                "sent. --force sends anyway.");
            return pass_ended(exit_done);
        }
        if (address.isEmpty()) {
            complain(
                "upload: no information-upload address is configured (test mode without a "
                "test address?); --upload-url gives one");
            return pass_ended(exit_failed);
        }

        QStringList records;
        context_.manager.list_due_records(records);
        const int due = records.size();
        context_.manager.list_score_files(records);
        say(QString("upload: %1 due record(s) and %2 score file(s) for %3 (application id %4)")
                .arg(due)
                .arg(records.size() - due)
                .arg(address, app_id));

        if (options.dry_run) return list_only(records, enable);

        say(QString("upload: time-out %1 s, %2 request(s) at once")
                .arg(context_.tracker.connect_seconds())
                .arg(options.parallel));
        pass_ = new upload_pass(context_, {address, app_id}, records, this);
        connect(pass_, &upload_pass::finished, this, &upload_command::pass_done);
        pass_->start();
    }

    void list_only(const QStringList& records, int enable) {
        for (const QString& path : records) {
            QString data;
            QString type;
            if (context_.manager.read_record_file(path, data, type) != 0)
                say(QString("missing    %1").arg(shown_path(path)));
            else
                say(QString("would send %1 (%2, %3 bytes)")
                        .arg(shown_path(path), type)
                        .arg(data.toUtf8().size()));
        }
        say(QString("dry run: %1 record(s) would be sent; nothing was changed%2")
                .arg(records.size())
                .arg(enable == 0 ? " (uploading is switched off: a real run needs --force)" : ""));
        pass_ended(exit_done);
    }

    void pass_done() {
        const pass_summary summary = pass_->summary();
        pass_->deleteLater();
        pass_ = nullptr;
        context_.manager.delete_old_records();
        say(QString(
                "summary: %1 record(s): %2 sent, %3 rejected, %4 failed (%5 timed out), %6 kept")
                .arg(summary.records)
                .arg(summary.sent)
                .arg(summary.rejected)
                .arg(summary.failed)
                .arg(summary.timed_out)
                .arg(summary.kept));
        pass_ended(summary.kept == 0 ? exit_done : exit_failed);
    }

    void pass_ended(int exit_code) {
        last_exit_code_ = exit_code;
        if (!context_.options.watch || interrupted_) {
            emit finished(exit_code);
            return;
        }
        const int seconds = qMax(1, interval_);
        say(QString("upload: next pass in %1 s (Ctrl-C stops)").arg(seconds));
        next_pass_.start(seconds * 1000);
    }

    upload_pass* pass_ = nullptr;
    QTimer next_pass_;
    int interval_ = 60;
    int passes_ = 0;
    int last_exit_code_ = exit_done;
    bool interrupted_ = false;
};

}  // namespace

uploader_command* make_upload_command(uploader_context& context) {
    return new upload_command(context);
}

}  // namespace uploader
