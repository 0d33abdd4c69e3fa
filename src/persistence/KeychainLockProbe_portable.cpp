#include "persistence/KeychainLockProbe.h"

namespace glinta {

// Keychains elsewhere report a locked one as an error of its own, not as a missing item.
QCoro::Task<bool> keychainKnownLocked(std::chrono::milliseconds)
{
    co_return false;
}

} // namespace glinta
