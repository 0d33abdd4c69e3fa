#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

namespace glinta {

// Base of every error Glinta throws. The description is the one text a person sees; nothing else of an
// error reaches the user.
class Error : public std::exception
{
public:
    virtual QString description() const = 0;
    const char *what() const noexcept override;

private:
    mutable QByteArray m_what;
};

} // namespace glinta
