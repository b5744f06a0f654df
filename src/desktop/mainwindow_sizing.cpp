// MainWindow: zoom, the login and messenger shapes, and the remembered window state.
#include "mainwindow.h"

#include <memory>

#include <QApplication>
#include <QGuiApplication>
#include <QGraphicsWebView>
#include <QJsonObject>
#include <QPointer>
#include <QPropertyAnimation>
#include <QScreen>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QDeadlineTimer>
#include <cmath>

#include "core/logger.h"
#include "web/indexwindow.h"

namespace {
const QString logModule = QStringLiteral("mainwindow");
const QString logModuleCamel = QStringLiteral("mainWindow");
const char viewProperty[] = "view";

// Shared by every delayed switch to full screen or maximised. Guarded, since it dies with its window.
QPointer<QTimer> windowStateTimer;

QJsonObject* viewMenuJson()
{
    auto* json = new QJsonObject();
    json->insert(QStringLiteral("location"), QStringLiteral("view-menu"));
    return json;
}

QRect primaryScreenGeometry()
{
    QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->geometry() : QRect();
}

QRect primaryWorkArea()
{
    QScreen* screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry() : QRect();
}

// A window manager frames a new window a moment after it maps.
const int frameWaitMs = 15000;
const int frameCheckMs = 25;
const int frameSteadyTicks = 20;
}

QRect MainWindow::loginFrame(const QRect& screen, const QRect& workArea, const QMargins& frame, double scaleFactor)
{
    const int width = int(scaleFactor * 600.0);
    const int height = int(scaleFactor * 610.0);
    if (workArea == screen) {
        const QRect client(screen.x() + (screen.width() - width) / 2, screen.y() + (screen.height() - height) / 2,
            width, height);
        return client.marginsAdded(frame);
    }
    const QSize size = QSize(width + frame.left() + frame.right(), height + frame.top() + frame.bottom())
                           .boundedTo(workArea.size());
    return QRect(workArea.x() + (workArea.width() - size.width()) / 2,
        workArea.y() + (workArea.height() - size.height()) / 2, size.width(), size.height());
}

QRect MainWindow::messengerFrame(const QRect& screen, const QRect& workArea, const QMargins& frame, double osScaleFactor)
{
    const int sideMargin = int(12.0 * osScaleFactor);
    const int topMargin = int(33.0 * osScaleFactor);
    int width = int(osScaleFactor * 1366.0);
    int height = int(osScaleFactor * 768.0);
    const bool panels = workArea != screen;
    // With panels it is the frame that must fit, in the work area.
    const QRect area = panels ? workArea : screen;
    if (panels) {
        width += frame.left() + frame.right();
        height += frame.top() + frame.bottom();
    }
    int x = (area.width() - width) / 2;
    if (width > area.width()) {
        x = sideMargin;
        width = area.width() - 2 * x;
    }
    int y = (area.height() - height) / 2;
    if (height > area.height()) {
        y = topMargin;
        // On a bare screen only half the top margin comes off the height, so the foot sits half a
        // margin low, as it always has; over a panel it stops at the work area.
        height = area.height() - (panels ? y : y / 2);
    }
    const QRect shape(area.x() + x, area.y() + y, width, height);
    return panels ? shape : shape.marginsAdded(frame);
}

QMargins MainWindow::frameMargins() const
{
    const QRect frame = frameGeometry();
    const QRect client = geometry();
    return QMargins(client.left() - frame.left(), client.top() - frame.top(), frame.right() - client.right(),
        frame.bottom() - client.bottom());
}

QRect MainWindow::placeByRule(const FrameRule& rule, bool runAnimation)
{
    const QRect screen = primaryScreenGeometry();
    const QRect workArea = primaryWorkArea();
    const QMargins margins = frameMargins();
    const QRect client = rule(screen, workArea, margins).marginsRemoved(margins);
    if (runAnimation)
        animateGeometryTo(client);
    else
        setGeometry(client);

    // Frame margins are known only once the manager has framed the window. Over panels the frame
    // counts, so the shape is worked out again then. (No manager, no panels, no frame.)
    mPendingRule = margins.isNull() && workArea != screen ? rule : FrameRule();
    if (mPendingRule) {
        // The manager may report the frame in steps (reparented first, decorated later), and late on a
        // busy machine: follow each new frame until it has held still for a while.
        auto* poll = new QTimer(this);
        const QDeadlineTimer deadline(frameWaitMs);
        auto applied = std::make_shared<QMargins>();
        auto steadyTicks = std::make_shared<int>(0);
        connect(poll, &QTimer::timeout, this, [this, poll, deadline, applied, steadyTicks] {
            const QMargins margins = frameMargins();
            if (!margins.isNull() && mPendingRule && margins != *applied) {
                setGeometry(mPendingRule(primaryScreenGeometry(), primaryWorkArea(), margins).marginsRemoved(margins));
                *applied = margins;
                *steadyTicks = 0;
            } else if (!margins.isNull()) {
                ++*steadyTicks;
            }
            if (*steadyTicks >= frameSteadyTicks || !mPendingRule || deadline.hasExpired()) {
                mPendingRule = FrameRule();
                poll->deleteLater();
                poll->stop();
            }
        });
        poll->start(frameCheckMs);
    }
    return client;
}

double MainWindow::computeOsScaleFactor(double originalScaleFactor, int screenWidth, int screenHeight)
{
    // An upright screen counts the same as one lying flat.
    const int width = qMax(screenWidth, screenHeight);
    const int height = qMin(screenWidth, screenHeight);
    const double fit = qMin(width / refWidth, height / refHeight);
    return std::floor(qMax(originalScaleFactor, fit) * 10 + 0.5) / 10;
}

void MainWindow::setUpScaleFactors()
{
    QGraphicsWebView* view = mIndexWindow->webView();
    originalScaleFactor = view->zoomFactor();
    osScaleFactor = view->zoomFactor();

    const QRect rec = primaryScreenGeometry();
    const int width = qMax(rec.width(), rec.height());
    const int height = qMin(rec.width(), rec.height());
    osScaleFactor = computeOsScaleFactor(originalScaleFactor, rec.width(), rec.height());

    Logger::Info(logModule, QStringLiteral("[constructor] - refWidth=") + QString::number(refWidth));
    Logger::Info(logModule, QStringLiteral("[constructor] - refHeight=") + QString::number(refHeight));
    Logger::Info(logModule, QStringLiteral("[constructor] - rec.width=") + QString::number(rec.width()));
    Logger::Info(logModule, QStringLiteral("[constructor] - rec.height=") + QString::number(rec.height()));
    Logger::Info(logModule, QStringLiteral("[constructor] - height=") + QString::number(height));
    Logger::Info(logModule, QStringLiteral("[constructor] - width=") + QString::number(width));
    Logger::Info(logModule, QStringLiteral("[constructor] - osScaleFactor=") + QString::number(osScaleFactor));

    QSettings settings;
    const double savedZoomFactor = settings.value(QStringLiteral("mainWindowZoomFactor"), QStringLiteral("0")).toDouble();
    Logger::Info(logModuleCamel, QStringLiteral("[constructor] - savedZoomFactor=") + QString::number(savedZoomFactor));
    scaleFactor = savedZoomFactor > 0 ? savedZoomFactor : osScaleFactor;
    view->setZoomFactor(scaleFactor);
}

double MainWindow::getOriginalScaleFactor()
{
    return originalScaleFactor;
}

double MainWindow::getScaleFactor()
{
    return scaleFactor;
}

double MainWindow::getOsScaleFactor()
{
    return osScaleFactor;
}

void MainWindow::applyZoom()
{
    mIndexWindow->webView()->setZoomFactor(scaleFactor);
    saveZoomSetting(scaleFactor);
}

void MainWindow::saveZoomSetting(double factor)
{
    Logger::Debug(logModule, QStringLiteral("[saveZoomSetting] - factor=") + QString::number(factor));
    QSettings settings;
    settings.setValue(QStringLiteral("mainWindowZoomFactor"), factor);
}

void MainWindow::zoomIn()
{
    mIndexWindow->logAnalyticsEvent(QStringLiteral("zoom-in-window-qt"), QStringLiteral("view-menu"), viewMenuJson());
    scaleFactor += zoomStep;
    Logger::Info(logModule, QStringLiteral("[zoomIn] - scaleFactor=") + QString::number(scaleFactor));
    if (!mIndexWindow->isActiveWindow())
        mIndexWindow->showMainWindow();
    applyZoom();
}

void MainWindow::zoomOut()
{
    mIndexWindow->logAnalyticsEvent(QStringLiteral("zoom-out-window-qt"), QStringLiteral("view-menu"), viewMenuJson());
    scaleFactor -= zoomStep;
    Logger::Info(logModule, QStringLiteral("[zoomOut] - scaleFactor=") + QString::number(scaleFactor));
    if (!mIndexWindow->isActiveWindow())
        mIndexWindow->showMainWindow();
    applyZoom();
}

void MainWindow::zoomNormal()
{
    Logger::Info(logModule, QStringLiteral("[zoomNormal] - originalScaleFactor=") + QString::number(originalScaleFactor));
    mIndexWindow->logAnalyticsEvent(QStringLiteral("actual-size-window-qt"), QStringLiteral("view-menu"), viewMenuJson());
    mIndexWindow->showMainWindow();
    scaleFactor = originalScaleFactor;
    applyZoom();
}

void MainWindow::saveWindowSettings()
{
    // The login shape is never remembered.
    if (property(viewProperty).toString() != QLatin1String("messenger"))
        return;
    Logger::Info(logModule, QStringLiteral("[saveWindowSettings] called"));
    QSettings settings;
    const QRect rect = geometry();
    settings.setValue(QStringLiteral("mainWindowXPosition"), rect.x());
    settings.setValue(QStringLiteral("mainWindowYPosition"), rect.y());
    settings.setValue(QStringLiteral("mainWindowWidth"), rect.width());
    settings.setValue(QStringLiteral("mainWindowHeight"), rect.height());
    settings.setValue(QStringLiteral("mainWindowIsFullScreen"), isFullScreen());
    settings.setValue(QStringLiteral("mainWindowIsMaximized"), isMaximized());
}

void MainWindow::animateGeometryTo(const QRect& target)
{
    // Kept alive after it stops; the design accepts the small leak.
    auto* animation = new QPropertyAnimation(this, "geometry", nullptr);
    animation->setDuration(animationDuration);
    animation->setStartValue(QRect(frameGeometry().topLeft(), geometry().size()));
    animation->setEndValue(target);
    animation->start();
}

void MainWindow::resizeWindowToLoginSize(bool runAnimation)
{
    const QString view = property(viewProperty).toString();
    Logger::Debug(logModule, QStringLiteral("[resizeWindowToLoginSize] view=") + view);
    if (view == QLatin1String("login"))
        return;
    setProperty(viewProperty, QStringLiteral("login"));

    const QRect screen = primaryScreenGeometry();
    Logger::Info(logModule, QStringLiteral("[resizeWindowToLoginSize] ") + QStringLiteral("height=%1").arg(screen.height()));
    Logger::Info(logModule, QStringLiteral("[resizeWindowToLoginSize] ") + QStringLiteral("width=%1").arg(screen.width()));

    if (!isVisible())
        show();
    const double factor = scaleFactor;
    const QRect client = placeByRule(
        [factor](const QRect& screen, const QRect& workArea, const QMargins& frame) {
            return loginFrame(screen, workArea, frame, factor);
        },
        runAnimation);
    Logger::Info(logModule, QStringLiteral("[resizeWindowToLoginSize] - vx=%1, vy=%2, width=%3, height=%4")
            .arg(client.x()).arg(client.y()).arg(client.width()).arg(client.height()));
}

void MainWindow::resizeWindowToMessengerSize(bool runAnimation)
{
    bool startHidden = false;
    if (mIndexWindow->getSetting(QStringLiteral("do-not-launch-main-window-on-start"), QStringLiteral("0"))
            == QLatin1String("1")
        && runAnimation && QSystemTrayIcon::isSystemTrayAvailable()) {
        close();
        startHidden = true;
    }

    const QString view = property(viewProperty).toString();
    Logger::Debug(logModule, QStringLiteral("[resizeWindowToMessengerSize] view=") + view);
    if (view == QLatin1String("messenger"))
        return;
    setProperty(viewProperty, QStringLiteral("messenger"));

    QSettings settings;
    const QRect screen = primaryScreenGeometry();
    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - osScaleFactor=%1, screen width=%2, height=%3")
            .arg(osScaleFactor).arg(screen.width()).arg(screen.height()));

    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - resizing."));
    int width = settings.value(QStringLiteral("mainWindowWidth")).toInt();
    int height = settings.value(QStringLiteral("mainWindowHeight")).toInt();
    int vx = settings.value(QStringLiteral("mainWindowXPosition")).toInt();
    int vy = settings.value(QStringLiteral("mainWindowYPosition")).toInt();
    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - width=%1, height=%2, vx=%3, vy=%4")
            .arg(width).arg(height).arg(vx).arg(vy));

    FrameRule rule;
    if (width == 0 && height == 0 && vx == 0 && vy == 0) {
        // Nothing saved: the default shape.
        const double factor = osScaleFactor;
        rule = [factor](const QRect& screen, const QRect& workArea, const QMargins& frame) {
            return messengerFrame(screen, workArea, frame, factor);
        };
    } else {
        const QRect saved(vx, vy, width, height);
        rule = [saved](const QRect&, const QRect&, const QMargins& frame) { return saved.marginsAdded(frame); };
    }
    const QMargins margins = frameMargins();
    const QRect client = rule(screen, primaryWorkArea(), margins).marginsRemoved(margins);

    const bool doFullScreen = settings.value(QStringLiteral("mainWindowIsFullScreen")).toBool();
    bool doMaximized = settings.value(QStringLiteral("mainWindowIsMaximized")).toBool();
    if (client == QRect(QPoint(0, 0), screen.size()))
        doMaximized = true;

    if (!isVisible() && !startHidden)
        show();
    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - vx=%1, vy=%2").arg(client.x()).arg(client.y()));
    placeByRule(rule, runAnimation && !startHidden);

    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - doFullScreen=") + QVariant(doFullScreen).toString());
    if (doFullScreen) {
        startDelayedStateSwitch(SLOT(resizeToFullScreen()));
        return;
    }
    Logger::Info(logModule, QStringLiteral("[resizeWindowToMessengerSize] - doMaximized=") + QVariant(doMaximized).toString());
    if (doMaximized)
        startDelayedStateSwitch(SLOT(resizeToMaximized()));
}

void MainWindow::startDelayedStateSwitch(const char* slot)
{
    // Longer than the animation, so the state changes after it has ended.
    windowStateTimer = new QTimer(this);
    connect(windowStateTimer, SIGNAL(timeout()), this, slot);
    windowStateTimer->start(maximiseDelay);
}

void MainWindow::resizeToFullScreen()
{
    // Also a public slot: it can run with no switch pending.
    if (windowStateTimer)
        windowStateTimer->stop();
    showFullScreen();
}

void MainWindow::resizeToMaximized()
{
    Logger::Info(logModule, QStringLiteral("[resizeToMaximized] - called"));
    if (windowStateTimer)
        windowStateTimer->stop();
    showMaximized();
}
