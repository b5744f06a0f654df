#include <QtTest>

#include <QSettings>
#include <QStandardPaths>

#include "web/indexwindow.h"

namespace {

void store(const QString& key, const QVariant& value)
{
    QSettings settings;
    if (value.isValid())
        settings.setValue(key, value);
    else
        settings.remove(key);
}

QVariant stored(const QString& key)
{
    return QSettings().value(key);
}

} // namespace

// The accessors the page and all native code share; called by name, as the page's script calls them.
class TestSettings : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void getSetting_data();
    void getSetting();
    void removeSetting();
    void namedAccessors_data();
    void namedAccessors();
    void soundFlag_data();
    void soundFlag();

private:
    IndexWindow* mWindow = nullptr;
};

void TestSettings::initTestCase()
{
    mWindow = new IndexWindow();
}

void TestSettings::cleanupTestCase()
{
    delete mWindow;
}

void TestSettings::getSetting_data()
{
    QTest::addColumn<QVariant>("value"); // invalid: key absent
    QTest::addColumn<QString>("defaultValue");
    QTest::addColumn<QString>("expected");

    QTest::newRow("absent gives the default") << QVariant() << "fallback" << "fallback";
    QTest::newRow("stored empty reads as absent") << QVariant(QStringLiteral("")) << "fallback" << "fallback";
    QTest::newRow("stored zero is a value") << QVariant(QStringLiteral("0")) << "1" << "0";
    QTest::newRow("stored blank is a value") << QVariant(QStringLiteral(" ")) << "fallback" << " ";
    QTest::newRow("absent with empty default") << QVariant() << "" << "";
    QTest::newRow("native int comes back as text") << QVariant(1366) << "fallback" << "1366";
    QTest::newRow("native bool comes back as text") << QVariant(true) << "fallback" << "true";
}

void TestSettings::getSetting()
{
    QFETCH(QVariant, value);
    QFETCH(QString, defaultValue);
    QFETCH(QString, expected);

    const QString key = QStringLiteral("page-own-key");
    store(key, value);
    QCOMPARE(mWindow->getSetting(key, defaultValue), expected);
    // Reading never writes.
    QCOMPARE(stored(key).isValid(), value.isValid());
    QCOMPARE(stored(key).toString(), value.toString());
}

void TestSettings::removeSetting()
{
    store(QStringLiteral("to-remove"), QStringLiteral("x"));
    mWindow->removeSetting(QStringLiteral("to-remove"));
    QVERIFY(!stored(QStringLiteral("to-remove")).isValid());
    mWindow->removeSetting(QStringLiteral("never-there"));
    QVERIFY(!QSettings().contains(QStringLiteral("never-there")));
}

void TestSettings::namedAccessors_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QByteArray>("setter");
    QTest::addColumn<QByteArray>("getter");
    QTest::addColumn<QString>("defaultValue");

    const QString downloads = QStandardPaths::standardLocations(QStandardPaths::DownloadLocation).value(0);
    QTest::newRow("download folder") << "DefaultDownloadLocationKey" << QByteArray("setDefaultDownloadLocationSetting")
                                     << QByteArray("getDefaultDownloadLocationSetting") << downloads;
    QTest::newRow("notification kind") << "native-notification-setting" << QByteArray("setNativeNotificationSetting")
                                       << QByteArray("getNativeNotificationSetting") << "quick-reply-notification";
    QTest::newRow("notification sound") << "notification-sound" << QByteArray("setNotificationSoundSetting")
                                        << QByteArray("getNotificationSoundSetting") << "default";
}

void TestSettings::namedAccessors()
{
    QFETCH(QString, key);
    QFETCH(QByteArray, setter);
    QFETCH(QByteArray, getter);
    QFETCH(QString, defaultValue);

    QVERIFY(!defaultValue.isEmpty());
    auto get = [&] {
        QString result;
        [&] { QVERIFY(QMetaObject::invokeMethod(mWindow, getter.constData(), Q_RETURN_ARG(QString, result))); }();
        return result;
    };
    store(key, QVariant());
    QCOMPARE(get(), defaultValue);
    QVERIFY(!stored(key).isValid());

    QVERIFY(QMetaObject::invokeMethod(mWindow, setter.constData(), Q_ARG(QString, QStringLiteral("chosen"))));
    QCOMPARE(stored(key).toString(), QStringLiteral("chosen"));
    QCOMPARE(get(), QStringLiteral("chosen"));

    // Clearing a choice through the setter brings the default back.
    QVERIFY(QMetaObject::invokeMethod(mWindow, setter.constData(), Q_ARG(QString, QString())));
    QCOMPARE(get(), defaultValue);
}

void TestSettings::soundFlag_data()
{
    QTest::addColumn<QVariant>("before"); // invalid: key absent
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("after");

    QTest::newRow("fresh store stores 0") << QVariant() << false << "0";
    QTest::newRow("stored empty becomes 0") << QVariant(QStringLiteral("")) << false << "0";
    QTest::newRow("on") << QVariant(QStringLiteral("1")) << true << "1";
    QTest::newRow("off") << QVariant(QStringLiteral("0")) << false << "0";
    QTest::newRow("true is not on and stays") << QVariant(QStringLiteral("true")) << false << "true";
    QTest::newRow("1 with blank is not on") << QVariant(QStringLiteral("1 ")) << false << "1 ";
}

void TestSettings::soundFlag()
{
    QFETCH(QVariant, before);
    QFETCH(bool, enabled);
    QFETCH(QString, after);

    store(QStringLiteral("play-notification-sound"), before);
    QCOMPARE(mWindow->isNotificationSoundEnabled(), enabled);
    QCOMPARE(stored(QStringLiteral("play-notification-sound")).toString(), after);

    mWindow->setNotificationSoundEnabled(QStringLiteral("1"));
    QVERIFY(mWindow->isNotificationSoundEnabled());
}

QTEST_MAIN(TestSettings)
#include "tst_settings.moc"
