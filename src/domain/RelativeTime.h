#pragma once

#include <QString>

#include <chrono>

namespace glinta {

// How long ago something happened, coarse enough to read at a glance: the largest unit and the one just
// below it, as in "4 min, 12 sec" or "2 days, 3 hr", leaving out a lower unit that is zero ("1 hr"). A
// negative age (a clock behind the phone's) reads as "0 sec".
QString relativeTimeText(std::chrono::seconds age);

} // namespace glinta
