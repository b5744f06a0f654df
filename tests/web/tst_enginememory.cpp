#include <QtTest>

#include <QPointer>
#include <QWebFrame>
#include <QWebPage>

#include "web/enginememory.h"

// The memory reclaimer: the engine's collector really runs, and the reclaims come when the pages
// go quiet, at the latest after a busy stretch, and never while idle.
class TestEngineMemory : public QObject
{
    Q_OBJECT

private slots:
    void collectsWhatScriptsNoLongerReach();
    void reclaimsAfterQuietAndWhileBusy();
};

void TestEngineMemory::collectsWhatScriptsNoLongerReach()
{
    QWebPage page;
    QWebFrame* frame = page.mainFrame();
    frame->setHtml(QStringLiteral("<html><body></body></html>"));
    // Objects the script owns go when its collector takes their wrappers, and only then.
    QPointer<QObject> dropped = new QObject;
    QPointer<QObject> kept = new QObject;
    frame->addToJavaScriptWindowObject(QStringLiteral("dropped"), dropped, QWebFrame::ScriptOwnership);
    frame->addToJavaScriptWindowObject(QStringLiteral("kept"), kept, QWebFrame::ScriptOwnership);
    frame->evaluateJavaScript(QStringLiteral("window.keep = [kept]; window.dropped = null;"));
    QVERIFY(dropped);

    QVERIFY2(EngineMemory::reclaimNow(), "the engine's collector was not found");
    QVERIFY(!dropped);
    QVERIFY(kept);
    QCOMPARE(frame->evaluateJavaScript(QStringLiteral("keep.length")).toInt(), 1);
}

void TestEngineMemory::reclaimsAfterQuietAndWhileBusy()
{
    EngineMemory* memory = EngineMemory::instance();
    memory->setTimings(100, 200, 400);
    const int before = memory->reclaims();

    // One event: a reclaim once quiet, a second pass after it, then nothing waits.
    EngineMemory::noteActivity();
    QTRY_COMPARE_WITH_TIMEOUT(memory->reclaims(), before + 2, 10000);
    QTRY_VERIFY(!memory->pending());

    // Events closer together than the quiet time: a reclaim still comes after the busy stretch.
    memory->setTimings(5000, 200, 1000);
    const int busyBefore = memory->reclaims();
    QElapsedTimer busy;
    busy.start();
    while (memory->reclaims() == busyBefore && busy.elapsed() < 8000) {
        EngineMemory::noteActivity();
        QTest::qWait(20);
    }
    QCOMPARE(memory->reclaims(), busyBefore + 1);
    QVERIFY(busy.elapsed() >= 1000);
    // The stream goes on: not one reclaim per event.
    for (int i = 0; i < 5; ++i) {
        EngineMemory::noteActivity();
        QTest::qWait(20);
    }
    QCOMPARE(memory->reclaims(), busyBefore + 1);
}

QTEST_MAIN(TestEngineMemory)
#include "tst_enginememory.moc"
