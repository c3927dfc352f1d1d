#include "default_endpoints.h"
#include "store_test_fixture.h"

namespace test_support {
namespace {

const char* const test_app_id = "3c1f9a7e55d04b28a6e2f0b9d4c87a13";
const char* const release_app_id = "a94e07b3c2d851f6e0b7a4c39d2f6e58";

struct upload_config {
    int enable = -1;
    int interval = -1;
    QString address = "unset";
    QString app_id = "unset";
};

upload_config get_upload_config(api::windows_information_imp& manager) {
    upload_config config;
    manager.get_upload_config(config.enable, config.interval, config.address, config.app_id);
    return config;
}

QString file_upload_url(api::windows_information_imp& manager) {
    QString url = "unset";
    manager.get_file_upload_url(url);
    return url;
}

QString cdn_url(api::windows_information_imp& manager) {
    QString url = "unset";
    manager.get_cdn_url(url);
    return url;
}

TEST_F(store_test, without_system_settings_every_value_is_its_default) {
    auto manager = make_manager();

    const upload_config config = get_upload_config(*manager);
    EXPECT_EQ(config.enable, 0);
    EXPECT_EQ(config.interval, 60);
    EXPECT_EQ(config.address, INFORMATION_API_RELEASE_SERVICE_URL);
    EXPECT_EQ(config.app_id, release_app_id);
    EXPECT_EQ(manager->get_connect_time(), 20);
    EXPECT_EQ(file_upload_url(*manager), INFORMATION_API_TEST_UPLOAD_URL);
    EXPECT_EQ(cdn_url(*manager), INFORMATION_API_CDN_URL);
    // The defaults a build sets keep their paths.
    EXPECT_TRUE(config.address.endsWith("/dtta"));
    EXPECT_TRUE(file_upload_url(*manager).endsWith("/up"));
}

TEST_F(store_test, system_settings_give_the_switch_the_interval_and_the_connect_time) {
    write_system_settings({{"enable", 1}, {"time_intval", 15}, {"connect_time", 7}});
    auto manager = make_manager();

    const upload_config config = get_upload_config(*manager);
    EXPECT_EQ(config.enable, 1);
    EXPECT_EQ(config.interval, 15);
    EXPECT_EQ(manager->get_connect_time(), 7);
}

TEST_F(store_test, test_mode_gives_the_test_address_and_app_id) {
    write_system_settings({{"test", 1}});
    write_url_config("https://release.example.com/from-file");
    auto manager = make_manager();
    manager->set_upload_urls("https://release.example.com/dtta", "https://test.example.com/info");

    const upload_config config = get_upload_config(*manager);
    EXPECT_EQ(config.address, "https://test.example.com/info");
    EXPECT_EQ(config.app_id, test_app_id);
    EXPECT_FALSE(logs_.contains("url_config.ini"));
}

TEST_F(store_test, test_mode_without_a_test_address_gives_an_empty_address) {
    write_system_settings({{"test", 1}});
    auto manager = make_manager();
    manager->set_upload_urls("https://release.example.com/dtta", "");

    const upload_config config = get_upload_config(*manager);
    EXPECT_EQ(config.address, "");
    EXPECT_EQ(config.app_id, test_app_id);
}

TEST_F(store_test, release_mode_gives_the_stored_release_address_and_app_id) {
    write_url_config("https://release.example.com/from-file");
    auto manager = make_manager();
    manager->set_upload_urls("https://release.example.com/set", "https://test.example.com/info");

    const upload_config config = get_upload_config(*manager);
    EXPECT_EQ(config.address, "https://release.example.com/set");
    EXPECT_EQ(config.app_id, release_app_id);
    EXPECT_TRUE(
        logs_.contains("get_upload_config _release_url= \"https://release.example.com/set\""));
    EXPECT_FALSE(logs_.contains("url_config.ini"));
}

TEST_F(store_test, url_config_is_read_once_while_the_address_it_gave_is_set) {
    write_url_config("https://release.example.com/first");
    auto manager = make_manager();

    EXPECT_EQ(get_upload_config(*manager).address, "https://release.example.com/first");
    write_url_config("https://release.example.com/second");
    EXPECT_EQ(get_upload_config(*manager).address, "https://release.example.com/first");

    EXPECT_EQ(logs_.count("url_config.ini get_upload_config _release_url="), 1);
    EXPECT_TRUE(logs_.contains(
        "url_config.ini get_upload_config _release_url= \"https://release.example.com/first\""));
}

TEST_F(store_test, without_url_config_the_release_default_is_taken_and_kept) {
    auto manager = make_manager();

    EXPECT_EQ(get_upload_config(*manager).address, INFORMATION_API_RELEASE_SERVICE_URL);
    write_url_config("https://release.example.com/too-late");
    EXPECT_EQ(get_upload_config(*manager).address, INFORMATION_API_RELEASE_SERVICE_URL);
}

TEST_F(store_test, an_empty_address_from_url_config_is_looked_up_again) {
    write_url_config("");
    auto manager = make_manager();

    EXPECT_EQ(get_upload_config(*manager).address, "");
    write_url_config("https://release.example.com/later");
    EXPECT_EQ(get_upload_config(*manager).address, "https://release.example.com/later");
    EXPECT_EQ(logs_.count("url_config.ini get_upload_config _release_url="), 2);
}

TEST_F(store_test, file_upload_address_follows_the_mode) {
    auto release = make_manager();
    release->set_file_upload_urls("https://release.example.com/files",
                                  "https://test.example.com/f");
    EXPECT_EQ(file_upload_url(*release), "https://release.example.com/files");
    release.reset();

    write_system_settings({{"test", 1}});
    auto test = make_manager();
    test->set_file_upload_urls("https://release.example.com/files", "https://test.example.com/f");
    EXPECT_EQ(file_upload_url(*test), "https://test.example.com/f");
}

TEST_F(store_test, file_upload_address_falls_back_to_the_test_service_in_both_modes) {
    auto release = make_manager();
    release->set_file_upload_urls("", "https://test.example.com/f");
    EXPECT_EQ(file_upload_url(*release), INFORMATION_API_TEST_UPLOAD_URL);
    release.reset();

    write_system_settings({{"test", 1}});
    auto test = make_manager();
    test->set_file_upload_urls("https://release.example.com/files", "");
    EXPECT_EQ(file_upload_url(*test), INFORMATION_API_TEST_UPLOAD_URL);
}

TEST_F(store_test, information_and_file_addresses_are_set_apart) {
    auto manager = make_manager();
    manager->set_file_upload_urls("https://release.example.com/files", "");
    EXPECT_EQ(get_upload_config(*manager).address, INFORMATION_API_RELEASE_SERVICE_URL);

    auto other = make_manager();
    other->set_upload_urls("https://release.example.com/info", "https://test.example.com/info");
    EXPECT_EQ(file_upload_url(*other), INFORMATION_API_TEST_UPLOAD_URL);
}

TEST_F(store_test, cdn_address_is_the_same_in_both_modes) {
    auto release = make_manager();
    EXPECT_EQ(cdn_url(*release), INFORMATION_API_CDN_URL);
    release.reset();

    write_system_settings({{"test", 1}});
    auto test = make_manager();
    EXPECT_EQ(cdn_url(*test), INFORMATION_API_CDN_URL);
}

}  // namespace
}  // namespace test_support
