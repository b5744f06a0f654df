#include <QtTest>

#include <QAbstractButton>
#include <QComboBox>
#include <QLabel>
#include <QTranslator>

#include "core/windowholders.h"
#include "httpserver.h"
#include "preferences/aboutdialog.h"
#include "preferences/settingsdialog.h"
#include "resourceinit.h"
#include "updates/confirmdownloadupdate.h"
#include "updates/latestinstalleddialog.h"
#include "updates/mediadownloaderdialog.h"
#include "updates/updatedownloaderdialog.h"
#include "web/indexwindow.h"

// Every dialog shows its whole text in every language we ship, at the X display's font resolution
// (ctest runs it at Xft.dpi 96 and 192). KESTRELGAP_SCREENSHOT_DIR: where to leave a picture of each.

namespace {

QStringList clipped(QWidget* dialog)
{
    QStringList cut;
    for (QWidget* widget : dialog->findChildren<QWidget*>()) {
        const auto* label = qobject_cast<QLabel*>(widget);
        const auto* button = qobject_cast<QAbstractButton*>(widget);
        if (!label && !button)
            continue;
        const QSize needed = label && label->wordWrap()
            ? QSize(label->minimumSizeHint().width(), label->heightForWidth(widget->width())) : widget->sizeHint();
        if (widget->isVisibleTo(dialog) && (needed.width() > widget->width() || needed.height() > widget->height()
                || !dialog->rect().contains(QRect(widget->mapTo(dialog, QPoint(0, 0)), widget->size()))))
            cut << QString("%1 \"%2\" needs %3x%4, has %5x%6").arg(widget->objectName(), label ? label->text() : button->text())
                       .arg(needed.width()).arg(needed.height()).arg(widget->width()).arg(widget->height());
    }
    return cut;
}

// What the user reads, tool tips and list entries included.
QStringList texts(QWidget* dialog)
{
    QStringList all;
    for (QWidget* widget : dialog->findChildren<QWidget*>()) {
        all << widget->toolTip();
        if (auto* label = qobject_cast<QLabel*>(widget))
            all << label->text();
        else if (auto* button = qobject_cast<QAbstractButton*>(widget))
            all << button->text();
        else if (auto* combo = qobject_cast<QComboBox*>(widget))
            for (int i = 0; i < combo->count(); ++i)
                all << combo->itemText(i);
    }
    return all;
}

} // namespace

class TestDialogTexts : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        kestrelgapInitResources();
        indexWindowHolder::set(new IndexWindow());
        mServer.serve("/media/picture.png", QByteArray(2048, 'p'), "image/png");
        mServer.serveStall("/downloads/setup.deb");
    }

    void wholeTexts_data()
    {
        QTest::addColumn<QString>("dialog");
        QTest::addColumn<QString>("language");
        for (const char* dialog : {"about", "new version", "latest installed", "settings", "update download", "media download complete"})
            for (const char* language : {"en", "fr", "es"})
                QTest::newRow(qPrintable(QString("%1, %2").arg(dialog, language))) << dialog << language;
    }

    void wholeTexts()
    {
        QFETCH(QString, dialog);
        QFETCH(QString, language);

        QTranslator translator;
        QVERIFY(language == "en" || translator.load("kestrelgap_" + language, ":/translations", ""));
        QCoreApplication::installTranslator(&translator);

        std::unique_ptr<QDialog> shown;
        if (dialog == "about")
            shown = std::make_unique<AboutDialog>();
        else if (dialog == "new version")
            shown = std::make_unique<ConfirmDownloadUpdate>();
        else if (dialog == "latest installed")
            shown = std::make_unique<LatestInstalledDialog>();
        else if (dialog == "settings")
            shown = std::make_unique<SettingsDialog>();
        else if (dialog == "update download") {
            auto* update = new UpdateDownloaderDialog();
            shown.reset(update);
            update->startDownload(mServer.url("/downloads/setup.deb"));
        } else {
            auto* media = new MediaDownloaderDialog();
            shown.reset(media);
            media->setDownloadDirectory(mDownloads.path());
            media->setFileSize(2048);
            media->startDownload(mServer.url("/media/picture.png"), QString("picture %1.png").arg(language), "image", false);
        }
        shown->show();
        QVERIFY(QTest::qWaitForWindowExposed(shown.get()));
        if (dialog == "media download complete")
            QTRY_VERIFY(!shown->findChild<QLabel*>("download_complete") || shown->findChild<QLabel*>("download_complete")->isVisible());

        // A form that grows asks the window manager for its new size; the answer comes a moment later.
        QStringList cut;
        QTRY_VERIFY2((cut = clipped(shown.get())).isEmpty(), qPrintable(cut.join("; ")));
        // A Linux user has no Taskbar or Control Panel to look for.
        const QRegularExpression otherSystems("Windows|Taskbar|Control Panel|\\bMac\\b|barre des t|Panneau de config"
            "|barra de tareas|Panel de control", QRegularExpression::CaseInsensitiveOption);
        QCOMPARE(texts(shown.get()).filter(otherSystems), QStringList());
        if (qEnvironmentVariableIsSet("KESTRELGAP_SCREENSHOT_DIR"))
            shown->grab().save(QString("%1/%2-%3dpi.png").arg(qEnvironmentVariable("KESTRELGAP_SCREENSHOT_DIR"),
                QString(QTest::currentDataTag()).replace(QRegularExpression("[^a-z]+"), "-")).arg(shown->logicalDpiY()));
        QCoreApplication::removeTranslator(&translator);
    }

private:
    HttpServer mServer;
    QTemporaryDir mDownloads;
};

QTEST_MAIN(TestDialogTexts)
#include "tst_dialogtexts.moc"
