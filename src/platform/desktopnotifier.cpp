#include "desktopnotifier.h"

namespace {
DesktopNotifier*& installedNotifier()
{
    static DesktopNotifier* notifier = nullptr;
    return notifier;
}
} // namespace

DesktopNotifier* DesktopNotifier::instance()
{
    DesktopNotifier* notifier = installedNotifier();
    return notifier ? notifier : systemNotifier();
}

void DesktopNotifier::setInstance(DesktopNotifier* notifier)
{
    installedNotifier() = notifier;
}
