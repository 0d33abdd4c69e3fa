#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// Every Qt log message while alive, for exact log lines and secrets kept out; restores the old handler.
class LogCapture
{
public:
    struct Entry
    {
        QtMsgType type;
        QString category;
        QString message;
    };

    LogCapture()
    {
        s_current = this;
        m_previous = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }

    QList<Entry> entries() const
    {
        QMutexLocker lock(&m_mutex);
        return m_entries;
    }

    // "info: …", "warning: …" or "critical: …" for each message of com.nordvik.glinta.<category>.
    QStringList lines(const QString &category) const
    {
        static const QStringList levels{u"debug: "_qs, u"warning: "_qs, u"critical: "_qs, u"fatal: "_qs,
                                        u"info: "_qs};
        QStringList lines;
        for (const Entry &entry : entries()) {
            if (entry.category == u"com.nordvik.glinta."_qs + category)
                lines.append(levels.value(entry.type) + entry.message);
        }
        return lines;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (LogCapture *self = s_current) {
            QMutexLocker lock(&self->m_mutex);
            self->m_entries.append({type, QString::fromUtf8(context.category), message});
            lock.unlock();
            if (self->m_previous)
                self->m_previous(type, context, message);
        }
    }

    static inline LogCapture *s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QList<Entry> m_entries;
};
