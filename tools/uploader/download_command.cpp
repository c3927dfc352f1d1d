// download URL PATH: a progress bar on a terminal, plain progress lines
// otherwise, and a watchdog of our own, because the library reports no end
// at all when a download fails on the network or the server goes silent.
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTimer>
#include <cstdio>

#include "uploader_command.h"

namespace uploader {

namespace api = TarvoConsumerScanner::information_api;

namespace {

// The library waits two seconds after the last byte before it reports the
// end; the watchdog must not be shorter than that.
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
        api::downLoadApp(connection_id_, &context_.sink, url_, path_);
    }

private:
    void progress(qint64 received, qint64 total) {
        if (done_) return;
        watchdog_.start(stall_seconds_ * 1000);
        received_ = received;
        total_ = total;
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

    void ended(bool, int, int) {
        if (done_) return;
        finish_up();
        // The library reports success also when its temporary file went
        // missing; look at the result.
        const QFileInfo target(path_);
        if (!target.isFile()) {
            complain("download: the download ended but " + shown_ + " is not there");
            return emit finished(exit_failed);
        }
        if (total_ > 0 && target.size() != total_) {
            complain(QString("download: %1 has %2 bytes, the server announced %3")
                         .arg(shown_)
                         .arg(target.size())
                         .arg(total_));
            return emit finished(exit_failed);
        }
        say(QString("download: saved %1 (%2 bytes)").arg(shown_).arg(target.size()));
        emit finished(exit_done);
    }

    void stalled() {
        if (done_) return;
        finish_up();
        complain(QString("download: no data from %1 for %2 s after %3 bytes (network error or "
                         "silent server); the part received stays in a .temp file beside %4")
                     .arg(url_)
                     .arg(stall_seconds_)
                     .arg(received_)
                     .arg(shown_));
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
