#include "persistence/LoginItem.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

LoginItemError notAvailable()
{
    return LoginItemError(u"Starting at login is not available on this system."_s);
}

} // namespace

// Qt knows no login items; a port brings its own side.
LoginItem::LoginItem() = default;

LoginItem::LoginItem(QString directory, QString program)
    : m_directory(std::move(directory)), m_program(std::move(program))
{}

QString LoginItem::filePath() const
{
    return {};
}

LoginItem::Status LoginItem::status() const
{
    return Status::notAvailable;
}

void LoginItem::registerItem()
{
    throw notAvailable();
}

void LoginItem::unregisterItem()
{
    throw notAvailable();
}

} // namespace glinta
