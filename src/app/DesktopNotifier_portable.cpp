#include "app/DesktopNotifier.h"

#include <utility>

namespace glinta {

// No notification server to talk to: every alert goes to the fallback, and nothing offers a snooze.
class DesktopNotifier::Server
{};

DesktopNotifier::DesktopNotifier(QImage, Fallback fallback, QObject *parent)
    : QObject(parent), m_fallback(std::move(fallback))
{}

DesktopNotifier::~DesktopNotifier() = default;

void DesktopNotifier::show(AlertKind, const Notice &notice)
{
    if (m_fallback)
        m_fallback(notice);
}

void DesktopNotifier::close(AlertKind) {}

} // namespace glinta
