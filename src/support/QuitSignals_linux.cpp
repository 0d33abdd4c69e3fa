#include "support/QuitSignals.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace glinta {

namespace {

int pipeEnds[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    // Only async-signal-safe calls here; a full pipe already holds a wake-up.
    [[maybe_unused]] const auto written = ::write(pipeEnds[1], &byte, 1);
}

} // namespace

QuitSignals::QuitSignals(QObject *parent) : QObject(parent)
{
    if (::pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    auto notifier = std::make_unique<QSocketNotifier>(pipeEnds[0], QSocketNotifier::Read);
    connect(notifier.get(), &QSocketNotifier::activated, this, [this] {
        char buffer[16];
        while (::read(pipeEnds[0], buffer, sizeof buffer) > 0) {
        }
        Q_EMIT received();
    });
    m_watcher = std::move(notifier);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaction(signal, &action, nullptr);
}

QuitSignals::~QuitSignals()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaction(signal, &action, nullptr);
    m_watcher.reset();
    for (int &end : pipeEnds) {
        if (end >= 0)
            ::close(end);
        end = -1;
    }
}

} // namespace glinta
