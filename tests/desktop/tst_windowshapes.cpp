#include <QtTest>

#include "desktop/mainwindow.h"

Q_DECLARE_METATYPE(QMargins)

// The screen's zoom and the two shapes as pure rules, figures worked by hand from the 1366x768
// reference; tst_windowsizing checks that windows land where these say.
class TestWindowShapes : public QObject
{
    Q_OBJECT
private slots:
    void osScaleFactor_data()
    {
        QTest::addColumn<QSize>("screen");
        QTest::addColumn<double>("expected");
        QTest::newRow("smaller never scales down") << QSize(1024, 600) << 1.0;
        QTest::newRow("1.406 rounds down") << QSize(1920, 1080) << 1.4;
        QTest::newRow("1.874 rounds up") << QSize(2560, 1440) << 1.9;
        QTest::newRow("upright counts as flat") << QSize(1080, 1920) << 1.4;
        QTest::newRow("wide screen: height decides") << QSize(3440, 1440) << 1.9;
        QTest::newRow("fit of exactly 1.25 rounds up") << QSize(1920, 960) << 1.3;
    }

    void osScaleFactor()
    {
        QFETCH(QSize, screen);
        QFETCH(double, expected);
        QCOMPARE(MainWindow::computeOsScaleFactor(1.0, screen.width(), screen.height()), expected);
    }

    void frames_data()
    {
        QTest::addColumn<QString>("shape");
        QTest::addColumn<QRect>("screen");
        QTest::addColumn<QRect>("workArea");
        QTest::addColumn<QMargins>("margins");
        QTest::addColumn<double>("factor");
        QTest::addColumn<QRect>("frame");

        const QMargins none, openbox(1, 22, 1, 4);
        const QRect hd(0, 0, 1920, 1080), qhd(0, 0, 2560, 1440), wxga(0, 0, 1366, 768), small(0, 0, 1024, 600);

        // No panels: the client area has the reference figures exactly, wherever the frame then goes.
        QTest::newRow("framed 1920x1080 messenger: title bar above the screen")
            << "messenger" << hd << hd << openbox << 1.4 << QRect(3, -20, 1914, 1101);
        QTest::newRow("bare 1366x768 messenger fills it") << "messenger" << wxga << wxga << none << 1.0 << QRect(0, 0, 1366, 768);
        QTest::newRow("bare 1280x800 messenger: width too wide")
            << "messenger" << QRect(0, 0, 1280, 800) << QRect(0, 0, 1280, 800) << none << 1.0 << QRect(12, 16, 1256, 768);
        QTest::newRow("bare 1024x600 login above the top") << "login" << small << small << none << 1.0 << QRect(212, -5, 600, 610);
        QTest::newRow("bare 2560x1440 messenger: foot half a margin low")
            << "messenger" << qhd << qhd << none << 1.9 << QRect(22, 62, 2516, 1409);

        // Panels: the frame, title bar included, keeps inside the work area.
        QTest::newRow("1920x1080 top 30 bottom 24: messenger")
            << "messenger" << hd << QRect(0, 30, 1920, 1026) << openbox << 1.4 << QRect(3, 76, 1914, 980);
        QTest::newRow("1920x1080 top 30 bottom 24: login")
            << "login" << hd << QRect(0, 30, 1920, 1026) << openbox << 1.4 << QRect(539, 103, 842, 880);
        QTest::newRow("1366x768 bottom 24: messenger no longer fills it")
            << "messenger" << wxga << QRect(0, 0, 1366, 744) << openbox << 1.0 << QRect(12, 33, 1342, 711);
        QTest::newRow("1024x600 top 28: login cut to the work area")
            << "login" << small << QRect(0, 28, 1024, 572) << openbox << 1.0 << QRect(211, 28, 602, 572);
        QTest::newRow("1920x1080 left dock 48: messenger")
            << "messenger" << hd << QRect(48, 0, 1872, 1080) << none << 1.4 << QRect(64, 2, 1840, 1075);
    }

    void frames()
    {
        QFETCH(QString, shape);
        QFETCH(QRect, screen);
        QFETCH(QRect, workArea);
        QFETCH(QMargins, margins);
        QFETCH(double, factor);
        QFETCH(QRect, frame);
        QCOMPARE(shape == "login" ? MainWindow::loginFrame(screen, workArea, margins, factor)
                                  : MainWindow::messengerFrame(screen, workArea, margins, factor), frame);
    }
};

QTEST_GUILESS_MAIN(TestWindowShapes)
#include "tst_windowshapes.moc"
