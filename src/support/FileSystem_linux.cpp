#include "support/FileSystem.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <unistd.h>

namespace glinta {

std::optional<QString> syncToDisk(const QFileDevice &file)
{
    if (::fsync(file.handle()) != 0)
        return qt_error_string(errno);
    return std::nullopt;
}

std::optional<QString> writeRefusal(const QString &path)
{
    if (::access(QFile::encodeName(path).constData(), W_OK) != 0 && errno != ENOENT)
        return qt_error_string(errno);
    if (::access(QFile::encodeName(QFileInfo(path).absolutePath()).constData(), W_OK) != 0)
        return qt_error_string(errno);
    return std::nullopt;
}

} // namespace glinta
