#include "support/QuitSignals.h"

namespace glinta {

// Qt offers no portable way to catch a request to end; the program quits through its event loop as usual,
// and aboutToQuit runs the clean-up.
QuitSignals::QuitSignals(QObject *parent) : QObject(parent) {}

QuitSignals::~QuitSignals() = default;

} // namespace glinta
