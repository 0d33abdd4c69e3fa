#include "widget/TimelineProvider.h"

#include "snapshot/SharedSnapshotStore.h"
#include "support/Clock.h"

namespace glinta {

TimelineProvider::TimelineProvider(SharedSnapshotStore *store, Clock *clock, QObject *parent)
    : QObject(parent), m_store(store), m_clock(clock)
{}

TimelineProvider::~TimelineProvider()
{
    if (m_ticks)
        m_ticks->cancel();
}

void TimelineProvider::start()
{
    if (m_ticks)
        return;
    m_ticks = CancellationToken();
    reload();
    minuteLoop(this, *m_ticks);
}

void TimelineProvider::reload()
{
    m_ticksSinceRead = 0;
    publish({m_clock->now(), m_store->read()});
}

void TimelineProvider::tick()
{
    // With a snapshot the file changes only with a reload, so the tick just moves the entry on, reading
    // again now and then in case a reload never arrives (no session bus); without one it looks again at
    // once, in case the reload came before this process was listening.
    if (m_entry && m_entry->snapshot && ++m_ticksSinceRead < ticksBetweenReads)
        publish({m_clock->now(), m_entry->snapshot});
    else
        reload();
}

void TimelineProvider::publish(GlucoseEntry entry)
{
    m_entry = std::move(entry);
    Q_EMIT entryChanged(*m_entry);
}

QCoro::Task<void> TimelineProvider::minuteLoop(QPointer<TimelineProvider> self, CancellationToken cancel)
{
    for (;;) {
        if (!self || cancel.isCancelled())
            co_return;
        Clock *clock = self->m_clock;
        try {
            co_await clock->sleep(entryInterval, cancel);
        } catch (const CancelledError &) {
            co_return;
        }
        if (!self || cancel.isCancelled())
            co_return;
        self->tick();
    }
}

} // namespace glinta
