// information_uploader: a time-out report is not a final answer.
#include <QFile>

#include "local_server.h"
#include "uploader_fixture.h"

namespace {

class uploader_time_out : public uploader_test {};

TEST_F(uploader_time_out, a_late_success_after_a_time_out_report_counts_as_sent) {
    test_support::local_server service;
    // Answers after one and a half connect times: the library has reported a
    // time-out by then, and the uploader is still within its grace period.
    service.on_post("/dtta", [](const httplib::Request&, httplib::Response& res) {
        std::this_thread::sleep_for(std::chrono::milliseconds(3000));
        res.set_content(R"({"status":"success"})", "application/json");
    });
    service.start();
    system_settings(1, 2);
    upload_address(service.url("/dtta"));
    add_record("a.info2", "usage");

    const auto result = uploader({"upload"});
    EXPECT_EQ(result.exit_code, 0) << shown(result);
    EXPECT_TRUE(result.out.contains(
        "sent       keploinfo/a.info2 (usage) (answered after a time-out report)"))
        << shown(result);
    EXPECT_TRUE(result.out.contains("1 sent, 0 rejected, 0 failed (0 timed out), 0 kept"));
    EXPECT_FALSE(QFile::exists(record("a.info2")));
}

TEST_F(uploader_time_out, a_silent_service_times_out_and_the_record_is_kept) {
    test_support::local_server service;
    service.answer_silently("/dtta", R"({"status":"success"})");
    service.start();
    system_settings(1, 1);
    upload_address(service.url("/dtta"));
    add_record("a.info2", "usage");

    const auto result = uploader({"upload"});
    EXPECT_EQ(result.exit_code, 1) << shown(result);
    EXPECT_TRUE(result.out.contains("timed out  keploinfo/a.info2 (usage): no answer within 2 s"))
        << shown(result);
    EXPECT_TRUE(result.out.contains("0 sent, 0 rejected, 1 failed (1 timed out), 1 kept"));
    EXPECT_TRUE(QFile::exists(record("a.info2")));
    // One connect time to the report, one of grace; not the three of the cap.
    EXPECT_LT(result.elapsed_ms, 6000);
}

}  // namespace
