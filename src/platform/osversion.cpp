#include "osversion.h"

namespace {
OsVersionSource*& installedSource()
{
    static OsVersionSource* source = nullptr;
    return source;
}
} // namespace

OsVersionSource* OsVersionSource::instance()
{
    OsVersionSource* source = installedSource();
    return source ? source : systemSource();
}

void OsVersionSource::setInstance(OsVersionSource* source)
{
    installedSource() = source;
}
