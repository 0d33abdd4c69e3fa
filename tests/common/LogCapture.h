#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// Records every Qt log message while alive, with its category, so tests can assert exact log lines and
// that secrets never reach the log. Installs itself as the message handler; restores the previous one.
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
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    QList<Entry> entries() const
    {
        QMutexLocker lock(&m_mutex);
        return m_entries;
    }

    QList<Entry> inCategory(const QString &category) const
    {
        QList<Entry> matching;
        for (const Entry &entry : entries()) {
            if (entry.category == category)
                matching.append(entry);
        }
        return matching;
    }

    // "info: …", "warning: …" or "critical: …" for each message of com.nordvik.glinta.<category>.
    QStringList lines(const QString &category) const
    {
        static const QStringList levels{u"debug: "_qs, u"warning: "_qs, u"critical: "_qs, u"fatal: "_qs,
                                        u"info: "_qs};
        QStringList lines;
        for (const Entry &entry : inCategory(u"com.nordvik.glinta."_qs + category))
            lines.append(levels.value(entry.type) + entry.message);
        return lines;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        LogCapture *self = s_current;
        if (!self)
            return;
        {
            QMutexLocker lock(&self->m_mutex);
            self->m_entries.append(
                {type, QString::fromUtf8(context.category ? context.category : ""), message});
        }
        if (self->m_previous)
            self->m_previous(type, context, message);
    }

    static inline LogCapture *s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QList<Entry> m_entries;
};
