#include <QtTest>

#include <QAction>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>

#include "core/windowholders.h"
#include "desktop/mainwindow.h"
#include "web/indexwindow.h"

namespace {

struct MenuEntry {
    QString text;
    QKeySequence shortcut;
    bool enabled;
};

QList<MenuEntry> entries(QMenu* menu)
{
    QList<MenuEntry> result;
    for (QAction* action : menu->actions())
        result << MenuEntry { action->isSeparator() ? QStringLiteral("-") : action->text(), action->shortcut(),
            action->isEnabled() };
    return result;
}

// Answers the next modal message box with the given button once it shows.
void answerNextMessageBox(QMessageBox::StandardButton answer, QString* seenText)
{
    QTimer::singleShot(0, [answer, seenText]() {
        QTRY_VERIFY(qobject_cast<QMessageBox*>(QApplication::activeModalWidget()));
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        *seenText = box->text();
        box->button(answer)->click();
    });
}

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void menuTitles();
    void menuEntries_data();
    void menuEntries();
    void extraZoomInShortcut();
    void signInTogglesGatedActions();
    void closeOnlyHides();
    void ctrlWClosesActiveMainWindow();
    void ctrlWWithNoActiveWindowDoesNothing();
    void wakeUpShowsHiddenWindow();
    void decliningQuitKeepsRunning();

private:
    void makeActive();

    MainWindow* mWindow = nullptr;
};

void TestMainWindow::initTestCase()
{
    mWindow = new MainWindow();
    mWindow->showInitialWindow();
    mainWindowHolder::set(mWindow);
    QVERIFY(QTest::qWaitForWindowExposed(mWindow));
}

void TestMainWindow::cleanupTestCase()
{
    delete mWindow;
}

void TestMainWindow::makeActive()
{
    mWindow->showAlreadyRunningWindow();
    QApplication::setActiveWindow(mWindow);
    QTRY_VERIFY(mWindow->isActiveWindow());
}

void TestMainWindow::menuTitles()
{
    QCOMPARE(mWindow->windowTitle(), QStringLiteral("Kestrelgap"));
    const QList<QAction*> bar = mWindow->menuBar()->actions();
    QCOMPARE(bar.size(), 2);
    QCOMPARE(bar.at(0)->menu(), mWindow->mainMenu());
    QCOMPARE(mWindow->mainMenu()->title(), QStringLiteral("Kestrelgap   \u25BC "));
    QCOMPARE(mWindow->shortcutsMenu()->title(), QStringLiteral("Shortcuts   \u25BC "));
}

void TestMainWindow::menuEntries_data()
{
    QTest::addColumn<bool>("mainMenu");
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<QList<QKeySequence>>("shortcuts");
    QTest::addColumn<QList<bool>>("enabled");

    QTest::newRow("first menu") << true
                                << QStringList { "About", "-", "Preferences", "Sign Out", "-", "Quit" }
                                << QList<QKeySequence> { {}, {}, {}, {}, {}, QKeySequence(Qt::CTRL | Qt::Key_Q) }
                                << QList<bool> { true, true, false, false, true, true };
    QTest::newRow("shortcuts menu")
        << false << QStringList { "New Message...", "Minimize", "Close", "-", "Actual Size", "Zoom In", "Zoom Out" }
        << QList<QKeySequence> { QKeySequence(Qt::CTRL | Qt::Key_N), QKeySequence(Qt::CTRL | Qt::Key_M),
               QKeySequence(Qt::CTRL | Qt::Key_W), {}, QKeySequence(Qt::CTRL | Qt::Key_0),
               QKeySequence(QKeySequence::ZoomIn), QKeySequence(QKeySequence::ZoomOut) }
        << QList<bool> { false, true, true, true, true, true, true };
}

void TestMainWindow::menuEntries()
{
    QFETCH(bool, mainMenu);
    QFETCH(QStringList, texts);
    QFETCH(QList<QKeySequence>, shortcuts);
    QFETCH(QList<bool>, enabled);

    mWindow->disableMenuOptionsForLoggedInUser();
    const QList<MenuEntry> actual = entries(mainMenu ? mWindow->mainMenu() : mWindow->shortcutsMenu());
    QCOMPARE(actual.size(), texts.size());
    for (int i = 0; i < texts.size(); ++i) {
        QCOMPARE(actual.at(i).text, texts.at(i));
        QCOMPARE(actual.at(i).shortcut, shortcuts.at(i));
        QCOMPARE(actual.at(i).enabled, enabled.at(i));
    }
}

void TestMainWindow::extraZoomInShortcut()
{
    const QList<QShortcut*> shortcuts = mWindow->findChildren<QShortcut*>();
    QCOMPARE(shortcuts.size(), 1);
    QCOMPARE(shortcuts.first()->key(), QKeySequence(Qt::CTRL | Qt::Key_Equal));
    QCOMPARE(shortcuts.first()->context(), Qt::WindowShortcut);

    makeActive();
    const double before = mWindow->getScaleFactor();
    QTest::keyClick(mWindow, Qt::Key_Equal, Qt::ControlModifier);
    QTRY_COMPARE(mWindow->getScaleFactor(), before + MainWindow::zoomStep);
    mWindow->zoomNormal();
    QCOMPARE(mWindow->getScaleFactor(), mWindow->getOriginalScaleFactor());
}

void TestMainWindow::signInTogglesGatedActions()
{
    auto gated = [this]() {
        QList<bool> states;
        for (QAction* action : mWindow->mainMenu()->actions() + mWindow->shortcutsMenu()->actions()) {
            if (action->text() == QLatin1String("Preferences") || action->text() == QLatin1String("Sign Out")
                || action->text() == QLatin1String("New Message..."))
                states << action->isEnabled();
        }
        return states;
    };
    indexWindowHolder::get()->updateClientLoginStateForMenuItems(true);
    QCOMPARE(gated(), (QList<bool> { true, true, true }));
    indexWindowHolder::get()->updateClientLoginStateForMenuItems(false);
    QCOMPARE(gated(), (QList<bool> { false, false, false }));
}

void TestMainWindow::closeOnlyHides()
{
    makeActive();
    QCloseEvent event;
    QApplication::sendEvent(mWindow, &event);
    QVERIFY(event.isAccepted());
    QVERIFY(mWindow->isHidden());
    QVERIFY(!QApplication::quitOnLastWindowClosed() || QApplication::topLevelWidgets().contains(mWindow));
    // Still alive and able to come back.
    mWindow->showAlreadyRunningWindow();
    QTRY_VERIFY(mWindow->isVisible());
}

void TestMainWindow::ctrlWClosesActiveMainWindow()
{
    makeActive();
    QTest::keyClick(mWindow, Qt::Key_W, Qt::ControlModifier);
    QTRY_VERIFY(mWindow->isHidden());
    mWindow->showAlreadyRunningWindow();
}

void TestMainWindow::ctrlWWithNoActiveWindowDoesNothing()
{
    mWindow->show();
    QWidget other;
    other.setWindowTitle(QStringLiteral("someone else"));
    other.show();
    QApplication::setActiveWindow(&other);
    QTRY_VERIFY(!mWindow->isActiveWindow());
    mWindow->closeActionClicked();
    QVERIFY(mWindow->isVisible());
    QVERIFY(other.isVisible());
}

void TestMainWindow::wakeUpShowsHiddenWindow()
{
    mWindow->hide();
    // As on a real desktop, another program has the focus by the time the second start comes.
    QWidget other;
    other.setWindowTitle(QStringLiteral("someone else"));
    other.show();
    other.activateWindow();
    QTRY_VERIFY(other.isActiveWindow());
    mWindow->messageReceived(QStringLiteral("Wake up"));
    QTRY_VERIFY(mWindow->isVisible());
    QTRY_VERIFY(mWindow->isActiveWindow());
}

void TestMainWindow::decliningQuitKeepsRunning()
{
    QSignalSpy aboutToQuit(qApp, &QCoreApplication::aboutToQuit);
    QString text;
    answerNextMessageBox(QMessageBox::No, &text);
    mWindow->quitActionClicked();
    QCOMPARE(text, QStringLiteral("Are you sure you want to quit Kestrelgap?"));
    QTest::qWait(50);
    QCOMPARE(aboutToQuit.count(), 0);
    QVERIFY(mWindow->isVisible());
}

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
