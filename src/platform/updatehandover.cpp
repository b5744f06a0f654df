#include "updatehandover.h"

namespace {
UpdateHandOver*& installedHandOver()
{
    static UpdateHandOver* handOver = nullptr;
    return handOver;
}
} // namespace

UpdateHandOver* UpdateHandOver::instance()
{
    UpdateHandOver* handOver = installedHandOver();
    return handOver ? handOver : systemHandOver();
}

void UpdateHandOver::setInstance(UpdateHandOver* handOver)
{
    installedHandOver() = handOver;
}
