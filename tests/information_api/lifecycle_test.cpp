// The library's lifecycle as a host sees it: init, requests under host-chosen
// ids, release, clean.
#include <gtest/gtest.h>

#include <QPointer>

#include "event_wait.h"
#include "http/http_connector.h"
#include "library_state.h"
#include "local_server.h"
#include "recording_sink.h"
#include "windows_information_imp/windows_information_imp.h"

namespace test_support {
namespace {

using namespace TarvoConsumerScanner::information_api;

class lifecycle_test : public ::testing::Test {
protected:
    void TearDown() override {
        information_clean();
        // The thread object goes with the host's event loop.
        wait_until([] { return false; }, 20);
    }

    http_connector* registered(int id) { return state().connections.find(id); }

    recording_sink sink_;
    local_server server_;
};

TEST_F(lifecycle_test, clean_without_init_returns_zero) {
    EXPECT_EQ(information_clean(), 0);
    EXPECT_EQ(state().worker, nullptr);
    EXPECT_EQ(state().manager, nullptr);
}

TEST_F(lifecycle_test, init_starts_one_thread_and_hands_out_one_manager) {
    KeploInfoMgr* first = information_init();
    ASSERT_NE(first, nullptr);
    EXPECT_NE(dynamic_cast<windows_information_imp*>(first), nullptr);
    api_thread* worker = state().worker;
    ASSERT_NE(worker, nullptr);
    EXPECT_TRUE(worker->isRunning());

    EXPECT_EQ(information_init(), first);
    EXPECT_EQ(state().worker, worker);
}

TEST_F(lifecycle_test, clean_then_init_makes_a_new_thread_and_manager) {
    KeploInfoMgr* old_manager = information_init();
    old_manager->model_name = "from the first life";
    QPointer<api_thread> old_worker = state().worker;

    EXPECT_EQ(information_clean(), 0);
    EXPECT_EQ(state().manager, nullptr);
    EXPECT_EQ(state().worker, nullptr);
    EXPECT_TRUE(old_worker->isFinished());
    ASSERT_TRUE(wait_until([&] { return old_worker.isNull(); })) << "thread object freed";

    KeploInfoMgr* new_manager = information_init();
    EXPECT_TRUE(new_manager->model_name.isEmpty());
    ASSERT_NE(state().worker, nullptr);
    EXPECT_TRUE(state().worker->isRunning());
}

TEST_F(lifecycle_test, release_connect_knows_only_registered_ids) {
    information_init();
    server_.answer_json("/dtta", R"({"status":"success"})");
    server_.start();

    EXPECT_EQ(release_connect(5), -1);
    EXPECT_EQ(upload_information(server_.url("/dtta"), "{}", "app", "usage", &sink_, 5, 5000), 0);
    ASSERT_TRUE(sink_.wait_for_responses(1));
    EXPECT_EQ(release_connect(5), 0);
    EXPECT_EQ(release_connect(5), -1);
    EXPECT_EQ(state().connections.size(), 0u);
}

TEST_F(lifecycle_test, connectors_are_deleted_on_the_worker_thread) {
    information_init();
    server_.answer_json("/dtta", R"({"status":"success"})");
    server_.start();
    upload_information(server_.url("/dtta"), "{}", "app", "usage", &sink_, 8, 5000);
    ASSERT_TRUE(sink_.wait_for_responses(1));

    QPointer<http_connector> connector = registered(8);
    ASSERT_FALSE(connector.isNull());
    QThread* deleted_on = nullptr;
    QObject::connect(connector.data(), &QObject::destroyed,
                     [&deleted_on] { deleted_on = QThread::currentThread(); });
    EXPECT_EQ(connector->thread(), state().worker);
    api_thread* worker = state().worker;

    release_connect(8);
    ASSERT_TRUE(wait_until([&] { return connector.isNull(); }));
    EXPECT_EQ(deleted_on, worker);
}

TEST_F(lifecycle_test, reused_id_takes_over_the_entry_and_the_first_still_reports) {
    information_init();
    server_.answer_silently("/first", R"({"status":"failed","result":"first"})");
    server_.answer_json("/second", R"({"status":"success"})");
    server_.start();

    upload_information(server_.url("/first"), "{}", "app", "usage", &sink_, 5, 5000);
    QPointer<http_connector> first = registered(5);
    upload_information(server_.url("/second"), "{}", "app", "usage", &sink_, 5, 5000);
    http_connector* second = registered(5);
    EXPECT_NE(second, first.data());
    EXPECT_EQ(state().connections.size(), 1u);

    ASSERT_TRUE(sink_.wait_for_responses(1));
    server_.release_silent();
    ASSERT_TRUE(sink_.wait_for_responses(2));
    const auto responses = sink_.responses();
    EXPECT_EQ(responses[0].connection_id, 5);
    EXPECT_TRUE(responses[0].info.ok);
    EXPECT_EQ(responses[1].connection_id, 5);
    EXPECT_EQ(responses[1].info.error_string, "first");

    // Releasing the id frees the second connector only; the first is left
    // to the library's teardown.
    EXPECT_EQ(release_connect(5), 0);
    pump_events_for(100);
    EXPECT_FALSE(first.isNull());
    information_clean();
    EXPECT_TRUE(first.isNull()) << "a connector the registry lost is freed with its thread";
}

TEST_F(lifecycle_test, clean_releases_every_connection_and_stops_the_thread) {
    information_init();
    server_.answer_silently("/dtta", R"({"status":"success"})");
    server_.start();
    for (int id : {3, 1, 2})
        upload_information(server_.url("/dtta"), "{}", "a", "usage", &sink_, id, 60000);
    QPointer<http_connector> one = registered(1), two = registered(2), three = registered(3);
    QPointer<api_thread> worker = state().worker;

    server_.release_silent();
    EXPECT_EQ(information_clean(), 0);
    EXPECT_EQ(state().connections.size(), 0u);
    EXPECT_TRUE(one.isNull() && two.isNull() && three.isNull());
    EXPECT_TRUE(worker->isFinished());
}

TEST_F(lifecycle_test, requests_without_a_worker_run_on_the_calling_thread) {
    server_.answer_json("/dtta", R"({"status":"success"})");
    server_.start();
    EXPECT_EQ(upload_information(server_.url("/dtta"), "{}", "app", "usage", &sink_, 4, 5000), 0);
    ASSERT_TRUE(sink_.wait_for_responses(1));
    EXPECT_EQ(sink_.responses()[0].thread, QThread::currentThread());
    EXPECT_EQ(release_connect(4), 0);
}

}  // namespace
}  // namespace test_support
