#pragma once

#include <QFileDevice>
#include <QString>

#include <optional>

namespace glinta {

// Flushes what was written to `file` through to the disk. QSaveFile::commit() syncs too but ignores a
// failure, and that is where a file system that allocates late reports a full disk. The system's reason
// when it failed; none when it worked, or where the side has no such call (commit()'s sync is all there is).
std::optional<QString> syncToDisk(const QFileDevice &file);

// The system's reason why `path` cannot be written, or made in its directory; none when it would be
// allowed or the side cannot tell. Qt's own messages name the path but not the cause.
std::optional<QString> writeRefusal(const QString &path);

} // namespace glinta
