#include <QDir>
#include <QNetworkReply>

#include "entry_point_fixture.h"

namespace test_support {
namespace {

using unreachable_host_test = entry_point_test;

TEST_F(unreachable_host_test, every_entry_point_accepts_and_the_failure_arrives_later) {
    const QString file = QDir::current().filePath("feedback.txt");
    write_file(file, "feedback");

    EXPECT_EQ(
        api::upload_information(unreachable_url("/dtta"), "{}", "app", "usage", &sink_, 61, 5000),
        0);
    EXPECT_EQ(api::upload_file(unreachable_url("/up"), file, "app", "", &sink_, 62, 5000), 0);
    EXPECT_EQ(api::get_url_json_file(unreachable_url("/cdn"), "x", &sink_, 63, 5000), 0);
    EXPECT_EQ(api::downLoadApp(64, &sink_, unreachable_url("/app/setup.exe"),
                               QDir::current().filePath("setup.exe")),
              0);

    for (int id : {61, 62, 63}) {
        ASSERT_TRUE(wait_for_responses_for(id, 1)) << id;
        for (const auto& r : responses_for(id))
            expect_outcome(r, id, false, 7, QNetworkReply::ConnectionRefusedError);
    }
    // The download's failure is only logged.
    ASSERT_TRUE(wait_until([&] { return logs_.contains("reply->errorString()="); }));
    pump_events_for(200);
    EXPECT_EQ(sink_.count(kind::finished), 0u);
    EXPECT_TRUE(responses_for(64).empty());
    // The multipart upload listens to the finished reply only: one report.
    EXPECT_EQ(responses_for(62).size(), 1u);
}

}  // namespace
}  // namespace test_support
