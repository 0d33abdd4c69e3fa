#pragma once

#include <QList>
#include <QString>
#include <QStringView>

#include <compare>
#include <optional>

namespace glinta {

// The app version sent to LibreLinkUp in the "version" header. Only plain dotted numbers are taken, so
// a hostile answer can never put anything else into a header.
class AppVersion
{
public:
    // The version Glinta was built to send.
    static AppVersion builtIn();
    // "4.16.0": two to four parts, each one to six ASCII digits.
    static std::optional<AppVersion> parse(QStringView text);

    QString toString() const;

    // Part by part; a missing part counts as 0 ("4.17" equals "4.17.0").
    friend std::strong_ordering operator<=>(const AppVersion &a, const AppVersion &b);
    friend bool operator==(const AppVersion &a, const AppVersion &b) { return (a <=> b) == 0; }

private:
    explicit AppVersion(QList<int> parts) : m_parts(std::move(parts)) {}

    QList<int> m_parts;
};

} // namespace glinta
