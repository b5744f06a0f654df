// Where popups stand, as figures worked by hand. Unless a row says otherwise: a free area of
// 1920x1040, both zooms 1.0 (title bar allowance 33, spacing 8), popups of 300x200 whose frame
// has a title bar of 30 and no left border.
#include <QtTest>

#include "notifications/popupgeometry.h"

using namespace PopupGeometry;

Q_DECLARE_METATYPE(StackedPopup)
Q_DECLARE_METATYPE(ReflowPopup)

namespace {

const QSize screen(1920, 1040);

StackedPopup stacked(int index, int column, int x, int y, int height = 200, int width = 300, int border = 0)
{
    return { index, column, y, height, QRect(x, y, width, height), x - border, true };
}

ReflowPopup shown(int index, int column, int x, int y, int height = 200, int width = 300)
{
    return { index, column, false, false, QRect(x, y, width, height), QRect(x, y - 30, width, height + 30) };
}

// The first column of four and the fifth popup that opened the second one.
const QList<StackedPopup> fourStacked { stacked(1, 1, 1612, 33), stacked(2, 1, 1612, 274), stacked(3, 1, 1612, 515),
    stacked(4, 1, 1612, 756) };
const QList<ReflowPopup> fiveShown { shown(1, 1, 1612, 33), shown(2, 1, 1612, 274), shown(3, 1, 1612, 515),
    shown(4, 1, 1612, 756), shown(5, 2, 1312, 33) };

} // namespace

class TestPopupGeometry : public QObject
{
    Q_OBJECT
private slots:
    // The page's size held to the free area, then scaled by the zoom in force.
    void popupSize_data()
    {
        QTest::addColumn<QSize>("asked");
        QTest::addColumn<QSize>("available");
        QTest::addColumn<double>("zoom");
        QTest::addColumn<QSize>("expected");

        QTest::newRow("truncated toward zero") << QSize(333, 201) << screen << 1.5 << QSize(499, 301);
        QTest::newRow("too small") << QSize(10, -5) << screen << 1.0 << QSize(50, 50);
        QTest::newRow("larger, at zoom 2") << QSize(5000, 5000) << screen << 2.0 << QSize(1920, 1040);
        QTest::newRow("no free area known") << QSize(5000, 300) << QSize() << 1.0 << QSize(4096, 300);
        QTest::newRow("free area below the minimum") << QSize(300, 200) << QSize(40, 40) << 1.0 << QSize(50, 50);
    }

    void popupSize()
    {
        QFETCH(QSize, asked);
        QFETCH(QSize, available);
        QFETCH(double, zoom);
        QTEST(scaledSize(boundedSize(asked, available, zoom), zoom), "expected");
    }

    void composePlace_data()
    {
        QTest::addColumn<QRect>("icon");
        QTest::addColumn<int>("availableWidth");
        QTest::addColumn<int>("screenWidth");
        QTest::addColumn<double>("osScale");
        QTest::addColumn<QPoint>("expected"); // of a 400x500 window

        QTest::newRow("right edge just fits") << QRect(1720, 1045, 22, 22) << 1920 << 1920 << 1.0 << QPoint(1520, 535);
        QTest::newRow("past the right edge") << QRect(1900, 1045, 22, 22) << 1920 << 1920 << 1.0 << QPoint(1510, 535);
        QTest::newRow("past the left edge, task bar at the left") << QRect(100, 1045, 22, 22) << 1880 << 1920 << 1.0 << QPoint(50, 535);
        QTest::newRow("top edge just fits") << QRect(1700, 510, 22, 22) << 1920 << 1920 << 1.0 << QPoint(1500, 0);
        QTest::newRow("no icon geometry") << QRect() << 1920 << 1920 << 1.5 << QPoint(10, 49);
    }

    void composePlace()
    {
        QFETCH(QRect, icon);
        QFETCH(int, availableWidth);
        QFETCH(int, screenWidth);
        QFETCH(double, osScale);
        QTEST(PopupGeometry::composePlace(icon, QSize(400, 500), availableWidth, screenWidth, osScale), "expected");
    }

    void stackedPlace_data()
    {
        QTest::addColumn<QList<StackedPopup>>("stack");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QSize>("available");
        QTest::addColumn<double>("osScale");
        QTest::addColumn<QRect>("expected"); // x, y, column, index

        const QSize popup(300, 200);
        QList<StackedPopup> five = fourStacked;
        five << stacked(5, 2, 1312, 33);
        const QList<StackedPopup> bordered { stacked(1, 1, 1612, 33, 200, 300, 2),
            stacked(2, 1, 1612, 274, 200, 300, 2), stacked(3, 1, 1612, 515, 200, 300, 2),
            stacked(4, 1, 1612, 756, 200, 300, 2) };
        QList<StackedPopup> sameKey { stacked(1, 1, 1612, 33), stacked(2, 1, 1612, 274), stacked(2, 1, 1612, 515) };
        sameKey.last().otherKey = false;

        QTest::newRow("fourth, exact fit") << fourStacked.mid(0, 3) << popup << QSize(1920, 956) << 1.0 << QRect(1612, 756, 1, 4);
        QTest::newRow("one pixel short: wraps") << fourStacked.mid(0, 3) << popup << QSize(1920, 955) << 1.0 << QRect(1312, 33, 2, 4);
        QTest::newRow("fifth opens column 2, no gap") << fourStacked << popup << screen << 1.0 << QRect(1312, 33, 2, 5);
        QTest::newRow("column 2 against a frame border") << bordered << popup << screen << 1.0 << QRect(1310, 33, 2, 5);
        QTest::newRow("sixth lines up with the fifth") << five << popup << screen << 1.0 << QRect(1312, 274, 2, 6);
        QTest::newRow("tall after a column opener") << five << QSize(300, 900) << screen << 1.0 << QRect(-300, 33, 3, 6);
        QTest::newRow("first, taller than the free area") << QList<StackedPopup> {} << QSize(300, 1040) << screen << 1.0
                                                           << QRect(-308, 33, 2, 1);
        QTest::newRow("after a shorter one") << QList<StackedPopup> { stacked(1, 1, 1612, 33, 100) } << popup << screen << 1.0
                                             << QRect(1612, 174, 1, 2);
        QTest::newRow("after a wider one") << QList<StackedPopup> { stacked(1, 1, 1512, 33, 200, 400) } << popup << screen << 1.0
                                           << QRect(1612, 274, 1, 2);
        QTest::newRow("new key's window counts for nothing") << sameKey << popup << screen << 1.0 << QRect(1612, 274, 1, 2);
        QTest::newRow("screen zoom 1.25, second") << QList<StackedPopup> { stacked(1, 1, 1610, 41) } << popup << screen << 1.25
                                                  << QRect(1610, 292, 1, 2);
    }

    void stackedPlace()
    {
        QFETCH(QList<StackedPopup>, stack);
        QFETCH(QSize, size);
        QFETCH(QSize, available);
        QFETCH(double, osScale);
        const StackPlace place = PopupGeometry::stackedPlace(stack, size, available, osScale);
        QTEST(QRect(place.x, place.y, place.column, place.index), "expected");
    }

    // Each move as "W<index> <x>,<y> c<column> r<recorded x>", and "still" when it compares as not moving.
    void reflow_data()
    {
        QTest::addColumn<QList<ReflowPopup>>("popups");
        QTest::addColumn<QRect>("closed"); // index, y, column
        QTest::addColumn<QSize>("available");
        QTest::addColumn<double>("osScale");
        QTest::addColumn<QStringList>("expected");

        QList<ReflowPopup> six = fiveShown;
        six << shown(6, 2, 1312, 274);
        QList<ReflowPopup> dragged = fiveShown.mid(0, 4);
        dragged[1] = { 2, 1, true, false, QRect(1462, 334, 300, 200), QRect(1462, 304, 300, 230) };
        const ReflowPopup wide = shown(1, 1, 1512, 33, 200, 400);
        ReflowPopup liveView = wide;
        liveView.liveView = true;
        const QList<ReflowPopup> zoomed { shown(1, 1, 1608, 49), shown(2, 1, 1608, 300), shown(3, 1, 1608, 551),
            shown(4, 2, 1296, 49) };

        QTest::newRow("middle of one column") << fiveShown.mid(0, 4) << QRect(2, 274, 1, 0) << screen << 1.0
                                              << QStringList { "W3 1612,274 c1 r1612", "W4 1612,507 c1 r1612" };
        QTest::newRow("first: column 2 empties into column 1")
            << fiveShown << QRect(1, 33, 1, 0) << screen << 1.0
            << QStringList { "W2 1612,33 c1 r1612", "W3 1612,266 c1 r1612", "W4 1612,499 c1 r1612", "W5 1612,732 c1 r1612" };
        QTest::newRow("first of six: the sixth wraps with a gap")
            << six << QRect(1, 33, 1, 0) << screen << 1.0
            << QStringList { "W2 1612,33 c1 r1612", "W3 1612,266 c1 r1612", "W4 1612,499 c1 r1612", "W5 1612,732 c1 r1612",
                   "W6 1304,33 c2 r1304" };
        QTest::newRow("opener of column 2") << six << QRect(5, 33, 2, 0) << screen << 1.0 << QStringList { "W6 1304,33 c2 r1304" };
        QTest::newRow("last slot, exact fit") << fiveShown.mid(0, 4) << QRect(1, 33, 1, 0) << QSize(1920, 699) << 1.0
                                              << QStringList { "W2 1612,33 c1 r1612", "W3 1612,266 c1 r1612", "W4 1612,499 c1 r1612" };
        QTest::newRow("one pixel short: wraps") << fiveShown.mid(0, 4) << QRect(1, 33, 1, 0) << QSize(1920, 698) << 1.0
                                                << QStringList { "W2 1612,33 c1 r1612", "W3 1612,266 c1 r1612", "W4 1304,33 c2 r1304" };
        QTest::newRow("dragged one stays") << dragged << QRect(1, 33, 1, 0) << screen << 1.0
                                           << QStringList { "W3 1612,33 c1 r1612", "W4 1612,266 c1 r1612" };
        QTest::newRow("after a shorter one")
            << QList<ReflowPopup> { shown(1, 1, 1612, 33), shown(2, 1, 1612, 274, 100), shown(3, 1, 1612, 415) }
            << QRect(1, 33, 1, 0) << screen << 1.0 << QStringList { "W2 1612,33 c1 r1612", "W3 1612,166 c1 r1612" };
        QTest::newRow("lines up with a wider one that stays")
            << QList<ReflowPopup> { shown(2, 1, 1612, 274), wide, shown(3, 1, 1612, 515) } << QRect(2, 274, 1, 0) << screen << 1.0
            << QStringList { "W3 1512,274 c1 r1612" };
        QTest::newRow("a live view never sets the line")
            << QList<ReflowPopup> { shown(2, 1, 1612, 274), liveView, shown(3, 1, 1612, 515) } << QRect(2, 274, 1, 0) << screen
            << 1.0 << QStringList { "W3 1612,274 c1 r1612" };
        QTest::newRow("staying put still compares as moving")
            << QList<ReflowPopup> { shown(1, 1, 1612, 33), shown(2, 1, 1612, 33) } << QRect(1, 33, 1, 0) << screen << 1.0
                                                              << QStringList { "W2 1612,33 c1 r1612" };
        QTest::newRow("screen zoom 1.5: truncated pitch, wrap") << zoomed << QRect(1, 49, 1, 0) << QSize(1920, 600) << 1.5
                                                                << QStringList { "W2 1608,49 c1 r1608", "W3 1608,283 c1 r1608",
                                                                       "W4 1296,49 c2 r1296" };
    }

    void reflow()
    {
        QFETCH(QList<ReflowPopup>, popups);
        QFETCH(QRect, closed);
        QFETCH(QSize, available);
        QFETCH(double, osScale);
        QStringList moves;
        for (const ReflowMove& m : PopupGeometry::reflow(popups, closed.x(), closed.y(), closed.width(), available, osScale)) {
            QCOMPARE(m.from, QRect(popups.at(m.popup).frame.topLeft(), popups.at(m.popup).client.size()));
            moves << QStringLiteral("W%1 %2,%3 c%4 r%5%6").arg(popups.at(m.popup).index).arg(m.to.x()).arg(m.to.y()).arg(m.column)
                         .arg(m.recordedX).arg(m.moving ? QString() : QStringLiteral(" still"));
        }
        QTEST(moves, "expected");
    }
};

QTEST_MAIN(TestPopupGeometry)
#include "tst_popupgeometry.moc"
