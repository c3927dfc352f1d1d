#pragma once

#include <QPointer>
#include <map>
#include <vector>

namespace TarvoConsumerScanner {
namespace information_api {

class http_connector;

// Maps the host's connection ids to the connectors serving them. Owned by the
// host's calling thread; never touched by the worker thread.
class connection_registry {
public:
    // Enters connector under id. An id already in use is taken over: the entry
    // points at the new connector and the old one is left alive, unreachable
    // from here, still reporting under the same id.
    void insert(int id, http_connector* connector);
    // Removes id, closes its connector's sink (no call reaches it after the
    // return) and schedules the connector for deletion; false if unknown.
    bool release(int id);
    // Closes the sink of every connector and schedules it for deletion, in
    // ascending id order, and empties the registry. Connectors that lost
    // their id to a takeover go too, so that teardown leaves none behind.
    void release_all();
    http_connector* find(int id) const;
    std::size_t size() const { return connectors_.size(); }

private:
    std::map<int, http_connector*> connectors_;
    std::vector<QPointer<http_connector>> taken_over_;
};

}  // namespace information_api
}  // namespace TarvoConsumerScanner
