#pragma once

#include <QList>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QStringList>

class AutoSaver;
class QDataStream;
class QNetworkAccessManager;

// Persistent cookie jar on the shared file "c.ini" in the data location. Loads on first use,
// keeps only persistent cookies on disk and enciphers their values there. The web surfaces of
// the program share one jar (share()); other users make a jar of their own on the same file.
class CookieJar : public QNetworkCookieJar
{
    Q_OBJECT
    Q_PROPERTY(AcceptPolicy acceptPolicy READ acceptPolicy WRITE setAcceptPolicy)
    Q_PROPERTY(KeepPolicy keepPolicy READ keepPolicy WRITE setKeepPolicy)
    Q_PROPERTY(QStringList blockedCookies READ blockedCookies WRITE setBlockedCookies)
    Q_PROPERTY(QStringList allowedCookies READ allowedCookies WRITE setAllowedCookies)
    Q_PROPERTY(QStringList allowForSessionCookies READ allowForSessionCookies WRITE setAllowForSessionCookies)

    friend class CookieModel;

public:
    enum AcceptPolicy { AcceptAlways = 0, AcceptNever = 1, AcceptOnlyFromSitesNavigatedTo = 2 };
    Q_ENUM(AcceptPolicy)

    enum KeepPolicy { KeepUntilExpire = 0, KeepUntilExit = 1, KeepUntilTimeLimit = 2 };
    Q_ENUM(KeepPolicy)

    explicit CookieJar(QObject* parent = nullptr);
    ~CookieJar() override;

    // Gives the manager the jar every web surface alive uses, made and read at the first call.
    // The file is read and deciphered once, and no surface's save can bring back what another
    // removed (a sign-out). The jar goes, saving what is pending, with the last manager using it.
    static void share(QNetworkAccessManager* manager);

    QList<QNetworkCookie> cookiesForUrl(const QUrl& url) const override;
    bool setCookiesFromUrl(const QList<QNetworkCookie>& cookieList, const QUrl& url) override;

    AcceptPolicy acceptPolicy() const;
    void setAcceptPolicy(AcceptPolicy policy);

    KeepPolicy keepPolicy() const;
    void setKeepPolicy(KeepPolicy policy);

    QStringList blockedCookies() const;
    QStringList allowedCookies() const;
    QStringList allowForSessionCookies() const;

    void setBlockedCookies(const QStringList& list);
    void setAllowedCookies(const QStringList& list);
    void setAllowForSessionCookies(const QStringList& list);

signals:
    void cookiesChanged();

public slots:
    void clear();
    void loadSettings();

private slots:
    void save();

private:
    void load();
    void ensureLoaded() const;
    // What the end of the run does to the jar: emptied under "keep until exit", then saved.
    void finish();
    void purgeOldCookies();

    bool mLoaded;
    AutoSaver* mSaveTimer;
    AcceptPolicy mAcceptCookies;
    KeepPolicy mKeepCookies;
    QStringList mExceptionsBlock;
    QStringList mExceptionsAllow;
    QStringList mExceptionsAllowForSession;
    QString mCookiesKey;
};

// Stream form of the stored list, registered as "QList<QNetworkCookie>": version 23, a count,
// then each cookie's full raw form.
QDataStream& operator<<(QDataStream& stream, const QList<QNetworkCookie>& list);
QDataStream& operator>>(QDataStream& stream, QList<QNetworkCookie>& list);
