#include "persistence/LoginItem.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>
#include <utility>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

// Makes the directory and any missing parents owner-only, as XDG asks of directories an application
// creates. QDir::mkpath would do the same but keeps the system's reason to itself.
void makeDirectory(const QString &path)
{
    const QFileInfo info(path);
    if (info.isDir())
        return;
    const QString parent = info.absolutePath();
    if (parent != info.absoluteFilePath())
        makeDirectory(parent);
    if (::mkdir(QFile::encodeName(path).constData(), 0700) == 0)
        return;
    const int error = errno;
    if (error == EEXIST && QFileInfo(path).isDir())
        return;
    // Something that is not a directory already has the name.
    throw LoginItemError(qt_error_string(error == EEXIST ? ENOTDIR : error));
}

// The program as one argument of an Exec key: quoted when it holds a reserved character, with `"`, `` ` ``,
// `$` and `\` escaped inside the quotes; then `%` doubled so it is no field code; then the escapes every
// string value gets, which double each backslash once more.
QString execArgument(const QString &program)
{
    static const QString reserved = u" \t\n\"'\\><~|&;$*?#`()"_s;
    const bool needsQuotes =
        std::any_of(program.cbegin(), program.cend(), [](QChar c) { return reserved.contains(c); });

    QString argument;
    if (needsQuotes) {
        argument += u'"';
        for (const QChar c : program) {
            if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
                argument += u'\\';
            argument += c;
        }
        argument += u'"';
    } else {
        argument = program;
    }
    argument.replace(u'%', u"%%"_s);

    QString value;
    for (const QChar c : std::as_const(argument)) {
        switch (c.unicode()) {
        case u'\\':
            value += u"\\\\"_s;
            break;
        case u'\n':
            value += u"\\n"_s;
            break;
        case u'\t':
            value += u"\\t"_s;
            break;
        case u'\r':
            value += u"\\r"_s;
            break;
        default:
            value += c;
        }
    }
    return value;
}

QByteArray desktopEntry(const QString &program)
{
    const QString entry = u"[Desktop Entry]\n"
                          u"Type=Application\n"
                          u"Name=Glinta\n"
                          u"Comment=Your LibreLinkUp glucose reading in the system tray\n"
                          u"Exec="_s +
                          execArgument(program) +
                          u"\n"
                          u"Icon=com.nordvik.glinta\n"
                          u"Terminal=false\n"
                          u"X-GNOME-Autostart-enabled=true\n"
                          u"NoDisplay=false\n"_s;
    return entry.toUtf8();
}

} // namespace

// The XDG autostart entry $XDG_CONFIG_HOME/autostart/glinta.desktop; "enabled" means it is there and not
// switched off.
LoginItem::LoginItem()
{
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    if (!config.isEmpty())
        m_directory = config + u"/autostart"_s;
    m_program = QCoreApplication::applicationFilePath();
}

LoginItem::LoginItem(QString directory, QString program)
    : m_directory(std::move(directory)), m_program(std::move(program))
{}

QString LoginItem::filePath() const
{
    return m_directory.isEmpty() ? QString() : QDir(m_directory).filePath(u"glinta.desktop"_s);
}

LoginItem::Status LoginItem::status() const
{
    const QString path = filePath();
    if (path.isEmpty() || !QFileInfo(path).isFile())
        return Status::notRegistered;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return Status::notRegistered;

    // The desktop's startup settings switch an entry off without removing it: the XDG way is Hidden=true,
    // GNOME's own is X-GNOME-Autostart-enabled=false. Either means Glinta will not start.
    bool inDesktopEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inDesktopEntry = line == u"[Desktop Entry]";
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inDesktopEntry || line.startsWith(u'#') || equals < 0)
            continue;
        const QString key = line.first(equals).trimmed();
        const QString value = line.sliced(equals + 1).trimmed();
        if ((key == u"Hidden" && value == u"true") ||
            (key == u"X-GNOME-Autostart-enabled" && value == u"false"))
            return Status::notRegistered;
    }
    return Status::enabled;
}

void LoginItem::registerItem()
{
    if (m_directory.isEmpty())
        throw LoginItemError(qt_error_string(ENOENT));
    makeDirectory(QFileInfo(m_directory).absoluteFilePath());

    const QByteArray entry = desktopEntry(m_program);
    // Unbuffered, so a failed write shows in write() rather than being lost in commit()'s flush.
    QSaveFile file(filePath());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        throw LoginItemError(file.errorString());
    if (file.write(entry) != entry.size() || !file.commit())
        throw LoginItemError(file.errorString());
}

void LoginItem::unregisterItem()
{
    const QString path = filePath();
    if (path.isEmpty())
        return;
    QFile file(path);
    if (file.remove())
        return;
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return;
    throw LoginItemError(file.errorString());
}

} // namespace glinta
