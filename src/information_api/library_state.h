#pragma once

#include "api_thread.h"
#include "connection_registry.h"
#include "information_api/information_api.h"

namespace TarvoConsumerScanner {
namespace information_api {

// The library's process-wide state. Touched only from the host's calling
// thread, so nothing here is locked.
struct library_state {
    api_thread* worker = nullptr;
    KeploInfoMgr* manager = nullptr;
    connection_registry connections;
};

library_state& state();

}  // namespace information_api
}  // namespace TarvoConsumerScanner
