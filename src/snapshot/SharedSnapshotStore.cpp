#include "snapshot/SharedSnapshotStore.h"

#include "support/DecodingError.h"
#include "support/FileSystem.h"
#include "support/Logging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr QFileDevice::Permissions ownerOnlyFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr QFileDevice::Permissions ownerOnlyDirectory =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

// Like mkpath, but every directory it makes is owner-only, as XDG asks of data directories.
bool makeDirectory(const QString &path)
{
    const QFileInfo info(path);
    if (info.isDir())
        return true;
    if (info.exists() || info.isSymLink())
        return false;
    const QString parent = info.absolutePath();
    if (parent == path || !makeDirectory(parent))
        return false;
    // The other program may have made it in the meantime.
    return QDir().mkdir(path, ownerOnlyDirectory) || QFileInfo(path).isDir();
}

QString sentenceReason(QString reason)
{
    if (reason.isEmpty())
        return u"unknown error"_s;
    while (reason.endsWith(u'.'))
        reason.chop(1);
    return reason;
}

} // namespace

QString SharedSnapshotStore::StoreError::description() const
{
    switch (m_kind) {
    case Kind::containerUnavailable:
        return u"The app group container "_s + containerIdentifier +
               u" is unavailable. Check the App Groups entitlement."_s;
    }
    Q_UNREACHABLE();
    return {};
}

SharedSnapshotStore::FileError::FileError(Operation operation, QString reason)
    : m_operation(operation), m_reason(sentenceReason(std::move(reason)))
{}

QString SharedSnapshotStore::FileError::description() const
{
    QString verb;
    switch (m_operation) {
    case Operation::writing:
        verb = u"write"_s;
        break;
    case Operation::removing:
        verb = u"remove"_s;
        break;
    case Operation::reading:
        verb = u"read"_s;
        break;
    }
    return u"Could not "_s + verb + u" the widget snapshot: "_s + m_reason + u'.';
}

QString SharedSnapshotStore::defaultContainerParent()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}

SharedSnapshotStore::SharedSnapshotStore(QString containerParent)
    : m_containerParent(std::move(containerParent))
{}

QString SharedSnapshotStore::fileURL() const
{
    if (m_containerParent.isEmpty())
        throw StoreError::containerUnavailable();
    const QString container = QDir::cleanPath(QDir(m_containerParent).absoluteFilePath(containerIdentifier));
    if (!makeDirectory(container))
        throw StoreError::containerUnavailable();
    return container + u'/' + fileName;
}

void SharedSnapshotStore::write(const GlucoseSnapshot &snapshot) const
{
    const QByteArray bytes = encodeSnapshot(snapshot);
    const QString path = fileURL();
    const auto fail = [](const QString &reason) { return FileError(FileError::Operation::writing, reason); };

    // QSaveFile writes a temporary file beside the target and renames it over the old one in commit(); on
    // any failure before that, its destructor removes the temporary file. Unbuffered, because it only
    // notices a write that fails inside write(): a buffer that fails to flush in commit() goes unnoticed,
    // and the short file replaces the good one.
    QSaveFile file(path);
    // The system's reason, when it has one, names the cause; QSaveFile's message only the path.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        throw fail(writeRefusal(path).value_or(file.errorString()));
    // It would copy the permissions of the file it replaces, or take the umask's; health data is the
    // owner's alone whatever was there before.
    if (!file.setPermissions(ownerOnlyFile))
        throw fail(file.errorString());
    if (file.write(bytes) != bytes.size())
        throw fail(file.errorString());
    if (const std::optional<QString> reason = syncToDisk(file))
        throw fail(*reason);
    if (!file.commit())
        throw fail(file.errorString());
}

void SharedSnapshotStore::clear() const
{
    const QString path = fileURL();
    QFile file(path);
    if (file.remove())
        return;
    const QFileInfo info(path);
    if (info.exists() || info.isSymLink())
        throw FileError(FileError::Operation::removing, file.errorString());
}

std::optional<GlucoseSnapshot> SharedSnapshotStore::read() const
{
    QString problem;
    try {
        const QString path = fileURL();
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            if (!QFileInfo::exists(path)) {
                m_lastReadProblem.clear();
                return std::nullopt;
            }
            throw FileError(FileError::Operation::reading, file.errorString());
        }
        // One byte past the cap is enough to know the file is too large; asking read() for the cap would
        // allocate all of it on every call.
        const qint64 limit = maximumSnapshotFileSize + 1;
        const QByteArray bytes = file.size() < limit ? file.readAll() : file.read(limit);
        if (file.error() != QFileDevice::NoError)
            throw FileError(FileError::Operation::reading, file.errorString());
        GlucoseSnapshot snapshot = decodeSnapshot(bytes);
        m_lastReadProblem.clear();
        return snapshot;
    } catch (const FileError &error) {
        problem = error.description();
    } catch (const Error &error) {
        problem = u"Could not read the widget snapshot: "_s + error.description();
    }
    // A reader that looks again every minute says it once, not every minute.
    if (problem != m_lastReadProblem)
        qCCritical(lcGlucoseStore).noquote() << problem;
    m_lastReadProblem = problem;
    return std::nullopt;
}

} // namespace glinta
