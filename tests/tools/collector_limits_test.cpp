// information_collector against slow, oversized and silent clients.
#include "collector_backend.h"

namespace {

using namespace collector_test;

class collector_limits : public on_each_database {};
ON_DATABASES(collector_limits, "sqlite", "postgresql");

TEST_P(collector_limits, misbehaving_clients_are_cut_off_and_others_are_served_meanwhile) {
    collector_process collector("limits", on("limits", {"--timeout", "1", "--max-body", "64K"}));
    const QByteArray post = "POST /d?type=u HTTP/1.1\r\nContent-Type: application/json\r\n";
    const QByteArray id = QByteArray("X-Auth-AppID: ") + test_app_id + "\r\n";
    const std::string too_long = failed("request took too long");
    const std::string unknown = failed("unknown application id");
    const std::string too_large = failed("request body larger than 65536 bytes");
    struct misbehaviour {
        const char* name;
        QByteArray head;    // sent at once
        QByteArray drip;    // then sent again and again, slowly
        QByteArray status;  // the answer's status line, empty for none
        std::string answer;
    };
    // clang-format off
    std::vector<misbehaviour> table{
        {"sends nothing", "", "", "", ""},
        {"a body byte at a time", post + id + "Content-Length: 100\r\n\r\n", " ", "408", too_long},
        {"1 GiB without an id", post + "Content-Length: 1073741824\r\n\r\n", "", "200", unknown},
        {"1 GiB", post + id + "Content-Length: 1073741824\r\n\r\n", "", "413", too_large},
        {"asks to continue without an id",
            post + "Expect: 100-continue\r\nContent-Length: 5000000\r\n\r\n", "", "200", unknown},
        {"chunks past the limit", post + id + "Transfer-Encoding: chunked\r\n\r\n11800\r\n" +
            QByteArray(0x11800, 'x'), "", "413", too_large},
    };
    // clang-format on
    for (int i = 0; i < 8; ++i)
        table.push_back({"slow headers", "GET / HTTP/1.1\r\n", "X: y\r\n", "408", too_long});
    std::vector<std::unique_ptr<raw_client>> clients;
    std::vector<QByteArray> received(table.size());
    for (const misbehaviour& row : table)
        clients.emplace_back(new raw_client(collector.port()))->send(row.head);
    // Each round drips a little on each client, a tenth of a second in all,
    // for three seconds: the collector's timeout is one.
    for (int round = 0; round < 30; ++round) {
        for (size_t i = 0; i < table.size(); ++i) {
            if (!clients[i]->closed() && !table[i].drip.isEmpty()) clients[i]->send(table[i].drip);
            received[i] += clients[i]->receive(100 / int(table.size()));
        }
        if (round == 3) {
            httplib::Client client("127.0.0.1", collector.port());
            client.set_read_timeout(1);
            const auto res = client.Get("/no-such-page");
            ASSERT_TRUE(res) << "a well-behaved client waited";
            EXPECT_EQ(res->status, 404);
        }
    }
    for (size_t i = 0; i < table.size(); ++i) {
        SCOPED_TRACE(table[i].name);
        received[i] += clients[i]->receive(500);
        EXPECT_TRUE(clients[i]->closed());
        EXPECT_EQ(received[i].mid(9, 3), table[i].status) << received[i].left(200).data();
        EXPECT_TRUE(received[i].endsWith(table[i].answer.c_str())) << received[i].right(200).data();
    }
    EXPECT_TRUE(stored("SELECT id FROM information").empty());
}

}  // namespace
