// download URL PATH: a progress bar on a terminal, plain progress lines
// otherwise, and a watchdog of our own, because the library reports no end
// at all when a download fails on the network or the server goes silent.
// The file is staged beside PATH and replaces it only once it is whole and,
// when a hash is given, verified; any failure leaves PATH as it was.
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTimer>
#include <cstdio>
#include <memory>

#include "download_staging.h"
#include "uploader_command.h"

namespace uploader {

namespace api = TarvoConsumerScanner::information_api;

namespace {

// The library waits two seconds after the last byte before it reports the
// end; the watchdog must not be shorter than that.
const int library_pause_seconds = 2;
const int minimum_stall_seconds = 3;

QString size_text(qint64 bytes) {
    if (bytes < 1024) return QString("%1 B").arg(bytes);
    if (bytes < 1024 * 1024) return QString("%1 KiB").arg(bytes / 1024.0, 0, 'f', 1);
    return QString("%1 MiB").arg(bytes / (1024.0 * 1024.0), 0, 'f', 1);
}

class download_command : public uploader_command {
public:
    using uploader_command::uploader_command;

    void start() override {
        url_ = context_.options.arguments.at(0);
        const QFileInfo target(context_.options.arguments.at(1));
        path_ = target.absoluteFilePath();
        shown_ = target.filePath();
        if (!target.dir().exists()) {
            complain("download: the folder " + target.dir().path() + " does not exist");
            return emit finished(exit_failed);
        }
        if (target.isDir()) {
            complain("download: " + shown_ + " is a folder");
            return emit finished(exit_failed);
        }
        staging_.reset(new download_staging(path_));
        const QString not_ready = staging_->prepare();
        if (!not_ready.isEmpty()) {
            complain("download: " + not_ready);
            return emit finished(exit_failed);
        }
        terminal_ = ::isatty(fileno(stdout));
        stall_seconds_ = qMax(minimum_stall_seconds, context_.tracker.connect_seconds());
        say(QString("download: %1 -> %2").arg(url_, shown_));

        connect(&context_.sink, &main_thread_sink::download_progress, this,
                &download_command::progress);
        connect(&context_.sink, &main_thread_sink::download_finished, this,
                &download_command::ended);
        watchdog_.setSingleShot(true);
        connect(&watchdog_, &QTimer::timeout, this, &download_command::stalled);
        watchdog_.start(stall_seconds_ * 1000);
        since_drawn_.start();
        // Downloads report through their own sink calls, not on_response.
        connection_id_ = context_.tracker.new_id();
        api::downLoadApp(connection_id_, &context_.sink, url_, staging_->staged());
    }

private:
    void progress(qint64 received, qint64 total) {
        if (done_) return;
        // Once all has come, the library pauses before it reports the end:
        // silence then is not yet a failure.
        const bool complete = total > 0 && received >= total;
        watchdog_.start((stall_seconds_ + (complete ? library_pause_seconds : 0)) * 1000);
        received_ = received;
        total_ = total;
        // Without an announced size the toolkit reports -1 until the closing
        // report, which gives the received count as the total.
        if (total < 0) size_unannounced_ = true;
        // Stop early rather than fetch a file that cannot pass; a small
        // answer may be a refusal, which the end tells apart.
        const qint64 wanted = context_.options.size;
        if (wanted >= 0 && !size_unannounced_ && total > download_staging::largest_refusal &&
            total != wanted)
            return fail(
                QString("the server announced %1 bytes, --size says %2").arg(total).arg(wanted));
        const qint64 expected = expected_size();
        if (expected >= 0 && received > qMax(expected, download_staging::largest_refusal))
            return fail(QString("the server sent more than %1 bytes").arg(expected));
        if (terminal_) {
            if (since_drawn_.elapsed() >= 100 || received == total) draw_bar();
        } else if (total > 0) {
            // A line at every tenth.
            const int tenth = int(received * 10 / total);
            if (tenth > last_tenth_) {
                last_tenth_ = tenth;
                say(QString("download: %1 of %2 bytes (%3%)")
                        .arg(received)
                        .arg(total)
                        .arg(tenth * 10));
            }
        } else if (received - last_line_bytes_ >= 1024 * 1024) {
            last_line_bytes_ = received;
            say(QString("download: %1 bytes").arg(received));
        }
    }

    void draw_bar() {
        since_drawn_.restart();
        QString line;
        if (total_ > 0) {
            const int width = 30;
            const int filled = int(received_ * width / total_);
            line = QString("\r[%1%2] %3%  %4 of %5")
                       .arg(QString(filled, '#'), QString(width - filled, '.'))
                       .arg(int(received_ * 100 / total_), 3)
                       .arg(size_text(received_), size_text(total_));
        } else {
            line = QString("\r%1 received").arg(size_text(received_));
        }
        std::fputs(line.toLocal8Bit().constData(), stdout);
        std::fflush(stdout);
        bar_shown_ = true;
    }

    void end_bar() {
        if (!bar_shown_) return;
        draw_bar();
        std::fputs("\n", stdout);
        bar_shown_ = false;
    }

    // The size the file must have: --size, else the announced one; -1 when
    // neither is known.
    qint64 expected_size() const {
        if (context_.options.size >= 0) return context_.options.size;
        return total_ > 0 && !size_unannounced_ ? total_ : -1;
    }

    void ended(bool, int, int) {
        if (done_) return;
        finish_up();
        const QString why = rejection();
        if (!why.isEmpty()) return fail(why);
        const QString not_moved = staging_->commit();
        if (!not_moved.isEmpty()) return fail(not_moved);
        say(QString("download: saved %1 (%2 bytes%3)")
                .arg(shown_)
                .arg(saved_size_)
                .arg(context_.options.sha256.isEmpty() ? "" : ", SHA-256 verified"));
        emit finished(exit_done);
    }

    // Why the staged file may not replace PATH; empty when it may. The
    // library reports success also when its temporary file went missing or
    // the connection closed early without an announced size.
    QString rejection() {
        const QFileInfo staged(staging_->staged());
        if (!staged.isFile()) return "the download ended but nothing was saved";
        saved_size_ = staged.size();
        if (saved_size_ < received_)
            return QString("write error: only %1 of the %2 bytes received reached the disk")
                .arg(saved_size_)
                .arg(received_);
        const qint64 expected = expected_size();
        const QByteArray& sha256 = context_.options.sha256;
        if (expected >= 0 && saved_size_ != expected)
            return QString("the file has %1 bytes, %2 expected").arg(saved_size_).arg(expected);
        if (expected < 0 && sha256.isEmpty())
            return "the server announced no size, so a cut-off transfer cannot be told from a "
                   "whole one; --size or --sha256 accepts the file";
        if (!sha256.isEmpty()) {
            const QByteArray actual = staging_->staged_sha256();
            if (actual != sha256)
                return QString("SHA-256 mismatch: the file has %1, %2 expected")
                    .arg(QString(actual), QString(sha256));
        }
        return QString();
    }

    void stalled() {
        if (done_) return;
        finish_up();
        const QString refusal = staging_->refusal();
        if (!refusal.isEmpty()) return fail("the server refused the download: " + refusal);
        // The whole answer came but no end was reported: the library ends
        // an answer with an error status that way.
        if (total_ > 0 && received_ >= total_)
            return fail(QString("the server answered with an error instead of the file "
                                "(%1 bytes)")
                            .arg(received_));
        const bool maybe_certificate = context_.options.verify_tls && received_ == 0;
        fail(QString("no data from %1 for %2 s after %3 bytes (network error, silent server%4)")
                 .arg(url_)
                 .arg(stall_seconds_)
                 .arg(received_)
                 .arg(maybe_certificate ? " or a server certificate that is not trusted" : ""));
    }

    void fail(const QString& why) {
        if (!done_) finish_up();
        staging_->discard();
        complain("download: " + why + "; " + shown_ + " is unchanged");
        emit finished(exit_failed);
    }

    void finish_up() {
        done_ = true;
        watchdog_.stop();
        end_bar();
        api::release_connect(connection_id_);
    }

    QString url_;
    QString path_;
    QString shown_;
    // Discards what is left when it goes, after the library has stopped.
    std::unique_ptr<download_staging> staging_;
    qint64 saved_size_ = 0;
    bool size_unannounced_ = false;
    bool terminal_ = false;
    int stall_seconds_ = minimum_stall_seconds;
    int connection_id_ = 0;
    QTimer watchdog_;
    QElapsedTimer since_drawn_;
    qint64 received_ = 0;
    qint64 total_ = -1;
    int last_tenth_ = 0;
    qint64 last_line_bytes_ = 0;
    bool bar_shown_ = false;
    bool done_ = false;
};

}  // namespace

uploader_command* make_download_command(uploader_context& context) {
    return new download_command(context);
}

}  // namespace uploader
