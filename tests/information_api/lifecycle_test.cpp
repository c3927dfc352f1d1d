// The library's lifecycle as a host sees it: init, requests under host-chosen
// ids, release, takeover of a reused id, clean with requests under way.
#include <QPointer>
#include <algorithm>
#include <atomic>

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
        free_deferred_objects();
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
    EXPECT_TRUE(!state().manager && !state().worker && worker->isFinished());
    ASSERT_TRUE(wait_until([&] { return worker.isNull(); })) << "thread object freed";

    EXPECT_TRUE(information_init()->model_name.isEmpty()) << "a new manager";
    EXPECT_TRUE(state().worker && state().worker->isRunning());
    EXPECT_STREQ(QMetaType::typeName(qMetaTypeId<response_info_t>()),
                 "TarvoConsumerScanner::information_api::response_info_t");
}

// An id is the host's: releasing an unknown one fails; a request under a
// reused id takes it over while the first still reports; the release frees
// the id's connector on the worker thread, and clean every other one, also
// one still under way.
TEST_F(lifecycle_test, an_id_is_taken_over_released_on_the_worker_and_cleaned_up) {
    information_init();
    server_.answer_chunked("/slow/software/x/interface.json", std::string(8 << 20, ' '), 16 << 10,
                           20);
    serve();
    EXPECT_EQ(release_connect(5), -1);
    upload(5, "/silent");
    QPointer<http_connector> first = registered(5);
    upload(5);
    http_connector* second = registered(5);
    EXPECT_NE(second, first.data());
    EXPECT_EQ(state().connections.size(), 1u);
    ASSERT_TRUE(sink_.wait_for_responses(1, 5));
    EXPECT_TRUE(sink_.responses(5)[0].info.ok);
    EXPECT_EQ(get_url_json_file(server_.url("/slow"), "x", &sink_, 6, 60000), 0);
    QPointer<http_connector> sixth = registered(6);  // still arriving when clean comes
    server_.release_silent();
    ASSERT_TRUE(sink_.wait_for_responses(2, 5));
    EXPECT_EQ(sink_.responses(5)[1].info.error_string, "first") << "the first still reports";

    std::atomic<QThread*> deleted_on{nullptr};
    QObject::connect(
        second, &QObject::destroyed, second, [&] { deleted_on = QThread::currentThread(); },
        Qt::DirectConnection);
    EXPECT_EQ(release_connect(5), 0);
    EXPECT_EQ(release_connect(5), -1);
    ASSERT_TRUE(wait_until([&] { return deleted_on.load() != nullptr; }));
    EXPECT_EQ(deleted_on.load(), state().worker);
    EXPECT_FALSE(first.isNull()) << "a connector the registry lost is left to the teardown";
    QPointer<api_thread> worker = state().worker;
    EXPECT_EQ(information_clean(), 0);
    EXPECT_EQ(state().connections.size(), 0u);
    EXPECT_TRUE(first.isNull() && sixth.isNull());
    EXPECT_TRUE(worker->isFinished());
}

// A host may free a sink as soon as the release of its connection returns:
// a call that started after it, or was still under way, would use freed
// memory, which the sanitizer run reports. Time-out reports every 10 ms and
// downloads under way keep calls coming while the releases go on.
TEST_F(lifecycle_test, a_sink_may_be_freed_as_soon_as_its_release_returns) {
    information_init();
    // Downloads that last well beyond the test: each that ended would hold
    // the worker thread for its two-second pause.
    server_.answer_chunked("/app.exe", std::string(8 << 20, 'x'), 16 * 1024, 20);
    serve();
    std::vector<std::unique_ptr<recording_sink>> sinks;
    for (int id = 0; id < 60; ++id) {
        information_sink* sink = sinks.emplace_back(std::make_unique<recording_sink>()).get();
        if (id < 10)  // time-out reports every 10 ms
            upload_information(server_.url("/silent"), "{}", "a", "usage", sink, id, 10);
        else if (id < 56)
            upload_information(server_.url("/dtta"), "{}", "a", "usage", sink, id, 5000);
        else
            downLoadApp(id, sink, server_.url("/app.exe"), QString("app%1.exe").arg(id));
    }
    ASSERT_TRUE(wait_until([&] {
        return std::all_of(sinks.begin(), sinks.end(), [](auto& sink) {
            return sink->responses().size() + sink->count(kind::progress) > 0;
        });
    }));
    for (int id = 0; id < 60; ++id) {
        EXPECT_EQ(release_connect(id), 0);
        sinks[id].reset();
    }
    EXPECT_TRUE(worker_caught_up(state().worker));
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
    EXPECT_EQ(std::make_tuple(registered(4)->rt(), registered(5)->rt(), registered(6)->rt()),
              std::make_tuple(0, 6, 7));
    EXPECT_EQ(release_connect(4), 0);
}

}  // namespace
}  // namespace test_support
