#include "information_api/information_api.h"

namespace TarvoConsumerScanner {
namespace information_api {

// The enable-guide int is left to the implementation's constructor.
KeploInfoMgr::KeploInfoMgr() = default;
KeploInfoMgr::KeploInfoMgr(const KeploInfoMgr& other) = default;
KeploInfoMgr& KeploInfoMgr::operator=(const KeploInfoMgr& other) = default;
KeploInfoMgr::~KeploInfoMgr() = default;

}  // namespace information_api
}  // namespace TarvoConsumerScanner
