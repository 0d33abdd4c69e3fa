#pragma once

#include "support/Cancellation.h"
#include "widget/GlucoseEntry.h"

#include <QObject>
#include <QPointer>

#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

namespace glinta {

class Clock;
class SharedSnapshotStore;

// The widget's timeline: an entry for now at start and after every reload, then one a minute so that the
// stale mark appears on time without new data. The snapshot file is read at start, on reload(), and at a
// minute tick while the last read found nothing (so a widget that came up blank looks again after a minute
// rather than waiting for a reload that may have been sent before it started), and every quarter hour
// otherwise.
class TimelineProvider : public QObject
{
    Q_OBJECT

public:
    static constexpr std::chrono::seconds entryInterval{60};
    // With a snapshot shown, the file is read again every this many entries even without a reload.
    static constexpr int ticksBetweenReads = 15;

    TimelineProvider(SharedSnapshotStore *store, Clock *clock, QObject *parent = nullptr);
    ~TimelineProvider() override;

    // Reads the file, says the first entry and starts the minute ticks. Once only.
    void start();
    // Reads the file again and says an entry for now.
    void reload();

    // The entry said last; none before start().
    std::optional<GlucoseEntry> entry() const { return m_entry; }

Q_SIGNALS:
    void entryChanged(const glinta::GlucoseEntry &entry);

private:
    void tick();
    void publish(GlucoseEntry entry);
    static QCoro::Task<void> minuteLoop(QPointer<TimelineProvider> self, CancellationToken cancel);

    SharedSnapshotStore *m_store;
    Clock *m_clock;
    std::optional<GlucoseEntry> m_entry;
    int m_ticksSinceRead = 0;
    std::optional<CancellationToken> m_ticks;
};

} // namespace glinta
