#include <QtTest>

class TestLanguageCatalogue : public QObject
{
    Q_OBJECT
private slots:
    void everySourceTextIsTranslated_data()
    {
        QTest::addColumn<QString>("language");
        QTest::newRow("fr") << "fr";
        QTest::newRow("es") << "es";
    }

    // A tr() text that differs from its catalogue entry by one character stays English: only the sources
    // show it. lupdate run over a copy of the catalogue counts it as new.
    void everySourceTextIsTranslated()
    {
        QFETCH(QString, language);
        QTemporaryDir dir;
        const QString copy = dir.filePath("catalogue.ts");
        QVERIFY(QFile::copy(QString(KESTRELGAP_SOURCE_DIR "/resources/translations/kestrelgap_%1.ts").arg(language), copy));
        QProcess lupdate;
        lupdate.setProcessChannelMode(QProcess::MergedChannels);
        lupdate.start(LUPDATE_PATH, {KESTRELGAP_SOURCE_DIR "/src", "-ts", copy});
        QVERIFY(lupdate.waitForFinished(120000) && lupdate.exitCode() == 0);
        const QString report = QString::fromUtf8(lupdate.readAll());
        QVERIFY2(report.contains(" (0 new and "), qPrintable(report));
    }
};

QTEST_GUILESS_MAIN(TestLanguageCatalogue)
#include "tst_languagecatalogue.moc"
