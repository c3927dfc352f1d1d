// The library's lifecycle as a host sees it: init, requests under host-chosen
// ids, release, takeover of a reused id, clean.
#include <QPointer>
#include <atomic>
#include <chrono>
#include <thread>

#include "http/http_connector.h"
#include "library_host.h"
#include "windows_information_imp/windows_information_imp.h"

namespace test_support {
namespace {

using namespace TarvoConsumerScanner::information_api;

class lifecycle_test : public ::testing::Test {
protected:
    void TearDown() override {
        information_clean();
        pump_events_for(20);  // the thread object goes with the host's event loop
    }

    void serve() {
        server_.answer_json("/dtta", R"({"status":"success"})");
        server_.answer_silently("/silent", R"({"status":"failed","result":"first"})");
        server_.start();
    }
    void upload(int id, const char* path = "/dtta") {
        EXPECT_EQ(upload_information(server_.url(path), "{}", "a", "usage", &sink_, id, 60000), 0);
    }
    static http_connector* registered(int id) { return state().connections.find(id); }

    recording_sink sink_;
    local_server server_;
};

TEST_F(lifecycle_test, init_hands_out_one_manager_and_one_running_thread_until_clean) {
    EXPECT_EQ(information_clean(), 0) << "clean before any init";
    KeploInfoMgr* first = information_init();
    ASSERT_NE(dynamic_cast<windows_information_imp*>(first), nullptr);
    first->model_name = "from the first life";
    QPointer<api_thread> worker = state().worker;
    ASSERT_TRUE(worker && worker->isRunning());
    EXPECT_EQ(information_init(), first);
    EXPECT_EQ(state().worker, worker.data());

    log_capture logs;
    EXPECT_EQ(information_clean(), 0);
    EXPECT_TRUE(logs.contains("~windows_information_imp")) << "through the implementation";
    EXPECT_EQ(state().manager, nullptr);
    EXPECT_EQ(state().worker, nullptr);
    EXPECT_TRUE(worker->isFinished());
    ASSERT_TRUE(wait_until([&] { return worker.isNull(); })) << "thread object freed";

    EXPECT_TRUE(information_init()->model_name.isEmpty()) << "a new manager";
    ASSERT_NE(state().worker, nullptr);
    EXPECT_TRUE(state().worker->isRunning());
    EXPECT_STREQ(QMetaType::typeName(qMetaTypeId<response_info_t>()),
                 "TarvoConsumerScanner::information_api::response_info_t");
}

TEST_F(lifecycle_test, release_frees_a_known_id_on_the_worker_thread) {
    information_init();
    serve();
    EXPECT_EQ(release_connect(5), -1);
    upload(5);
    ASSERT_TRUE(sink_.wait_for_responses(1));
    std::atomic<QThread*> deleted_on{nullptr};
    QObject::connect(
        registered(5), &QObject::destroyed, registered(5),
        [&] { deleted_on = QThread::currentThread(); }, Qt::DirectConnection);

    EXPECT_EQ(release_connect(5), 0);
    EXPECT_EQ(release_connect(5), -1);
    EXPECT_EQ(state().connections.size(), 0u);
    ASSERT_TRUE(wait_until([&] { return deleted_on.load() != nullptr; }));
    EXPECT_EQ(deleted_on.load(), state().worker);
}

TEST_F(lifecycle_test, a_reused_id_is_taken_over_and_the_first_request_still_reports) {
    information_init();
    serve();
    upload(5, "/silent");
    QPointer<http_connector> first = registered(5);
    upload(5);
    EXPECT_NE(registered(5), first.data());
    EXPECT_EQ(state().connections.size(), 1u);

    ASSERT_TRUE(sink_.wait_for_responses(1));
    server_.release_silent();
    ASSERT_TRUE(sink_.wait_for_responses(2));
    const auto responses = sink_.responses();
    EXPECT_EQ(responses[0].connection_id, 5);
    EXPECT_TRUE(responses[0].info.ok);
    EXPECT_EQ(responses[1].connection_id, 5);
    EXPECT_EQ(responses[1].info.error_string, "first");

    // Releasing the id frees the second connector only; the first is left to
    // the library's teardown.
    EXPECT_EQ(release_connect(5), 0);
    pump_events_for(100);
    EXPECT_FALSE(first.isNull());
    information_clean();
    EXPECT_TRUE(first.isNull()) << "a connector the registry lost is freed with its thread";
}

// Counts the calls that start, or are still under way, once the release of
// its connection has returned. Each call takes a while, so that releases
// meet calls under way; a held sink keeps its first call going until the
// host has begun to release it.
class releasable_sink : public information_sink {
public:
    void on_response(int, QVariant) override { arrive(); }
    void on_download_progress(qint64, qint64) override { arrive(); }
    void on_download_finished(bool, int, int) override { arrive(); }
    std::atomic<bool> held{false}, releasing{false}, released{false};
    std::atomic<int> calls{0}, late_calls{0};

private:
    void arrive() {
        if (released) ++late_calls;
        if (++calls == 1 && held) {
            for (int i = 0; i < 2000 && !releasing; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        std::this_thread::sleep_for(std::chrono::microseconds(300));
        if (released) ++late_calls;
    }
};

TEST_F(lifecycle_test, no_sink_call_starts_or_runs_once_release_has_returned) {
    information_init();
    // Downloads that last well beyond the test: each that ended would hold
    // the worker thread for its two-second pause.
    server_.answer_chunked("/app.exe", std::string(8 << 20, 'x'), 16 * 1024, 20);
    serve();
    std::vector<std::unique_ptr<releasable_sink>> sinks;
    for (int id = 0; id < 60; ++id) {
        sinks.push_back(std::make_unique<releasable_sink>());
        information_sink* sink = sinks.back().get();
        if (id < 10)  // time-out reports every 10 ms
            upload_information(server_.url("/silent"), "{}", "a", "usage", sink, id, 10);
        else if (id < 56)
            upload_information(server_.url("/dtta"), "{}", "a", "usage", sink, id, 5000);
        else
            downLoadApp(id, sink, server_.url("/app.exe"), QString("app%1.exe").arg(id));
    }
    sinks[0]->held = true;
    ASSERT_TRUE(wait_until([&] {
        for (const auto& sink : sinks)
            if (sink->calls == 0) return false;
        return true;
    }));
    for (int id = 0; id < 60; ++id) {
        sinks[id]->releasing = true;
        EXPECT_EQ(release_connect(id), 0);
        sinks[id]->released = true;  // the host may free it from here on
    }
    pump_events_for(300);
    int late = 0;
    for (const auto& sink : sinks) late += sink->late_calls;
    EXPECT_EQ(late, 0);
}

TEST_F(lifecycle_test, clean_releases_every_connection_and_stops_the_thread) {
    information_init();
    serve();
    for (int id : {3, 1, 2}) upload(id, "/silent");
    QPointer<http_connector> one = registered(1), two = registered(2), three = registered(3);
    QPointer<api_thread> worker = state().worker;
    server_.release_silent();
    EXPECT_EQ(information_clean(), 0);
    EXPECT_EQ(state().connections.size(), 0u);
    EXPECT_TRUE(one.isNull() && two.isNull() && three.isNull());
    EXPECT_TRUE(worker->isFinished());
}

// Without a worker the connectors stay on this thread, where their return
// codes can be read: the handler's 0, 7 after a network error, 6 after a
// time-out.
TEST_F(lifecycle_test, requests_without_a_worker_run_on_the_calling_thread) {
    serve();
    upload(4);
    upload_information(server_.url("/silent"), "{}", "a", "usage", &sink_, 5, 50);
    upload_information(QString("http://127.0.0.1:%1/x").arg(closed_port()), "{}", "a", "usage",
                       &sink_, 6, 5000);
    ASSERT_TRUE(wait_until([&] { return sink_.responses().size() >= 4; }));
    for (const call& r : sink_.responses()) EXPECT_EQ(r.thread, QThread::currentThread());
    EXPECT_EQ(QString("%1 %2 %3")
                  .arg(registered(4)->rt())
                  .arg(registered(5)->rt())
                  .arg(registered(6)->rt()),
              "0 6 7");
    EXPECT_EQ(release_connect(4), 0);
}

}  // namespace
}  // namespace test_support
