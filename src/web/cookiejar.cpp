#include "cookiejar.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDataStream>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QMetaEnum>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QSettings>
#include <QStandardPaths>
#include <QWebSettings>

#include <algorithm>

#include "core/logger.h"
#include "web/autosaver.h"
#include "web/simplecrypt.h"

namespace {

const QString logModule = QStringLiteral("cookiejar");
const QString fileName = QStringLiteral("/c.ini");
const qint32 streamVersion = 23;
const int timeLimitDays = 90;

QPointer<CookieJar> sharedJar;
int sharedJarUsers = 0;

const QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

bool privateBrowsing()
{
    return QWebSettings::globalSettings()->testAttribute(QWebSettings::PrivateBrowsingEnabled);
}

bool containsHost(const QStringList& sortedHosts, const QString& host)
{
    return std::binary_search(sortedHosts.constBegin(), sortedHosts.constEnd(), host);
}

// Value on disk: Base64 of the real value, enciphered by the shared cipher, stored as UTF-8.
QByteArray encipherValue(const QByteArray& value)
{
    return encryptSharedText(QString::fromLatin1(value.toBase64())).toUtf8();
}

// A value that fails to decipher comes back empty; the cookie itself is kept.
QByteArray decipherValue(const QByteArray& stored)
{
    return QByteArray::fromBase64(decryptSharedText(QString::fromUtf8(stored)).toLatin1());
}

// The stored cookie with the given value and every other attribute carried over.
QNetworkCookie withValue(const QNetworkCookie& cookie, const QByteArray& value)
{
    QNetworkCookie copy(cookie.name(), value);
    copy.setDomain(cookie.domain());
    copy.setExpirationDate(cookie.expirationDate());
    copy.setHttpOnly(cookie.isHttpOnly());
    copy.setPath(cookie.path());
    copy.setSecure(cookie.isSecure());
    return copy;
}

QString loadPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::DataLocation) + fileName;
}

QString savePath()
{
    QString directory = QStandardPaths::writableLocation(QStandardPaths::DataLocation);
    if (directory.isEmpty())
        directory = QDir::homePath() + QStringLiteral("/.") + QCoreApplication::applicationName();
    if (!QFile::exists(directory))
        QDir().mkpath(directory);
    return directory + fileName;
}

bool isOwnerOnly(const QString& path)
{
    // QFile reports the current user's bits as well; only owner, group and others matter here.
    const QFileDevice::Permissions mask = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
        | QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther
        | QFileDevice::WriteOther | QFileDevice::ExeOther;
    return (QFile::permissions(path) & mask) == ownerOnly;
}

// The file holds the user's session. It is made empty and private before anything is written to
// it, and checked again after each write because QSettings replaces the file by rename.
void createPrivateFile(const QString& path)
{
    if (QFile::exists(path))
        return;
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.close();
    file.setPermissions(ownerOnly);
}

void keepPrivate(const QString& path)
{
    if (QFile::exists(path) && !isOwnerOnly(path))
        QFile::setPermissions(path, ownerOnly);
}

template <typename Enum> Enum enumFromName(const QString& name, Enum fallback)
{
    const int value = QMetaEnum::fromType<Enum>().keyToValue(name.toLatin1().constData());
    return value == -1 ? fallback : Enum(value);
}

template <typename Enum> QString enumName(Enum value)
{
    return QString::fromLatin1(QMetaEnum::fromType<Enum>().valueToKey(value));
}

} // namespace

QDataStream& operator<<(QDataStream& stream, const QList<QNetworkCookie>& list)
{
    stream << streamVersion;
    stream << qint32(list.size());
    for (const QNetworkCookie& cookie : list)
        stream << cookie.toRawForm(QNetworkCookie::Full);
    return stream;
}

QDataStream& operator>>(QDataStream& stream, QList<QNetworkCookie>& list)
{
    list.clear();

    qint32 version = 0;
    stream >> version;
    if (version != streamVersion)
        return stream;

    qint32 count = 0;
    stream >> count;
    for (qint32 i = 0; i < count; ++i) {
        QByteArray raw;
        stream >> raw;
        const QList<QNetworkCookie> parsed = QNetworkCookie::parseCookies(raw);
        if (parsed.isEmpty() && !raw.isEmpty())
            Logger::Warn(
                logModule, QStringLiteral("CookieJar: Unable to parse saved cookie: ") + QString::fromLatin1(raw));
        list += parsed;
        // A stream that ends early, or whose count is a lie, stops here.
        if (stream.atEnd() || stream.status() != QDataStream::Ok)
            break;
    }
    return stream;
}

CookieJar::CookieJar(QObject* parent)
    : QNetworkCookieJar(parent)
    , mLoaded(false)
    , mSaveTimer(new AutoSaver(this))
    , mAcceptCookies(AcceptOnlyFromSitesNavigatedTo)
    , mKeepCookies(KeepUntilExpire)
    , mCookiesKey(QString::fromLatin1(
          QCryptographicHash::hash(QByteArrayLiteral("cookies"), QCryptographicHash::Md5).toHex()))
{
}

CookieJar::~CookieJar()
{
    finish();
}

void CookieJar::finish()
{
    if (mKeepCookies == KeepUntilExit)
        clear();
    mSaveTimer->saveIfNecessary();
}

void CookieJar::share(QNetworkAccessManager* manager)
{
    if (!sharedJar) {
        sharedJar = new CookieJar();
        // A surface may outlive the event loop (a popup still open at quit): what is pending is
        // written when the program leaves its loop, not left to the last surface's end.
        if (QCoreApplication::instance()) {
            QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, sharedJar,
                [jar = sharedJar.data()] { jar->finish(); });
        }
    }
    manager->setCookieJar(sharedJar);
    // The manager adopts the jar it is given; this one belongs to all of them.
    sharedJar->setParent(nullptr);
    ++sharedJarUsers;
    QObject::connect(manager, &QObject::destroyed, [] {
        if (--sharedJarUsers == 0)
            delete sharedJar.data();
    });
}

void CookieJar::clear()
{
    setAllCookies(QList<QNetworkCookie>());
    mSaveTimer->changeOccurred();
    emit cookiesChanged();
}

void CookieJar::load()
{
    if (mLoaded)
        return;

    qRegisterMetaTypeStreamOperators<QList<QNetworkCookie>>("QList<QNetworkCookie>");

    QSettings cookieSettings(loadPath(), QSettings::IniFormat);
    // Taken directly when the type matches, else through conversion; absent or alien gives none.
    const QList<QNetworkCookie> storedCookies = cookieSettings.value(mCookiesKey).value<QList<QNetworkCookie>>();

    QList<QNetworkCookie> cookies;
    cookies.reserve(storedCookies.size());
    // What expired while the program was not running leaves the file at the next save.
    const QDateTime now = QDateTime::currentDateTime();
    for (const QNetworkCookie& cookie : storedCookies) {
        if (!cookie.isSessionCookie() && cookie.expirationDate() < now)
            mSaveTimer->changeOccurred();
        else
            cookies.append(withValue(cookie, decipherValue(cookie.value())));
    }
    setAllCookies(cookies);

    cookieSettings.beginGroup(QStringLiteral("Exceptions"));
    mExceptionsBlock = cookieSettings.value(QStringLiteral("block")).toStringList();
    mExceptionsAllow = cookieSettings.value(QStringLiteral("allow")).toStringList();
    mExceptionsAllowForSession = cookieSettings.value(QStringLiteral("allowForSession")).toStringList();
    mExceptionsBlock.sort();
    mExceptionsAllow.sort();
    mExceptionsAllowForSession.sort();

    loadSettings();
}

void CookieJar::loadSettings()
{
    // Read from the digest-named group while save() writes to "cookies": a changed policy does
    // not outlive the run, every start begins from the defaults.
    QSettings settings;
    settings.beginGroup(mCookiesKey);
    mAcceptCookies = enumFromName(
        settings.value(QStringLiteral("acceptCookies"), QStringLiteral("AcceptOnlyFromSitesNavigatedTo")).toString(),
        AcceptOnlyFromSitesNavigatedTo);
    mKeepCookies = enumFromName(
        settings.value(QStringLiteral("keepCookiesUntil"), QStringLiteral("KeepUntilExpire")).toString(),
        KeepUntilExpire);
    if (mKeepCookies == KeepUntilExit)
        setAllCookies(QList<QNetworkCookie>());
    mLoaded = true;
    emit cookiesChanged();
}

void CookieJar::save()
{
    if (!mLoaded)
        return;
    purgeOldCookies();

    const QString path = savePath();
    createPrivateFile(path);
    {
        QSettings cookieSettings(path, QSettings::IniFormat);
        const QList<QNetworkCookie> cookies = allCookies();
        QList<QNetworkCookie> stored;
        for (int i = cookies.count() - 1; i >= 0; --i) {
            const QNetworkCookie& cookie = cookies.at(i);
            if (cookie.isSessionCookie())
                continue;
            stored.append(withValue(cookie, encipherValue(cookie.value())));
        }
        cookieSettings.setValue(mCookiesKey, QVariant::fromValue(stored));

        cookieSettings.beginGroup(QStringLiteral("Exceptions"));
        cookieSettings.setValue(QStringLiteral("block"), mExceptionsBlock);
        cookieSettings.setValue(QStringLiteral("allow"), mExceptionsAllow);
        cookieSettings.setValue(QStringLiteral("allowForSession"), mExceptionsAllowForSession);
        cookieSettings.endGroup();
        cookieSettings.sync();
    }
    keepPrivate(path);

    QSettings settings;
    settings.beginGroup(QStringLiteral("cookies"));
    settings.setValue(QStringLiteral("acceptCookies"), enumName(mAcceptCookies));
    settings.setValue(QStringLiteral("keepCookiesUntil"), enumName(mKeepCookies));
}

void CookieJar::purgeOldCookies()
{
    QList<QNetworkCookie> cookies = allCookies();
    if (cookies.isEmpty())
        return;
    const int oldCount = cookies.count();
    const QDateTime now = QDateTime::currentDateTime();
    for (int i = cookies.count() - 1; i >= 0; --i) {
        if (!cookies.at(i).isSessionCookie() && cookies.at(i).expirationDate() < now)
            cookies.removeAt(i);
    }
    if (oldCount == cookies.count())
        return;
    setAllCookies(cookies);
    emit cookiesChanged();
}

void CookieJar::ensureLoaded() const
{
    // Loading is invisible to callers, hence allowed from the const accessors.
    if (!mLoaded)
        const_cast<CookieJar*>(this)->load();
}

QList<QNetworkCookie> CookieJar::cookiesForUrl(const QUrl& url) const
{
    ensureLoaded();
    if (privateBrowsing())
        return QList<QNetworkCookie>();
    return QNetworkCookieJar::cookiesForUrl(url);
}

bool CookieJar::setCookiesFromUrl(const QList<QNetworkCookie>& cookieList, const QUrl& url)
{
    ensureLoaded();
    if (privateBrowsing())
        return false;

    const QString host = url.host();
    const bool eBlock = containsHost(mExceptionsBlock, host);
    const bool eAllow = containsHost(mExceptionsAllow, host);
    const bool eAllowSession = containsHost(mExceptionsAllowForSession, host);

    const bool acceptInitially = mAcceptCookies != AcceptNever;
    if (!((acceptInitially && !eBlock) || (!acceptInitially && (eAllow || eAllowSession))))
        return false;

    const QDateTime soon = QDateTime::currentDateTime().addDays(timeLimitDays);
    bool addedCookies = false;
    bool removedCookies = false;
    for (QNetworkCookie cookie : cookieList) {
        if (mKeepCookies == KeepUntilTimeLimit && !cookie.isSessionCookie() && cookie.expirationDate() > soon)
            cookie.setExpirationDate(soon);

        // An expired cookie is the server's way to delete one (sign-out): the base class removes
        // the match and answers false, and the removal must reach the file as an addition does.
        const int countBefore = allCookies().size();
        if (QNetworkCookieJar::setCookiesFromUrl(QList<QNetworkCookie>() << cookie, url)) {
            addedCookies = true;
        } else if (allCookies().size() < countBefore) {
            removedCookies = true;
        } else if (mAcceptCookies == AcceptAlways) {
            // Forces in a cookie that the domain rules of the base class turned down.
            setAllCookies(allCookies() << cookie);
            addedCookies = true;
        }
    }

    if (addedCookies || removedCookies) {
        mSaveTimer->changeOccurred();
        emit cookiesChanged();
    }
    return addedCookies;
}

CookieJar::AcceptPolicy CookieJar::acceptPolicy() const
{
    ensureLoaded();
    return mAcceptCookies;
}

void CookieJar::setAcceptPolicy(AcceptPolicy policy)
{
    ensureLoaded();
    if (policy == mAcceptCookies)
        return;
    mAcceptCookies = policy;
    mSaveTimer->changeOccurred();
}

CookieJar::KeepPolicy CookieJar::keepPolicy() const
{
    ensureLoaded();
    return mKeepCookies;
}

void CookieJar::setKeepPolicy(KeepPolicy policy)
{
    ensureLoaded();
    if (policy == mKeepCookies)
        return;
    mKeepCookies = policy;
    mSaveTimer->changeOccurred();
}

QStringList CookieJar::blockedCookies() const
{
    ensureLoaded();
    return mExceptionsBlock;
}

QStringList CookieJar::allowedCookies() const
{
    ensureLoaded();
    return mExceptionsAllow;
}

QStringList CookieJar::allowForSessionCookies() const
{
    ensureLoaded();
    return mExceptionsAllowForSession;
}

void CookieJar::setBlockedCookies(const QStringList& list)
{
    ensureLoaded();
    mExceptionsBlock = list;
    mExceptionsBlock.sort();
    mSaveTimer->changeOccurred();
}

void CookieJar::setAllowedCookies(const QStringList& list)
{
    ensureLoaded();
    mExceptionsAllow = list;
    mExceptionsAllow.sort();
    mSaveTimer->changeOccurred();
}

void CookieJar::setAllowForSessionCookies(const QStringList& list)
{
    ensureLoaded();
    mExceptionsAllowForSession = list;
    mExceptionsAllowForSession.sort();
    mSaveTimer->changeOccurred();
}
