#include <QtTest>

#include <QXmlStreamReader>

namespace {

// "context|source" of every message in a .ts file.
QSet<QString> messages(const QString& path)
{
    QSet<QString> result;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return result;
    QXmlStreamReader xml(&file);
    QString context;
    while (!xml.atEnd()) {
        if (xml.readNext() == QXmlStreamReader::StartElement && xml.name() == QLatin1String("name"))
            context = xml.readElementText();
        else if (xml.tokenType() == QXmlStreamReader::StartElement && xml.name() == QLatin1String("source"))
            result.insert(context + '|' + xml.readElementText());
    }
    return result;
}

} // namespace

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

    // A tr() text that differs from its catalogue entry by one character stays English: only the sources show it.
    void everySourceTextIsTranslated()
    {
        QFETCH(QString, language);
        QTemporaryDir dir;
        const QString scan = dir.filePath("scan.ts");
        QProcess lupdate;
        lupdate.setProcessChannelMode(QProcess::MergedChannels);
        lupdate.start(LUPDATE_PATH, {"-silent", KESTRELGAP_SOURCE_DIR "/src", "-ts", scan});
        QVERIFY2(lupdate.waitForFinished(120000) && lupdate.exitCode() == 0, lupdate.readAll().constData());

        const QSet<QString> catalogued = messages(QString(KESTRELGAP_SOURCE_DIR "/resources/translations/kestrelgap_%1.ts").arg(language));
        QVERIFY(catalogued.size() > 50);
        QSet<QString> contexts;
        for (const QString& message : catalogued)
            contexts.insert(message.section('|', 0, 0));
        QStringList strays;
        for (const QString& message : messages(scan))
            if (contexts.contains(message.section('|', 0, 0)) && !catalogued.contains(message))
                strays << message;
        QVERIFY2(strays.isEmpty(), qPrintable(strays.join(", ")));
    }
};

QTEST_GUILESS_MAIN(TestLanguageCatalogue)
#include "tst_languagecatalogue.moc"
