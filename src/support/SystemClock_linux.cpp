#include "support/Clock.h"
#include "support/Logging.h"
#include "support/TimerSleep.h"

#include <QSocketNotifier>

#include <qcoro/qcorosignal.h>

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <utility>

using namespace std::chrono_literals;

namespace glinta {

namespace {

// Closes the descriptor on every way out of the coroutine.
class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    int get() const { return m_fd; }

private:
    int m_fd;
};

// -1 when the system will not give us one (an old kernel, a sandbox, no descriptors left).
int armBoottimeTimer(std::chrono::milliseconds duration)
{
    const int fd = ::timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    itimerspec setting{};
    setting.it_value.tv_sec = static_cast<time_t>(duration / 1s);
    setting.it_value.tv_nsec = static_cast<long>(std::chrono::nanoseconds(duration % 1s).count());
    if (fd >= 0 && ::timerfd_settime(fd, 0, &setting, nullptr) == 0)
        return fd;

    const int error = errno;
    if (fd >= 0)
        ::close(fd);
    static std::once_flag told;
    std::call_once(told, [error] {
        qCInfo(lcGlucoseStore, "No CLOCK_BOOTTIME timer (%s); pauses stop counting while the computer sleeps",
               qUtf8Printable(qt_error_string(error)));
    });
    return -1;
}

// Touches nothing of the clock, which may be gone before the sleep ends.
QCoro::Task<void> boottimeSleep(std::chrono::milliseconds duration, CancellationToken cancel)
{
    const bool arm = duration > 0ms && !cancel.isCancelled();
    const Descriptor timer(arm ? armBoottimeTimer(duration) : -1);
    if (arm && timer.get() < 0) {
        co_await timerSleep(duration, cancel);
        co_return;
    }

    const std::unique_ptr<SleepWake, DeleteLaterDeleter> wake(new SleepWake);
    const auto registration = cancel.onCancel([w = wake.get()] { w->settle(); });
    // Declared after the descriptor, so that it stops watching before the descriptor closes: a closed
    // number is soon reused by another sleep's timer.
    std::unique_ptr<QSocketNotifier> notifier;
    if (timer.get() >= 0) {
        notifier = std::make_unique<QSocketNotifier>(timer.get(), QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, wake.get(),
                         [fd = timer.get(), n = notifier.get(), w = wake.get()] {
                             std::uint64_t expirations = 0;
                             if (::read(fd, &expirations, sizeof expirations) < 0 &&
                                 (errno == EAGAIN || errno == EINTR))
                                 return;
                             // Any other failure ends the pause too: the notifier would fire forever.
                             n->setEnabled(false);
                             w->settle();
                         });
    } else {
        wake->settle();
    }

    co_await qCoro(wake.get(), &SleepWake::settled);
    cancel.throwIfCancelled();
}

class BoottimeClock final : public Clock
{
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }

    QCoro::Task<void> sleep(std::chrono::milliseconds duration, CancellationToken cancel) override
    {
        return boottimeSleep(duration, std::move(cancel));
    }
};

} // namespace

std::unique_ptr<Clock> makeSystemClock()
{
    return std::make_unique<BoottimeClock>();
}

} // namespace glinta
