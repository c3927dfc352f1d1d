#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <string>

class collector_server;

// A connection as the server sees it once it runs.
class connection_base {
public:
    virtual ~connection_base() = default;
    // The service is stopping: the reading of a request ends at once (503
    // where the client listens), an answer under way gets the grace, an
    // idle connection closes.
    virtual void stop() = 0;
};

// Serves a connection just accepted from address, over TLS when the server
// has it, to its end. counted: the server counts it against its address.
void serve_connection(collector_server& server, boost::asio::ip::tcp::socket socket,
                      const std::string& address, bool counted);

// The text of an address: IPv4 also when it came mapped into IPv6.
std::string address_text(const boost::asio::ip::address& address);
