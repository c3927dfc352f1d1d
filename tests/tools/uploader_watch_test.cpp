// information_uploader upload --watch: a pass every interval until interrupted.
#include <signal.h>

#include <QFile>

#include "uploader_fixture.h"

namespace {

using tool_test::collector_process;
using tool_test::running_tool;

class uploader_watch : public uploader_test {};

TEST_F(uploader_watch, sends_records_written_between_passes_and_stops_on_sigint) {
    collector_process collector("collector");
    system_settings(1, 5, /*interval=*/1);
    upload_address(collector.url("/dtta"));
    add_record("first.info2", "usage");

    running_tool uploader(INFORMATION_UPLOADER_PATH, {"upload", "--watch", "--workdir", host},
                          QString());
    ASSERT_TRUE(uploader.wait_for_output("upload: next pass in 1 s"))
        << uploader.output().toStdString();
    EXPECT_TRUE(uploader.output().contains("sent       keploinfo/first.info2 (usage)"));

    // Written by the host meanwhile, long enough before the next pass.
    add_record("second.info2", "scan", 30);
    ASSERT_TRUE(uploader.wait_for_output("sent       keploinfo/second.info2 (scan)"))
        << uploader.output().toStdString();

    const auto result = uploader.stop(SIGINT);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0) << result.out.toStdString();
    EXPECT_TRUE(result.out.contains("upload: interrupted")) << result.out.toStdString();
    EXPECT_FALSE(QFile::exists(record("second.info2")));
    EXPECT_EQ(collector.query("SELECT id FROM information").size(), 2u);
}

}  // namespace
