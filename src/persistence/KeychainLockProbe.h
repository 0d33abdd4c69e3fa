#pragma once

#include <qcoro/qcorotask.h>

#include <chrono>

namespace glinta {

// Whether the keyring's default collection (where QtKeychain writes) is known to be locked. gnome-keyring
// answers a search in a locked collection as if the item were missing, and ignores a deletion there, so a
// "not found" is only believed once this says no. A keyring that cannot be asked within `timeout`, or a
// side that cannot ask at all, counts as unlocked.
QCoro::Task<bool> keychainKnownLocked(std::chrono::milliseconds timeout);

} // namespace glinta
