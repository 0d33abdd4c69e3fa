#pragma once

#include "support/Cancellation.h"

#include <QObject>

#include <qcoro/qcorotask.h>

#include <chrono>

namespace glinta {

// Settled once, by whichever comes first. The sleeping coroutine then goes on from the event loop: never
// from inside cancel(), nor from inside the signal of a notifier or timer it is about to destroy.
class SleepWake : public QObject
{
    Q_OBJECT

public:
    void settle();

Q_SIGNALS:
    void settled();

private:
    bool m_settled = false;
};

struct DeleteLaterDeleter
{
    void operator()(QObject *object) const { object->deleteLater(); }
};

// A pause on a QTimer, which stops counting while the computer sleeps. Throws CancelledError as soon as
// `cancel` fires. Touches no clock object, which may be gone before the pause ends.
QCoro::Task<void> timerSleep(std::chrono::milliseconds duration, CancellationToken cancel);

} // namespace glinta
