#pragma once

#include <QString>
#include <QUrl>

// Addresses on the service host. The host is a build setting; each use picks its own scheme.
class ServiceHost
{
public:
    static QString host();
    // The host without a leading "www." label, also used as the organisation domain.
    static QString bareHost();
    static QString signInHost();

    static QString httpAddress(const QString& path);
    static QString httpsAddress(const QString& path);

    static QString redirectPageAddress();
    // Query tail that marks the return from the service's sign-out.
    static QString signOutNextSuffix();
};
