#pragma once

#include "snapshot/GlucoseSnapshot.h"
#include "support/Error.h"

#include <QLatin1StringView>
#include <QString>

#include <optional>

namespace glinta {

// The one file the status-bar application and the desktop widget share. The application writes and clears
// it; the widget reads it. Every call resolves the location anew, and replacement is atomic, so a reader
// in another process sees the old file or the new one, never a mix; there is no lock.
class SharedSnapshotStore
{
public:
    class StoreError : public Error
    {
    public:
        enum class Kind
        {
            containerUnavailable,
        };

        static StoreError containerUnavailable() { return StoreError(Kind::containerUnavailable); }

        Kind kind() const { return m_kind; }
        QString description() const override;

    private:
        explicit StoreError(Kind kind) : m_kind(kind) {}

        Kind m_kind;
    };

    // The container was found but the file could not be written, removed or read; `reason` is the
    // operating system's ("No space left on device").
    class FileError : public Error
    {
    public:
        enum class Operation
        {
            writing,
            removing,
            reading,
        };

        FileError(Operation operation, QString reason);

        Operation operation() const { return m_operation; }
        QString reason() const { return m_reason; }
        QString description() const override;

    private:
        Operation m_operation;
        QString m_reason;
    };

    static constexpr QLatin1StringView containerIdentifier{"K3R8WQ5N2D.com.nordvik.glinta"};
    static constexpr QLatin1StringView fileName{"glucose-snapshot.json"};

    // The generic data directory (~/.local/share on Linux), shared by both programs.
    static QString defaultContainerParent();

    // The container is the directory `containerIdentifier` inside `containerParent`; an empty parent
    // stands for a platform that offers none.
    explicit SharedSnapshotStore(QString containerParent = defaultContainerParent());

    QString containerParent() const { return m_containerParent; }

    // Creates the container (owner-only) when missing. Throws StoreError when it cannot be found or made.
    QString fileURL() const;
    // Encodes before touching the disk, then replaces the file atomically with an owner-only one. Throws
    // SnapshotEncodingError, StoreError or FileError; on failure the previous file stays as it was.
    void write(const GlucoseSnapshot &snapshot) const;
    // A missing file is success. Throws StoreError or FileError.
    void clear() const;
    // No file means no snapshot. A file that cannot be read or decoded also gives none, with one error
    // line in the log (not repeated while the same problem persists): the widget then shows its
    // signed-out state rather than stale or broken data.
    std::optional<GlucoseSnapshot> read() const;

private:
    QString m_containerParent;
    mutable QString m_lastReadProblem;
};

} // namespace glinta
