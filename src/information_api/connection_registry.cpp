#include "connection_registry.h"

#include "http/http_connector.h"

namespace TarvoConsumerScanner {
namespace information_api {

void connection_registry::insert(int id, http_connector* connector) {
    http_connector*& entry = connectors_[id];
    if (entry) taken_over_.emplace_back(entry);
    entry = connector;
}

bool connection_registry::release(int id) {
    auto it = connectors_.lower_bound(id);
    if (it == connectors_.end() || it->first != id) return false;
    it->second->close_sink();
    it->second->deleteLater();
    connectors_.erase(it);
    return true;
}

void connection_registry::release_all() {
    for (auto& entry : connectors_) {
        entry.second->close_sink();
        entry.second->deleteLater();
    }
    connectors_.clear();
    for (const QPointer<http_connector>& orphan : taken_over_) {
        if (!orphan) continue;
        orphan->close_sink();
        orphan->deleteLater();
    }
    taken_over_.clear();
}

http_connector* connection_registry::find(int id) const {
    auto it = connectors_.lower_bound(id);
    return it == connectors_.end() || it->first != id ? nullptr : it->second;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
