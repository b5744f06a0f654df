#include "autostartentry.h"

namespace {
AutostartEntry*& installedEntry()
{
    static AutostartEntry* entry = nullptr;
    return entry;
}
} // namespace

AutostartEntry* AutostartEntry::instance()
{
    AutostartEntry* entry = installedEntry();
    return entry ? entry : systemEntry();
}

void AutostartEntry::setInstance(AutostartEntry* entry)
{
    installedEntry() = entry;
}
